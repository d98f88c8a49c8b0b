#include "data/music/synth.h"

#include <algorithm>
#include <cmath>

namespace music {
namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;

// A small linear congruential generator: the same numbers on every machine.
struct Lcg {
    uint32_t state;
    uint32_t Next() {
        state = state * 1664525u + 1013904223u;
        return state;
    }
    // White noise in [-1, 1).
    double Noise() { return static_cast<int32_t>(Next()) / 2147483648.0; }
};

double MidiToHz(int note) { return 440.0 * std::pow(2.0, (note - 69) / 12.0); }

// The mix, in floating point, one buffer per channel, written with wrap-around.
class Mixer {
public:
    Mixer(size_t frames, int channels) : frames_(frames), left_(frames, 0.0), right_(frames, 0.0) {}

    // Adds one voice: value(t) for t in seconds from the note's start, panned
    // from -1 (left) to 1 (right).
    template <typename Voice>
    void Add(size_t start, double seconds, int rate, double pan, Voice value) {
        const size_t count = static_cast<size_t>(seconds * rate);
        const double gl = std::sqrt(0.5 * (1.0 - pan));
        const double gr = std::sqrt(0.5 * (1.0 + pan));
        for (size_t i = 0; i < count; ++i) {
            const double v = value(static_cast<double>(i) / rate);
            const size_t at = (start + i) % frames_;
            left_[at] += v * gl;
            right_[at] += v * gr;
        }
    }

    const std::vector<double>& left() const { return left_; }
    const std::vector<double>& right() const { return right_; }

private:
    size_t frames_;
    std::vector<double> left_, right_;
};

// Attack, then an exponential decay; a short release to zero at the end so
// no note stops with a step.
double Envelope(double t, double length, double attack, double decay) {
    if (t < 0.0 || t >= length) return 0.0;
    double a = t < attack ? t / attack : std::exp(-(t - attack) / decay);
    const double release = 0.01;
    if (length - t < release) a *= (length - t) / release;
    return a;
}

// A soft saw from a few harmonics (no aliasing at these pitches).
double SoftSaw(double phase, int harmonics) {
    double s = 0.0;
    for (int h = 1; h <= harmonics; ++h) s += std::sin(phase * h) / h;
    return s * 0.55;
}

}  // namespace

size_t TrackFrames(const TrackSpec& spec) {
    const double seconds = spec.bars * 4 * 60.0 / spec.tempoBpm;
    return static_cast<size_t>(std::llround(seconds * spec.sampleRate));
}

