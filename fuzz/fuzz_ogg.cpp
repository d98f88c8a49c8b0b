// libFuzzer: arbitrary bytes as the benchmark music file. Opening, reading
// its stream information and decoding the first buffers may fail, with a
// line in the event log, but never crash. OpenAL Soft plays into its null
// output, so no sound device is needed.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "audio/music_player.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        setenv("ALSOFT_DRIVERS", "null", 1);
        return audio::InitAudio();
    }();
    if (!ready) {
        std::fprintf(stderr, "OpenAL's null output could not be opened\n");
        std::abort();
    }
    static const std::string path = "fuzz-music-" + std::to_string(getpid()) + ".ogg";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    audio::MusicPlayer player;
    if (player.OpenMusic(path.c_str())) {
        player.LogStreamInfo();
        player.Play();  // decodes both buffers
        player.Update();
        player.Release();
    }
    return 0;
}
