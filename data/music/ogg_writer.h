// Encodes 16-bit samples to an Ogg Vorbis file with fixed settings: a fixed
// stream serial number and quality, so the same samples give the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace music {

struct OggComments {
    std::vector<std::pair<std::string, std::string>> tags;  // e.g. {"TITLE", "..."}
};

// The tags and quality of the benchmark track.
OggComments TrackComments();
constexpr float kTrackQuality = 0.4f;

// Writes the file; false with a reason in *error when it cannot.
bool WriteOggVorbis(const std::string& path, const std::vector<int16_t>& interleaved, int channels,
                    int sampleRate, float quality, const OggComments& comments, std::string* error);

}  // namespace music
