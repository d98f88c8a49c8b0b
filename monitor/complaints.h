// Complaints about bad data from vendor libraries, the kernel or other
// programs' shared memory. Each distinct complaint goes to the event log
// once, so a sensor that keeps returning nonsense does not flood the log at
// every monitor period.
#pragma once

#include <string>

#include "platform/compiler.h"

namespace ProbeGPU {

// Logs "<message>" the first time `key` is seen. Returns true when it logged.
bool ComplainOnce(const std::string& key, const char* format, ...) ARD_PRINTF_LIKE(2, 3);
// Forgets every complaint (tests, and a fresh start-up after shut-down).
void ResetComplaints();

}  // namespace ProbeGPU
