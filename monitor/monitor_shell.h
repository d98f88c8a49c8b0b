// What the start-up and shut-down sequence and the rest of the program call
// in the hardware monitor. Wiring into start-up (app/startup.cpp):
//
//   Start-up step 12 (after recording the process and thread handles):
//       if (!monitor::MonitorStartup(0, 0, 32, 32, a, b, 0)) {
//           ErrorBox("Could not initialize ProbeGPU. %s startup failed. Bye!", kProductTitle);
//           return 0;
//       }
//       if (!monitor::GraphicsDriversFound()) {
//           monitor::MonitorShutdown();
//           ErrorBox("Graphics drivers detection failed. Bye!");
//           return 0;
//       }
//     a, b: the two values the shell keeps for the monitor; they are the
//     OpenGL version the dummy context asks for, 0, 0 meaning the driver's
//     default context.
//   Start-up step 14:   monitor::WriteStartupReport();
//   Start-up step 15:   monitor::StartMonitorThread(periodMs);
//     (monitor::SetMonitorTickCallback(fn) beforehand, if the launcher wants
//     to refresh its sensor display after every refresh)
//   Shut-down step 5:   monitor::StopMonitorThread();
//   Shut-down step 6:   monitor::FreeSensorArray(); monitor::MonitorShutdown();
//
// The read side (render thread, HUD, window title, scores file, launcher) is
// below; every call is safe before start-up, after shut-down and on a
// machine without sensors, and returns the documented defaults then.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/bridges.h"
#include "monitor/sensors.h"

namespace monitor {

// ------------------------------------------------------------ start-up

// Step 12: switches the library's own logs on ("_z.log", "adl.log" in the
// current folder, which start-up made the program folder) and starts the
// library: dummy OpenGL context, inventory, vendor interfaces. False when
// the dummy context cannot be made.
bool MonitorStartup(int x, int y, int width, int height, int opt1, int opt2, int opt3);
// Step 12: whether a display device (and so a graphics driver) was found.
bool GraphicsDriversFound();

// Step 14: writes the start-up report to the event log and allocates the
// per-GPU sensor array (one record per GPU).
void WriteStartupReport();
// The report's lines, reading the sensors through `source`; also allocates
// the sensor array. WriteStartupReport writes what this returns.
std::vector<std::string> BuildStartupReport(SensorSource& source);

// Step 15: starts the monitor thread, which refreshes the sensor array (and
// the overclocking tool's readings when it runs), calls the tick callback,
// and sleeps for the period, until stopped. False when no sensor array was
// allocated, the period is 0, or the thread already runs.
bool StartMonitorThread(unsigned periodMs);
void SetMonitorTickCallback(void (*callback)());
// Shut-down step 5: sets the stop flag and waits at most two periods. True
// when the thread ended in time. A thread that did not end is left running
// and keeps its sensor array (step 6 then frees nothing it still uses).
bool StopMonitorThread();
// Shut-down step 6: frees the sensor array (not while a stuck monitor
// thread may still write it) and shuts the library down.
void FreeSensorArray();
void MonitorShutdown();

// The GPU-Z bridge is off by default; when on, the monitor thread copies
// GPU-Z's core clock, memory clock and voltage into GPU 0's overriding
// readings (and its temperature when GPU 0 has no sensor interface).
// The setting `enable_gpuz_bridge` reaches it at start-up (before step 15).
void EnableGpuzBridge(bool on);
bool GpuzBridgeEnabled();
// One merge of GPU-Z's block into GPU 0's record: core clock, memory clock
// and voltage as overriding readings, and the temperature only when GPU 0
// has no sensor interface of its own. True when GPU-Z supplied anything.
bool MergeGpuzReadings(GpuzBridge& gpuz, GpuSensorArray* array, bool gpu0HasSensorInterface);

// ------------------------------------------------------------ read side

// The sensor array for TemperatureHistory::Sample; null before step 14 and
// after step 6.
const GpuSensorArray* SensorArray();
int SensorGpuCount();  // 0 without an array
// A copy of one GPU's record; false for an index without a record.
bool ReadGpuSensors(int gpu, GpuSensorSnapshot* out);
// The window title's "GPU1 temp: %d": whether any GPU's temperature could
// be read, and GPU 1's temperature (0 when none).
bool GpuTemperatureSourcePresent();
float FirstGpuTemperature();
// Whether an NVIDIA board (vendor 0x10DE) is present (set by the report).
bool NvidiaBoardPresent();
// The period the monitor thread sleeps, in milliseconds (0 when not started).
unsigned MonitorPeriodMs();

// Texts for the HUD heading, the scores file and the launcher.
std::string AdapterText();   // the GPU name, else the OpenGL renderer, else "Unknown"
std::string RendererText();  // the OpenGL renderer, "Unknown" when none
std::string DriverText();    // the driver description, "unknown" when none
float ScoreGpuClockMHz();     // GPU 1's shown core clock, 0 when none
float ScoreMemoryClockMHz();  // GPU 1's shown memory clock, 0 when none
// Whether the PhysX installation runs PhysX on the GPU.
bool GpuPhysXAvailable();
uint32_t PhysXVersion();

// Texts of the report that other parts compose the same way.
std::string AmdDriverText(const std::string& version, const std::string& packaging, const std::string& date);

}  // namespace monitor
