// The OpenAL entry points the music player uses, as one table of function
// pointers. On Linux the table points into OpenAL Soft, linked with the
// program; on Windows it is filled from OpenAL32.dll, loaded only when the
// music is wanted (the DLL is not part of Windows). Tests put their own table
// in its place.
#pragma once

#include <string>

namespace audio {

namespace al {
using ALboolean = char;
using ALchar = char;
using ALint = int;
using ALuint = unsigned int;
using ALsizei = int;
using ALenum = int;
using ALfloat = float;
using ALCboolean = char;
using ALCchar = char;
using ALCint = int;
using ALCenum = int;
struct ALCdevice;
struct ALCcontext;

constexpr ALenum AL_NO_ERROR = 0;
constexpr ALenum AL_POSITION = 0x1004;
constexpr ALenum AL_VELOCITY = 0x1006;
constexpr ALenum AL_GAIN = 0x100A;
constexpr ALenum AL_SOURCE_STATE = 0x1010;
constexpr ALint AL_PLAYING = 0x1012;
constexpr ALenum AL_BUFFERS_QUEUED = 0x1015;
constexpr ALenum AL_BUFFERS_PROCESSED = 0x1016;
constexpr ALenum AL_FORMAT_MONO16 = 0x1101;
constexpr ALenum AL_FORMAT_STEREO16 = 0x1103;
constexpr ALCenum ALC_DEFAULT_DEVICE_SPECIFIER = 0x1004;
constexpr ALCenum ALC_DEVICE_SPECIFIER = 0x1005;
}  // namespace al

// One entry per function; X(return type, name, parameter list).
#define ARD_AL_FUNCTIONS(X)                                                                       \
    X(const al::ALCchar*, alcGetString, (al::ALCdevice * device, al::ALCenum param))              \
    X(al::ALCdevice*, alcOpenDevice, (const al::ALCchar* name))                                   \
    X(al::ALCboolean, alcCloseDevice, (al::ALCdevice * device))                                   \
    X(al::ALCcontext*, alcCreateContext, (al::ALCdevice * device, const al::ALCint* attributes))  \
    X(al::ALCboolean, alcMakeContextCurrent, (al::ALCcontext * context))                          \
    X(void, alcDestroyContext, (al::ALCcontext * context))                                        \
    X(al::ALenum, alGetError, ())                                                                 \
    X(void, alGenBuffers, (al::ALsizei n, al::ALuint * buffers))                                  \
    X(void, alDeleteBuffers, (al::ALsizei n, const al::ALuint* buffers))                          \
    X(void, alBufferData,                                                                         \
      (al::ALuint buffer, al::ALenum format, const void* data, al::ALsizei size, al::ALsizei rate)) \
    X(void, alGenSources, (al::ALsizei n, al::ALuint * sources))                                  \
    X(void, alDeleteSources, (al::ALsizei n, const al::ALuint* sources))                          \
    X(void, alSource3f, (al::ALuint source, al::ALenum param, al::ALfloat a, al::ALfloat b, al::ALfloat c)) \
    X(void, alSourcef, (al::ALuint source, al::ALenum param, al::ALfloat value))                  \
    X(void, alGetSourcei, (al::ALuint source, al::ALenum param, al::ALint * value))               \
    X(void, alSourcePlay, (al::ALuint source))                                                    \
    X(void, alSourceStop, (al::ALuint source))                                                    \
    X(void, alSourceQueueBuffers, (al::ALuint source, al::ALsizei n, const al::ALuint* buffers))  \
    X(void, alSourceUnqueueBuffers, (al::ALuint source, al::ALsizei n, al::ALuint * buffers))     \
    X(void, alListener3f, (al::ALenum param, al::ALfloat a, al::ALfloat b, al::ALfloat c))

struct AlApi {
#define ARD_AL_FIELD(ret, name, params) ret(*name) params = nullptr;
    ARD_AL_FUNCTIONS(ARD_AL_FIELD)
#undef ARD_AL_FIELD
};

// The table for this process: the linked library, or OpenAL32.dll loaded on
// first use. Null, with the reason in *why, when the library or one of its
// entry points is missing.
const AlApi* AcquireAlApi(std::string* why);

// Replaces the table AcquireAlApi hands out (null: back to the real one).
void SetAlApiForTesting(const AlApi* api);

}  // namespace audio
