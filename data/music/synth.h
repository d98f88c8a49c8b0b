// The benchmark's music track, synthesised from a few oscillators, envelopes
// and a noise source. Everything is computed from fixed numbers (no clock, a
// seeded generator), so the same build always yields the same samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace music {

struct TrackSpec {
    int sampleRate = 44100;
    int channels = 2;      // 1: both sides mixed; 2 and more: left, right, then silent ones
    int bars = 32;         // four beats each
    double tempoBpm = 128; // 32 bars at 128 bpm: exactly one minute
};

// Interleaved 16-bit samples of the track. Notes that ring past the end are
// folded onto the start, so the track is one period of a loop: its last
// sample leads into its first without a step.
std::vector<int16_t> RenderTrack(const TrackSpec& spec);

// Frames (samples per channel) the track lasts.
size_t TrackFrames(const TrackSpec& spec);

}  // namespace music