std::vector<int16_t> RenderTrack(const TrackSpec& spec) {
    const int rate = spec.sampleRate;
    const size_t frames = TrackFrames(spec);
    const int steps = spec.bars * 16;  // sixteenth notes
    const double stepSeconds = 60.0 / spec.tempoBpm / 4.0;
    // Step n starts at an exact frame, so the grid never drifts.
    auto stepFrame = [&](int n) { return static_cast<size_t>((static_cast<uint64_t>(n) * frames) / steps); };

    Mixer mix(frames, spec.channels);
    Lcg rng{0x4172646Eu};

    // A minor progression, one chord per bar: Am F C G, then Am F G E.
    static const int kRoots[8] = {57, 53, 48, 55, 57, 53, 55, 52};
    static const int kThirds[8] = {3, 4, 4, 4, 3, 4, 4, 4};

    for (int bar = 0; bar < spec.bars; ++bar) {
        const int root = kRoots[bar % 8];
        const int third = kThirds[bar % 8];
        const int section = bar / 8;  // 0: pad and bass, then drums, then lead
        const size_t barStart = stepFrame(bar * 16);

        // Pad: the chord on three slightly detuned sines, the whole bar.
        const int chord[3] = {root, root + third, root + 7};
        for (int k = 0; k < 3; ++k) {
            const double f = MidiToHz(chord[k]);
            const double len = 16 * stepSeconds + 0.3;
            mix.Add(barStart, len, rate, (k - 1.0) * 0.6, [=](double t) {
                const double e = Envelope(t, len, 0.25, 3.0);
                return 0.06 * e * (std::sin(kTwoPi * f * t) + 0.5 * std::sin(kTwoPi * f * 1.003 * t));
            });
        }

        // Bass: eighth notes on the root, an octave jump on the off-beats.
        for (int e = 0; e < 8; ++e) {
            const int note = root - 12 + ((e % 2) ? 12 : 0);
            const double f = MidiToHz(note);
            const double len = 2 * stepSeconds * 0.9;
            mix.Add(stepFrame(bar * 16 + e * 2), len, rate, 0.0, [=](double t) {
                return 0.16 * Envelope(t, len, 0.005, 0.12) * SoftSaw(kTwoPi * f * t, 6);
            });
        }

        if (section >= 1) {
            for (int s = 0; s < 16; ++s) {
                const size_t at = stepFrame(bar * 16 + s);
                if (s % 4 == 0) {  // kick on every beat: a falling sine
                    mix.Add(at, 0.35, rate, 0.0, [](double t) {
                        const double phase = kTwoPi * (45.0 * t + 90.0 * 0.04 * (1.0 - std::exp(-t / 0.04)));
                        return 0.45 * Envelope(t, 0.35, 0.002, 0.09) * std::sin(phase);
                    });
                }
                if (s % 8 == 4) {  // snare on two and four: noise and a tone
                    std::vector<double> noise(static_cast<size_t>(0.2 * rate));
                    for (double& n : noise) n = rng.Noise();
                    mix.Add(at, 0.2, rate, 0.1, [noise, rate](double t) {
                        const size_t i = std::min(noise.size() - 1, static_cast<size_t>(t * rate));
                        return Envelope(t, 0.2, 0.001, 0.05) * (0.16 * noise[i] + 0.12 * std::sin(kTwoPi * 185.0 * t));
                    });
                }
                if (s % 2 == 0) {  // hi-hat on the eighths, louder off the beat
                    std::vector<double> noise(static_cast<size_t>(0.05 * rate));
                    double last = 0.0;
                    for (double& n : noise) {  // high-passed: the difference of neighbours
                        const double v = rng.Noise();
                        n = v - last;
                        last = v;
                    }
                    const double level = (s % 4 == 2) ? 0.07 : 0.04;
                    mix.Add(at, 0.05, rate, -0.3, [noise, rate, level](double t) {
                        const size_t i = std::min(noise.size() - 1, static_cast<size_t>(t * rate));
                        return level * Envelope(t, 0.05, 0.001, 0.015) * noise[i];
                    });
                }
            }
        }

        if (section >= 2) {
            // Lead: a pentatonic line picked by the generator, one note per
            // eighth with rests, a little vibrato.
            static const int kScale[6] = {0, 3, 5, 7, 10, 12};
            for (int e = 0; e < 8; ++e) {
                if (rng.Next() % 4 == 0) continue;
                const int note = 69 + kScale[rng.Next() % 6];
                const double f = MidiToHz(note);
                const double len = 2 * stepSeconds * ((rng.Next() % 2) ? 0.95 : 0.5);
                mix.Add(stepFrame(bar * 16 + e * 2), len, rate, 0.35, [=](double t) {
                    const double vib = 1.0 + 0.004 * std::sin(kTwoPi * 5.5 * t);
                    const double ph = kTwoPi * f * vib * t;
                    return 0.1 * Envelope(t, len, 0.01, 0.3) * (std::sin(ph) + 0.3 * std::sin(3 * ph) / 3.0);
                });
            }
        }
    }

    // Soft limiter, then 16-bit. Mono takes the mean of both sides; channels
    // past the second stay silent.
    const size_t channels = static_cast<size_t>(spec.channels);
    std::vector<int16_t> out(frames * channels, 0);
    auto toPcm = [](double v) {
        const double limited = std::tanh(v * 1.2) / std::tanh(1.2);
        return static_cast<int16_t>(std::lrint(std::clamp(limited, -1.0, 1.0) * 32000.0));
    };
    for (size_t i = 0; i < frames; ++i) {
        if (channels == 1) {
            out[i] = toPcm(0.5 * (mix.left()[i] + mix.right()[i]));
        } else {
            out[channels * i] = toPcm(mix.left()[i]);
            out[channels * i + 1] = toPcm(mix.right()[i]);
        }
    }
    return out;
}

}  // namespace music
