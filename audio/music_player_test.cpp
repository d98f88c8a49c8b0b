#include "audio/music_player.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "audio/al_api.h"
#include "core/event_log.h"

namespace {

using namespace audio::al;

// An OpenAL that keeps what it is given: buffers' bytes, the source's queue
// and state. The test says how many queued buffers have been played.
struct FakeAl {
    bool hasDevices = true;
    bool openFails = false;
    bool contextFails = false;
    bool makeCurrentFails = false;
    int openDevices = 0;
    int liveContexts = 0;
    ALCcontext* current = nullptr;
    std::vector<std::string> calls;
    ALuint nextName = 1;
    std::map<ALuint, std::vector<char>> bufferData;
    std::map<ALuint, ALenum> bufferFormat;
    std::map<ALuint, ALsizei> bufferRate;
    std::vector<ALuint> queue;  // front first
    int played = 0;             // how many at the front are processed
    ALint state = 0x1011;       // AL_INITIAL
    float gain = -1.0f;
    std::vector<ALuint> liveBuffers, liveSources;
};
FakeAl* gFake = nullptr;
char gDevice, gContext;

audio::AlApi MakeFakeApi() {
    audio::AlApi a;
    a.alcGetString = [](ALCdevice*, ALCenum p) -> const ALCchar* {
        gFake->calls.push_back("alcGetString");
        if (!gFake->hasDevices) return nullptr;
        return p == ALC_DEVICE_SPECIFIER ? "Speakers\0Headphones\0" : "Speakers";
    };
    a.alcOpenDevice = [](const ALCchar*) -> ALCdevice* {
        gFake->calls.push_back("alcOpenDevice");
        if (gFake->openFails) return nullptr;
        ++gFake->openDevices;
        return reinterpret_cast<ALCdevice*>(&gDevice);
    };
    a.alcCloseDevice = [](ALCdevice*) -> ALCboolean { --gFake->openDevices; return 1; };
    a.alcCreateContext = [](ALCdevice*, const ALCint*) -> ALCcontext* {
        if (gFake->contextFails) return nullptr;
        ++gFake->liveContexts;
        return reinterpret_cast<ALCcontext*>(&gContext);
    };
    a.alcMakeContextCurrent = [](ALCcontext* c) -> ALCboolean {
        if (gFake->makeCurrentFails && c) return 0;
        gFake->current = c;
        return 1;
    };
    a.alcDestroyContext = [](ALCcontext*) { --gFake->liveContexts; };
    a.alGetError = []() -> ALenum { return AL_NO_ERROR; };
    a.alGenBuffers = [](ALsizei n, ALuint* b) {
        for (int i = 0; i < n; ++i) gFake->liveBuffers.push_back(b[i] = gFake->nextName++);
    };
    a.alDeleteBuffers = [](ALsizei n, const ALuint*) { gFake->liveBuffers.resize(gFake->liveBuffers.size() - n); };
    a.alBufferData = [](ALuint b, ALenum f, const void* d, ALsizei s, ALsizei r) {
        gFake->calls.push_back("alBufferData");
        gFake->bufferData[b].assign(static_cast<const char*>(d), static_cast<const char*>(d) + s);
        gFake->bufferFormat[b] = f;
        gFake->bufferRate[b] = r;
    };
    a.alGenSources = [](ALsizei, ALuint* s) { gFake->liveSources.push_back(*s = gFake->nextName++); };
    a.alDeleteSources = [](ALsizei, const ALuint*) { gFake->liveSources.pop_back(); };
    a.alSource3f = [](ALuint, ALenum, ALfloat, ALfloat, ALfloat) {};
    a.alSourcef = [](ALuint, ALenum p, ALfloat v) {
        if (p == AL_GAIN) gFake->gain = v;
    };
    a.alGetSourcei = [](ALuint, ALenum p, ALint* v) {
        if (p == AL_SOURCE_STATE) *v = gFake->state;
        if (p == AL_BUFFERS_PROCESSED) *v = gFake->played;
        if (p == AL_BUFFERS_QUEUED) *v = static_cast<ALint>(gFake->queue.size());
    };
    a.alSourcePlay = [](ALuint) { gFake->calls.push_back("alSourcePlay"); gFake->state = AL_PLAYING; };
    a.alSourceStop = [](ALuint) { gFake->state = 0x1014; };
    a.alSourceQueueBuffers = [](ALuint, ALsizei n, const ALuint* b) {
        gFake->queue.insert(gFake->queue.end(), b, b + n);
    };
    a.alSourceUnqueueBuffers = [](ALuint, ALsizei n, ALuint* b) {
        for (int i = 0; i < n; ++i) {
            b[i] = gFake->queue.front();
            gFake->queue.erase(gFake->queue.begin());
            --gFake->played;
        }
    };
    a.alListener3f = [](ALenum, ALfloat, ALfloat, ALfloat) {};
    return a;
}

std::string ReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

class MusicPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        gFake = &fake_;
        api_ = MakeFakeApi();
        audio::SetAlApiForTesting(&api_);
        logStart_ = ReadFile(kEventLogFileName).size();
    }
    void TearDown() override {
        audio::ShutdownAudio();
        audio::SetAlApiForTesting(nullptr);
        gFake = nullptr;
    }
    // What this test wrote to the event log.
    std::string Log() const { return ReadFile(kEventLogFileName).substr(logStart_); }

    // Plays the first `count` queued buffers and refills them.
    void PlayBuffers(audio::MusicPlayer& p, int count) {
        fake_.played = count;
        EXPECT_TRUE(p.Update());
        EXPECT_EQ(fake_.played, 0);
    }

    FakeAl fake_;
    audio::AlApi api_;
    size_t logStart_ = 0;
};

