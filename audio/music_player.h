// The benchmark music: an Ogg Vorbis file streamed to OpenAL through two
// buffers that the frame thread refills as they are played.
//
// The AMark benchmark needs three calls of BenchmarkMusic:
//   audio::BenchmarkMusic music;                         // member of the test object
//   music.Start(StartupOptions, dataFolder);             // in Init (does nothing with /no_music)
//   music.Frame();                                       // once per frame, on the render thread
//   music.Stop();                                        // in Terminate (the destructor also stops)
// Every failure is written to the event log and the run goes on in silence.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "core/settings.h"

namespace audio {

// Opens the default device and makes a context current on it, logging the
// device list and default device. False (logged) when there is no sound.
bool InitAudio();
// Makes no context current, destroys the context and closes the device.
void ShutdownAudio();

class MusicPlayer {
public:
    // Bytes of 16-bit samples decoded for each buffer queued.
    static constexpr size_t kDecodeBufferBytes = 262144;
    static constexpr int kBufferCount = 2;

    MusicPlayer();
    ~MusicPlayer();
    MusicPlayer(const MusicPlayer&) = delete;
    MusicPlayer& operator=(const MusicPlayer&) = delete;

    // Opens the file, reads its stream information, picks the format and
    // makes the buffers and the source. Needs InitAudio first.
    bool OpenMusic(const char* path);
    // 0..255; 255 is full gain.
    void SetVolume(int level);
    bool IsPlaying() const;
    // Starts the source with both buffers filled, unless it is playing.
    bool Play();
    // Refills and requeues every buffer the source has finished.
    bool Update();
    // Stops and deletes the source and buffers and closes the stream.
    void Release();
    // Writes the stream's channels, rate, bit rates, vendor and comments to the event log.
    void LogStreamInfo() const;

    int Channels() const;
    int SampleRate() const;
    int Format() const { return format_; }

private:
    struct Stream;
    // Decodes the next stretch of the track into the buffer; false when
    // nothing could be decoded.
    bool Fill(unsigned buffer);

    std::unique_ptr<Stream> stream_;
    std::unique_ptr<char[]> decoded_;
    int format_ = 0;
    unsigned buffers_[kBufferCount] = {};
    unsigned source_ = 0;
    bool haveObjects_ = false;
    // The stream gave an error it cannot go past: no more refills (and no
    // more log lines) for this file.
    bool broken_ = false;
};

// "Audio/zik.ogg" under the data folder.
std::string MusicPath(const std::string& dataFolder);

// The music of one benchmark run, started and stopped with it.
class BenchmarkMusic {
public:
    ~BenchmarkMusic() { Stop(); }
    // Does nothing at all (no OpenAL call) unless options.enable_amark_music.
    // True when the music is ready to play.
    bool Start(const StartupOptionsRecord& options, const std::string& dataFolder);
    // Starts the source when it has stopped and refills finished buffers.
    void Frame();
    void Stop();
    bool Active() const { return player_ != nullptr; }

private:
    std::unique_ptr<MusicPlayer> player_;
};

}  // namespace audio
