// Plays the benchmark music the way the AMark benchmark does, for the
// end-to-end tests: start with the settings of the command line, one frame
// every 10 ms for the given time, then stop. Writes the event log like the
// program, "ardentium_log.txt" in the working folder.
//   audio_play [--seconds S] [--data FOLDER/] [program switches, e.g. /no_music]
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "audio/music_player.h"
#include "core/event_log.h"
#include "core/settings.h"
#include "platform/platform.h"

int main(int argc, char** argv) {
    double seconds = 3.0;
    std::string dataFolder = platform::FolderOf(platform::ExecutablePath()) + "data/";
    std::string switches;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc) {
            seconds = std::atof(argv[++i]);
        } else if (!std::strcmp(argv[i], "--data") && i + 1 < argc) {
            dataFolder = argv[++i];
        } else {
            switches += switches.empty() ? "" : " ";
            switches += argv[i];
        }
    }
    InitStartupOptions();
    ParseCommandLine(switches.c_str());

    gEventLog.Write("audio_play: %.1f s of music from %s.", seconds, dataFolder.c_str());
    audio::BenchmarkMusic music;
    const bool started = music.Start(StartupOptions, dataFolder);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    long frames = 0;
    while (std::chrono::steady_clock::now() < end) {
        music.Frame();
        ++frames;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    music.Stop();
    gEventLog.Write("audio_play: done after %ld frames, music %s.", frames, started ? "played" : "off");
    return 0;
}
