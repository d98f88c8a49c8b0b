#include "app/shell.h"

ShellState gShell;