const std::string kStereo = std::string(ARD_AUDIO_TEST_DIR) + "one_bar_stereo.ogg";
const std::string kMono = std::string(ARD_AUDIO_TEST_DIR) + "one_bar_mono.ogg";
const size_t kOneBarFrames44k = 82688;  // 1.875 s, rounded
const size_t kOneBarFrames22k = 41344;

TEST_F(MusicPlayerTest, InitLogsDevicesAndShutdownReleasesThem) {
    ASSERT_TRUE(audio::InitAudio());
    EXPECT_EQ(fake_.current, reinterpret_cast<ALCcontext*>(&gContext));
    audio::ShutdownAudio();
    EXPECT_EQ(fake_.current, nullptr);
    EXPECT_EQ(fake_.openDevices, 0);
    EXPECT_EQ(fake_.liveContexts, 0);
    const std::string log = Log();
    EXPECT_NE(log.find("Init OpenAL - Available audio devices: Speakers, Headphones."), std::string::npos) << log;
    EXPECT_NE(log.find("Init OpenAL - Default audio device: Speakers."), std::string::npos) << log;
}

TEST_F(MusicPlayerTest, EveryInitFailureIsLoggedAndLeavesNothingOpen) {
    fake_.hasDevices = false;
    fake_.openFails = true;
    EXPECT_FALSE(audio::InitAudio());
    fake_.openFails = false;
    fake_.contextFails = true;
    EXPECT_FALSE(audio::InitAudio());
    fake_.contextFails = false;
    fake_.makeCurrentFails = true;
    EXPECT_FALSE(audio::InitAudio());
    EXPECT_EQ(fake_.openDevices, 0);
    EXPECT_EQ(fake_.liveContexts, 0);
    const std::string log = Log();
    for (const char* line : {"Init OpenAL error - Unable to list all audio devices.",
                             "Init OpenAL error - Unable to retrieve the name of the default audio device.",
                             "Init OpenAL error.", "Init OpenAL error (unable to create a ctx).",
                             "Init OpenAL error (unable to set active ctx)."})
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
}

