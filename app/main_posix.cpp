// Linux entry point: the raw command line is the arguments joined by spaces.
#include <string>

#include "app/settings.h"
#include "app/shell.h"

int main(int argc, char** argv) {
    std::string commandLine = JoinArguments(argc, argv);
    return ArdentiumMain(commandLine.c_str());
}
