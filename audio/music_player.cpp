#include "audio/music_player.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <vorbis/vorbisfile.h>

#include "audio/al_api.h"
#include "core/event_log.h"

namespace audio {
namespace {

using namespace al;

// The process-wide device and context, and the table they were made with.
struct AudioDevice {
    const AlApi* api = nullptr;
    ALCdevice* device = nullptr;
    ALCcontext* context = nullptr;
};
AudioDevice gAudio;

// The device list is a run of names each ended by a zero, the last by two.
std::string JoinDeviceList(const char* list) {
    std::string names;
    for (const char* p = list; *p; p += std::string(p).size() + 1) {
        if (!names.empty()) names += ", ";
        names += p;
    }
    return names;
}

const char* VorbisErrorText(long code) {
    switch (code) {
        case OV_HOLE: return "interruption in the data";
        case OV_EREAD: return "read error";
        case OV_EFAULT: return "internal decoder fault";
        case OV_EIMPL: return "feature not implemented";
        case OV_EINVAL: return "invalid argument";
        case OV_ENOTVORBIS: return "not Vorbis data";
        case OV_EBADHEADER: return "invalid Vorbis header";
        case OV_EVERSION: return "Vorbis version mismatch";
        case OV_EBADLINK: return "invalid stream section";
        case OV_ENOSEEK: return "stream not seekable";
        default: return "unknown error";
    }
}

}  // namespace

bool InitAudio() {
    if (gAudio.context) return true;
    std::string why;
    const AlApi* al = AcquireAlApi(&why);
    if (!al) {
        gEventLog.Write("Init OpenAL error - %s: the benchmark runs without music.", why.c_str());
        return false;
    }
    const ALCchar* devices = al->alcGetString(nullptr, ALC_DEVICE_SPECIFIER);
    if (devices && *devices)
        gEventLog.Write("Init OpenAL - Available audio devices: %s.", JoinDeviceList(devices).c_str());
    else
        gEventLog.Write("Init OpenAL error - Unable to list all audio devices.");

    const ALCchar* defaultName = al->alcGetString(nullptr, ALC_DEFAULT_DEVICE_SPECIFIER);
    if (defaultName && *defaultName)
        gEventLog.Write("Init OpenAL - Default audio device: %s.", defaultName);
    else
        gEventLog.Write("Init OpenAL error - Unable to retrieve the name of the default audio device.");

    ALCdevice* device = al->alcOpenDevice(defaultName && *defaultName ? defaultName : nullptr);
    if (!device) {
        gEventLog.Write("Init OpenAL error.");
        return false;
    }
    ALCcontext* context = al->alcCreateContext(device, nullptr);
    if (!context) {
        gEventLog.Write("Init OpenAL error (unable to create a ctx).");
        al->alcCloseDevice(device);
        return false;
    }
    if (!al->alcMakeContextCurrent(context)) {
        gEventLog.Write("Init OpenAL error (unable to set active ctx).");
        al->alcDestroyContext(context);
        al->alcCloseDevice(device);
        return false;
    }
    gAudio.api = al;
    gAudio.device = device;
    gAudio.context = context;
    return true;
}

void ShutdownAudio() {
    if (!gAudio.context) return;
    const AlApi* al = gAudio.api;
    al->alcMakeContextCurrent(nullptr);
    al->alcDestroyContext(gAudio.context);
    al->alcCloseDevice(gAudio.device);
    gAudio = AudioDevice();
}

// ------------------------------------------------------------------ player

struct MusicPlayer::Stream {
    OggVorbis_File file{};
    vorbis_info* info = nullptr;
    std::string path;
    ~Stream() { ov_clear(&file); }  // also closes the FILE
};

MusicPlayer::MusicPlayer() = default;

MusicPlayer::~MusicPlayer() { Release(); }

int MusicPlayer::Channels() const { return stream_ ? stream_->info->channels : 0; }
int MusicPlayer::SampleRate() const { return stream_ ? static_cast<int>(stream_->info->rate) : 0; }

bool MusicPlayer::OpenMusic(const char* path) {
    Release();
    const AlApi* al = gAudio.api;
    if (!al) {
        gEventLog.Write("ERROR: unable to open the vorbis file (%s): no audio device.", path);
        return false;
    }
    FILE* f = std::fopen(path, "rb");
    if (!f) {
        gEventLog.Write("ERROR: unable to open the vorbis file (%s).", path);
        return false;
    }
    auto stream = std::make_unique<Stream>();
    stream->path = path;
    const int opened = ov_open_callbacks(f, &stream->file, nullptr, 0, OV_CALLBACKS_DEFAULT);
    if (opened < 0) {
        std::fclose(f);  // not owned by the decoder when opening failed
        stream->file = OggVorbis_File{};
        gEventLog.Write("ERROR: unable to open the vorbis file (%s: %s).", path, VorbisErrorText(opened));
        // ov_clear on a zeroed handle is harmless.
        return false;
    }
    stream->info = ov_info(&stream->file, -1);
    if (!stream->info || stream->info->channels < 1 || stream->info->rate <= 0) {
        gEventLog.Write("ERROR: unable to open the vorbis file (%s: no stream information).", path);
        return false;
    }
    format_ = stream->info->channels == 1 ? AL_FORMAT_MONO16 : AL_FORMAT_STEREO16;
    if (stream->info->channels > 2)
        gEventLog.Write("Ogg Vorbis file has %d channels: the first two are played.", stream->info->channels);

    al->alGetError();  // forget earlier errors
    al->alGenBuffers(kBufferCount, buffers_);
    al->alGenSources(1, &source_);
    if (al->alGetError() != AL_NO_ERROR) {
        gEventLog.Write("ERROR: unable to create the OpenAL buffers and source for %s.", path);
        al->alDeleteSources(1, &source_);
        al->alDeleteBuffers(kBufferCount, buffers_);
        source_ = 0;
        return false;
    }
    al->alListener3f(AL_POSITION, 0.0f, 0.0f, 0.0f);
    al->alListener3f(AL_VELOCITY, 0.0f, 0.0f, 0.0f);
    al->alSource3f(source_, AL_POSITION, 0.0f, 0.0f, 0.0f);
    al->alSource3f(source_, AL_VELOCITY, 0.0f, 0.0f, 0.0f);
    haveObjects_ = true;
    broken_ = false;
    decoded_.reset(new char[kDecodeBufferBytes]);
    stream_ = std::move(stream);
    return true;
}

void MusicPlayer::SetVolume(int level) {
    if (!haveObjects_) return;
    if (level < 0) level = 0;
    if (level > 255) level = 255;
    gAudio.api->alSourcef(source_, AL_GAIN, static_cast<float>(level) * (1.0f / 255.0f));
}

bool MusicPlayer::IsPlaying() const {
    if (!haveObjects_) return false;
    ALint state = 0;
    gAudio.api->alGetSourcei(source_, AL_SOURCE_STATE, &state);
    return state == AL_PLAYING;
}

bool MusicPlayer::Fill(unsigned buffer) {
    if (broken_ || !stream_) return false;
    OggVorbis_File* vf = &stream_->file;
    const int channels = stream_->info->channels;
    size_t filled = 0;
    bool rewound = false;
    if (ov_pcm_tell(vf) == ov_pcm_total(vf, -1)) {
        ov_pcm_seek(vf, 0);
        rewound = true;
    }
    char* out = decoded_.get();
    while (filled < kDecodeBufferBytes) {
        int section = 0;
        long n;
        if (channels > 2) {
            // Decoded whole, then only the first two channels of each frame kept.
            const size_t frameBytes = 2u * static_cast<size_t>(channels);
            char wide[16384];
            const size_t frames = std::min((kDecodeBufferBytes - filled) / 4, sizeof wide / frameBytes);
            n = ov_read(vf, wide, static_cast<int>(frames * frameBytes), 0, 2, 1, &section);
            if (n > 0) {
                for (size_t f = 0; f < static_cast<size_t>(n) / frameBytes; ++f)
                    std::copy(wide + f * frameBytes, wide + f * frameBytes + 4, out + filled + f * 4);
                n = n / static_cast<long>(frameBytes) * 4;
            }
        } else {
            n = ov_read(vf, out + filled, static_cast<int>(kDecodeBufferBytes - filled), 0, 2, 1, &section);
        }
        if (n > 0) {
            filled += static_cast<size_t>(n);
        } else if (n == 0) {
            // The end: a file whose last position is not its stated length
            // starts over here, once, rather than falling silent.
            if (filled > 0 || rewound) break;
            if (ov_pcm_seek(vf, 0) != 0) break;
            rewound = true;
        } else {
            gEventLog.Write("ERROR decoding vorbis file (%s: %s).", stream_->path.c_str(), VorbisErrorText(n));
            if (n != OV_HOLE) {
                broken_ = true;
                break;
            }
        }
    }
    if (filled == 0) {
        if (!broken_) gEventLog.Write("ERROR decoding vorbis file (%s: no samples).", stream_->path.c_str());
        broken_ = true;
        return false;
    }
    gAudio.api->alBufferData(buffer, format_, out, static_cast<ALsizei>(filled),
                             static_cast<ALsizei>(stream_->info->rate));
    return true;
}

bool MusicPlayer::Play() {
    if (!haveObjects_ || broken_) return false;
    if (IsPlaying()) return true;
    const AlApi* al = gAudio.api;
    // A source that ran dry still holds its played buffers: take them back.
    ALint processed = 0;
    al->alGetSourcei(source_, AL_BUFFERS_PROCESSED, &processed);
    for (ALint i = 0; i < processed && i < kBufferCount; ++i) {
        ALuint b = 0;
        al->alSourceUnqueueBuffers(source_, 1, &b);
    }
    ALint queued = 0;
    al->alGetSourcei(source_, AL_BUFFERS_QUEUED, &queued);
    if (queued == 0) {
        for (ALuint b : buffers_) {
            if (!Fill(b)) break;
            al->alSourceQueueBuffers(source_, 1, &b);
            ++queued;
        }
    }
    if (queued == 0) return false;
    al->alSourcePlay(source_);
    return true;
}

bool MusicPlayer::Update() {
    if (!haveObjects_) return false;
    const AlApi* al = gAudio.api;
    ALint processed = 0;
    al->alGetSourcei(source_, AL_BUFFERS_PROCESSED, &processed);
    bool ok = !broken_;
    for (ALint i = 0; i < processed && i < kBufferCount && ok; ++i) {
        ALuint b = 0;
        al->alSourceUnqueueBuffers(source_, 1, &b);
        ok = Fill(b);
        if (ok) al->alSourceQueueBuffers(source_, 1, &b);
    }
    return ok;
}

void MusicPlayer::Release() {
    if (haveObjects_) {
        const AlApi* al = gAudio.api;
        al->alSourceStop(source_);
        al->alDeleteSources(1, &source_);
        al->alDeleteBuffers(kBufferCount, buffers_);
        haveObjects_ = false;
        source_ = 0;
    }
    stream_.reset();
    decoded_.reset();
    broken_ = false;
}

void MusicPlayer::LogStreamInfo() const {
    if (!stream_) return;
    const vorbis_info* vi = stream_->info;
    gEventLog.Write("Ogg Vorbis file information: ");
    gEventLog.Write("- version: %d ", vi->version);
    gEventLog.Write("- channels: %d ", vi->channels);
    gEventLog.Write("- rate (hz): %d ", static_cast<int>(vi->rate));
    gEventLog.Write("- bitrate upper: %d ", static_cast<int>(vi->bitrate_upper));
    gEventLog.Write("- bitrate nominal: %d ", static_cast<int>(vi->bitrate_nominal));
    gEventLog.Write("- bitrate lower: %d ", static_cast<int>(vi->bitrate_lower));
    gEventLog.Write("- bitrate window: %d ", static_cast<int>(vi->bitrate_window));
    const vorbis_comment* vc = ov_comment(&stream_->file, -1);
    if (!vc) return;
    gEventLog.Write("- vendor: %s ", vc->vendor ? vc->vendor : "");
    for (int i = 0; i < vc->comments; ++i)
        gEventLog.Write("- user comment %d: %.*s", i, vc->comment_lengths[i], vc->user_comments[i]);
}

// --------------------------------------------------------- benchmark music

std::string MusicPath(const std::string& dataFolder) { return dataFolder + "Audio/zik.ogg"; }

bool BenchmarkMusic::Start(const StartupOptionsRecord& options, const std::string& dataFolder) {
    Stop();
    if (!options.enable_amark_music) return false;
    if (!InitAudio()) return false;
    auto player = std::make_unique<MusicPlayer>();
    if (!player->OpenMusic(MusicPath(dataFolder).c_str())) {
        player->Release();
        player.reset();
        ShutdownAudio();
        return false;
    }
    player->SetVolume(255);
    player->LogStreamInfo();
    player_ = std::move(player);
    return true;
}

void BenchmarkMusic::Frame() {
    if (!player_) return;
    if (!player_->IsPlaying()) player_->Play();
    player_->Update();
}

void BenchmarkMusic::Stop() {
    if (!player_) return;
    player_->Release();
    player_.reset();
    ShutdownAudio();
}

}  // namespace audio
