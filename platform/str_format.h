// printf-style formatting into a std::string, for texts shown or logged.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/compiler.h"

// Texts longer than 1023 characters are cut.
ARD_PRINTF_LIKE(1, 2) inline std::string StrFormat(const char* format, ...) {
    char buf[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    return buf;
}