TEST_F(MusicPlayerTest, StereoStreamsInFullBuffersAndLoopsAtTheEnd) {
    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer p;
    ASSERT_TRUE(p.OpenMusic(kStereo.c_str()));
    EXPECT_EQ(p.Format(), AL_FORMAT_STEREO16);
    p.SetVolume(255);
    EXPECT_FLOAT_EQ(fake_.gain, 1.0f);
    p.SetVolume(51);
    EXPECT_FLOAT_EQ(fake_.gain, 0.2f);
    EXPECT_FALSE(p.IsPlaying());

    ASSERT_TRUE(p.Play());
    EXPECT_TRUE(p.IsPlaying());
    ASSERT_EQ(fake_.queue.size(), 2u);
    const ALuint first = fake_.queue[0], second = fake_.queue[1];
    // One bar at 128 bpm, 1.875 s: a full buffer and the rest.
    const std::vector<char> start = fake_.bufferData[first];
    EXPECT_EQ(start.size(), audio::MusicPlayer::kDecodeBufferBytes);
    const size_t rest = fake_.bufferData[second].size();
    EXPECT_EQ(start.size() + rest, kOneBarFrames44k * 4u);
    EXPECT_EQ(fake_.bufferRate[first], 44100);

    // Playing the first buffer refills it from the start of the file: the loop.
    PlayBuffers(p, 1);
    EXPECT_EQ(fake_.queue, (std::vector<ALuint>{second, first}));
    EXPECT_TRUE(fake_.bufferData[first] == start);
    // Nothing played, nothing refilled.
    const size_t fills = std::count(fake_.calls.begin(), fake_.calls.end(), "alBufferData");
    PlayBuffers(p, 0);
    EXPECT_EQ(std::count(fake_.calls.begin(), fake_.calls.end(), "alBufferData"), static_cast<long>(fills));
    // And around again: the second buffer carries on after the first.
    PlayBuffers(p, 1);
    EXPECT_EQ(fake_.bufferData[second].size(), rest);

    p.Release();
    EXPECT_TRUE(fake_.liveBuffers.empty());
    EXPECT_TRUE(fake_.liveSources.empty());
    EXPECT_EQ(Log().find("ERROR"), std::string::npos) << Log();
}

TEST_F(MusicPlayerTest, MonoPlaysAsMonoAtItsOwnRate) {
    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer p;
    ASSERT_TRUE(p.OpenMusic(kMono.c_str()));
    EXPECT_EQ(p.Format(), AL_FORMAT_MONO16);
    EXPECT_EQ(p.Channels(), 1);
    ASSERT_TRUE(p.Play());
    ASSERT_EQ(fake_.queue.size(), 2u);
    // The whole file fits one buffer, so the second holds it again.
    const auto& a = fake_.bufferData[fake_.queue[0]];
    EXPECT_EQ(a.size(), kOneBarFrames22k * 2u);
    EXPECT_TRUE(a == fake_.bufferData[fake_.queue[1]]);
    EXPECT_EQ(fake_.bufferFormat[fake_.queue[0]], AL_FORMAT_MONO16);
    EXPECT_EQ(fake_.bufferRate[fake_.queue[0]], 22050);
}

TEST_F(MusicPlayerTest, ThreeChannelsPlayAsStereoFromTheFirstTwo) {
    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer stereo, wide;
    ASSERT_TRUE(stereo.OpenMusic(kStereo.c_str()));
    ASSERT_TRUE(stereo.Play());
    const std::vector<char> reference = fake_.bufferData[fake_.queue[0]];
    fake_.queue.clear();
    fake_.state = 0x1011;
    ASSERT_TRUE(wide.OpenMusic((std::string(ARD_AUDIO_TEST_DIR) + "one_bar_3ch.ogg").c_str()));
    EXPECT_EQ(wide.Format(), AL_FORMAT_STEREO16);
    ASSERT_TRUE(wide.Play());
    const std::vector<char>& got = fake_.bufferData[fake_.queue[0]];
    ASSERT_EQ(got.size(), reference.size());
    // The same music, encoded apart: the samples agree up to the codec's error.
    const auto* a = reinterpret_cast<const int16_t*>(got.data());
    const auto* b = reinterpret_cast<const int16_t*>(reference.data());
    double dot = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < got.size() / 2; ++i) {
        dot += double(a[i]) * b[i];
        aa += double(a[i]) * a[i];
        bb += double(b[i]) * b[i];
    }
    EXPECT_GT(dot / std::sqrt(aa * bb), 0.98);
    EXPECT_NE(Log().find("has 3 channels: the first two are played"), std::string::npos) << Log();
}

