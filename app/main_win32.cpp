// Windows entry point: the command line arrives raw, without the program path.
#include <windows.h>

#include "app/startup.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR commandLine, int) { return ArdentiumMain(commandLine); }
