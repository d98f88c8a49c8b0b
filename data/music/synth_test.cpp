#include "data/music/synth.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <vorbis/vorbisfile.h>

#include "data/music/ogg_writer.h"

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// The largest step between neighbouring samples of one channel, the seam
// (last sample to first) left out, and the step at the seam.
struct Steps {
    int largest = 0;
    int seam = 0;
};
Steps MeasureSteps(const std::vector<int16_t>& pcm, int channels, int channel) {
    Steps s;
    const size_t frames = pcm.size() / channels;
    for (size_t i = 1; i < frames; ++i)
        s.largest = std::max(s.largest, std::abs(pcm[i * channels + channel] - pcm[(i - 1) * channels + channel]));
    s.seam = std::abs(pcm[channel] - pcm[(frames - 1) * channels + channel]);
    return s;
}

std::vector<int16_t> Decode(const std::string& path, vorbis_info* info, std::vector<std::string>* comments) {
    OggVorbis_File vf;
    std::vector<int16_t> pcm;
    if (ov_fopen(path.c_str(), &vf) != 0) return pcm;
    *info = *ov_info(&vf, -1);
    const vorbis_comment* vc = ov_comment(&vf, -1);
    for (int i = 0; i < vc->comments; ++i) comments->emplace_back(vc->user_comments[i]);
    char buf[8192];
    int section;
    long n;
    while ((n = ov_read(&vf, buf, sizeof buf, 0, 2, 1, &section)) > 0)
        pcm.insert(pcm.end(), reinterpret_cast<int16_t*>(buf), reinterpret_cast<int16_t*>(buf + n));
    ov_clear(&vf);
    return pcm;
}

TEST(MusicSynth, FullTrackIsOneMinuteOfStereoAndLoopsWithoutAStep) {
    music::TrackSpec spec;
    const std::vector<int16_t> pcm = music::RenderTrack(spec);
    ASSERT_EQ(music::TrackFrames(spec), 44100u * 60u);
    ASSERT_EQ(pcm.size(), 44100u * 60u * 2u);
    for (int c = 0; c < 2; ++c) {
        const Steps s = MeasureSteps(pcm, 2, c);
        // Music, not silence, and a seam no rougher than the track itself.
        EXPECT_GT(s.largest, 1000) << "channel " << c;
        EXPECT_LE(s.seam, s.largest / 4) << "channel " << c;
    }
}

TEST(MusicSynth, SameSpecSameSamplesAndMonoIsTheMeanOfBothSides) {
    music::TrackSpec spec;
    spec.bars = 2;
    const std::vector<int16_t> a = music::RenderTrack(spec);
    EXPECT_EQ(a, music::RenderTrack(spec));
    spec.channels = 1;
    const std::vector<int16_t> mono = music::RenderTrack(spec);
    ASSERT_EQ(mono.size() * 2, a.size());
    // The limiter bends both the same way, so the mean of the sides stays
    // close to the mono sample.
    int worst = 0;
    for (size_t i = 0; i < mono.size(); ++i)
        worst = std::max(worst, std::abs(mono[i] - (a[2 * i] + a[2 * i + 1]) / 2));
    EXPECT_LT(worst, 3000);
}

TEST(MusicFile, BuildOutputIsReproducedByteForByteAndDecodesAsTheTrack) {
    const std::string built = ReadFile(ARD_MUSIC_FILE);
    ASSERT_GT(built.size(), 100000u) << ARD_MUSIC_FILE;

    // A second generation, the way the build makes it.
    const std::string again = ::testing::TempDir() + "zik_again.ogg";
    music::TrackSpec spec;
    const std::vector<int16_t> pcm = music::RenderTrack(spec);
    std::string error;
    ASSERT_TRUE(music::WriteOggVorbis(again, pcm, 2, 44100, music::kTrackQuality, music::TrackComments(), &error)) << error;
    EXPECT_TRUE(ReadFile(again) == built) << "the generator is not deterministic";
    std::remove(again.c_str());

    vorbis_info info;
    std::vector<std::string> tags;
    const std::vector<int16_t> decoded = Decode(ARD_MUSIC_FILE, &info, &tags);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.rate, 44100);
    EXPECT_EQ(decoded.size(), pcm.size()) << "the stream's length must be the track's, or the loop shifts";
    EXPECT_NE(std::find(tags.begin(), tags.end(), "TITLE=Burn-in Loop"), tags.end());
    EXPECT_NE(std::find(tags.begin(), tags.end(), "ARTIST=Ardentium synthesiser"), tags.end());
    for (int c = 0; c < 2; ++c) {
        const Steps s = MeasureSteps(decoded, 2, c);
        EXPECT_LE(s.seam, s.largest / 4) << "the encoded loop clicks on channel " << c;
    }
}

TEST(MusicFile, WriterRefusesWhatItCannotEncode) {
    std::string error;
    const std::vector<int16_t> ragged(7, 0);  // not a whole number of stereo frames
    EXPECT_FALSE(music::WriteOggVorbis(::testing::TempDir() + "x.ogg", ragged, 2, 44100, 0.4f, {}, &error));
    EXPECT_FALSE(error.empty());
    error.clear();
    EXPECT_FALSE(music::WriteOggVorbis(::testing::TempDir() + "no/such/dir/x.ogg", {0, 0}, 2, 44100, 0.4f, {}, &error));
    EXPECT_FALSE(error.empty());
}

}  // namespace
