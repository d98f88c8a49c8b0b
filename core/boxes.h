// The error and information boxes: shown where there is a display (on standard
// error otherwise) and always written to the event log.
#pragma once

#include "platform/compiler.h"

constexpr const char* kProductTitle = "VXA Ardentium";
constexpr const char* kErrorCaption = "VXA Ardentium Error";
constexpr const char* kInformationCaption = "VXA Ardentium Information";
constexpr int kVersionMajor = 2;
constexpr int kVersionMinor = 6;
constexpr int kVersionPatch = 0;

ARD_PRINTF_LIKE(1, 2) void ErrorBox(const char* format, ...);
ARD_PRINTF_LIKE(1, 2) void InformationBox(const char* format, ...);

// While a window of the program's own shows the boxes (the launcher), a box
// goes to it instead of a system box, from whichever thread raised it; the
// event log still gets its line. Null gives the boxes back to the system.
using BoxSink = void (*)(bool error, const char* text);
void SetBoxSink(BoxSink sink);
