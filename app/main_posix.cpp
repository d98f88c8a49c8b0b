// Linux entry point: the raw command line is the arguments joined by spaces.
#include <string>

#include "core/settings.h"
#include "app/startup.h"

int main(int argc, char** argv) {
    std::string commandLine = JoinArguments(argc, argv);
    return ArdentiumMain(commandLine.c_str());
}
