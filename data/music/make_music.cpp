// Writes the benchmark's music track (or a shorter test track) as Ogg Vorbis.
//   make_music --out zik.ogg [--bars N] [--channels 1..8] [--rate HZ]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data/music/ogg_writer.h"
#include "data/music/synth.h"

int main(int argc, char** argv) {
    music::TrackSpec spec;
    std::string out;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (!std::strcmp(argv[i], "--out") && hasValue) {
            out = argv[++i];
        } else if (!std::strcmp(argv[i], "--bars") && hasValue) {
            spec.bars = std::atoi(argv[++i]);
        } else if (!std::strcmp(argv[i], "--channels") && hasValue) {
            spec.channels = std::atoi(argv[++i]);
        } else if (!std::strcmp(argv[i], "--rate") && hasValue) {
            spec.sampleRate = std::atoi(argv[++i]);
        } else {
            std::fprintf(stderr, "make_music: unknown argument %s\n", argv[i]);
            return 2;
        }
    }
    if (out.empty() || spec.bars < 1 || spec.bars > 512 || spec.channels < 1 || spec.channels > 8 ||
        spec.sampleRate < 8000 || spec.sampleRate > 96000) {
        std::fprintf(stderr, "usage: make_music --out FILE [--bars 1..512] [--channels 1..8] [--rate 8000..96000]\n");
        return 2;
    }
    std::string error;
    if (!music::WriteOggVorbis(out, music::RenderTrack(spec), spec.channels, spec.sampleRate, music::kTrackQuality,
                               music::TrackComments(),
                               &error)) {
        std::fprintf(stderr, "make_music: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
