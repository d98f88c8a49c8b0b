// The thread messages the UI thread's loops share on Windows.
#pragma once

#include <windows.h>

namespace platform {

constexpr UINT kMsgApplyTitle = WM_APP + 1;
constexpr UINT kMsgThreadClose = WM_APP + 2;
// Ctrl+C, Ctrl+Break or a closed console: the run's Escape, the launcher's close.
constexpr UINT kMsgThreadEscape = WM_APP + 3;

}  // namespace platform