TEST_F(MusicPlayerTest, SourceThatRanDryStartsAgainWithFreshBuffers) {
    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer p;
    ASSERT_TRUE(p.OpenMusic(kStereo.c_str()));
    ASSERT_TRUE(p.Play());
    fake_.state = 0x1014;  // stopped: both buffers played
    fake_.played = 2;
    EXPECT_FALSE(p.IsPlaying());
    ASSERT_TRUE(p.Play());
    EXPECT_EQ(fake_.queue.size(), 2u);
    EXPECT_EQ(std::count(fake_.calls.begin(), fake_.calls.end(), "alSourcePlay"), 2);
}

TEST_F(MusicPlayerTest, StreamInfoNamesTheTrack) {
    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer p;
    ASSERT_TRUE(p.OpenMusic(kStereo.c_str()));
    p.LogStreamInfo();
    const std::string log = Log();
    for (const char* line : {"Ogg Vorbis file information: ", "- version: 0 ", "- channels: 2 ",
                             "- rate (hz): 44100 ", "- bitrate nominal: ", "- bitrate window: ", "- vendor: ",
                             "- user comment 0: TITLE=Burn-in Loop", "- user comment 1: ARTIST="})
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
}

TEST_F(MusicPlayerTest, BadFilesAreLoggedAndNeverPlay) {
    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer p;
    EXPECT_FALSE(p.OpenMusic((std::string(ARD_AUDIO_TEST_DIR) + "missing.ogg").c_str()));
    const std::string text = ::testing::TempDir() + "not_ogg.ogg";
    std::ofstream(text) << "this is not an Ogg file\n";
    EXPECT_FALSE(p.OpenMusic(text.c_str()));
    EXPECT_FALSE(p.Play());
    EXPECT_FALSE(p.Update());
    EXPECT_TRUE(fake_.liveBuffers.empty());
    const std::string log = Log();
    EXPECT_NE(log.find("ERROR: unable to open the vorbis file (" ARD_AUDIO_TEST_DIR "missing.ogg)."),
              std::string::npos) << log;
    EXPECT_NE(log.find("ERROR: unable to open the vorbis file (" + text), std::string::npos) << log;
    std::remove(text.c_str());
}

TEST_F(MusicPlayerTest, DamageInTheMiddleIsLoggedDuringARefillAndPlayGoesOn) {
    std::string bytes = ReadFile(std::string(ARD_AUDIO_TEST_DIR) + "eight_bars_stereo.ogg");
    ASSERT_GT(bytes.size(), 50000u);
    // Garble a stretch of audio pages well past the headers.
    for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 1500; ++i) bytes[i] = static_cast<char>(i * 7);
    const std::string damaged = ::testing::TempDir() + "damaged.ogg";
    std::ofstream(damaged, std::ios::binary) << bytes;

    ASSERT_TRUE(audio::InitAudio());
    audio::MusicPlayer p;
    ASSERT_TRUE(p.OpenMusic(damaged.c_str()));
    ASSERT_TRUE(p.Play());
    // Eight bars are ten buffers: around the whole file and more.
    for (int i = 0; i < 14; ++i) PlayBuffers(p, 1);
    EXPECT_EQ(fake_.queue.size(), 2u);
    EXPECT_NE(Log().find("ERROR decoding vorbis file (" + damaged), std::string::npos) << Log();
    std::remove(damaged.c_str());
}

TEST_F(MusicPlayerTest, BenchmarkMusicDoesNothingWhenSwitchedOff) {
    StartupOptionsRecord options;
    InitStartupOptions(options, 1);
    options.enable_amark_music = false;
    audio::BenchmarkMusic music;
    EXPECT_FALSE(music.Start(options, ARD_AUDIO_TEST_DIR));
    music.Frame();
    music.Stop();
    EXPECT_TRUE(fake_.calls.empty());
}

TEST_F(MusicPlayerTest, BenchmarkMusicWithoutItsFileClosesTheDevice) {
    StartupOptionsRecord options;
    InitStartupOptions(options, 1);
    audio::BenchmarkMusic music;
    EXPECT_FALSE(music.Start(options, "/nonexistent/"));
    EXPECT_FALSE(music.Active());
    EXPECT_EQ(fake_.openDevices, 0);
    EXPECT_EQ(fake_.liveContexts, 0);
    music.Frame();  // harmless
    EXPECT_NE(Log().find("ERROR: unable to open the vorbis file (/nonexistent/Audio/zik.ogg)."), std::string::npos);
}

}  // namespace
