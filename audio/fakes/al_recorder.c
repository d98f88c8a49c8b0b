/* Preloaded in front of OpenAL Soft: appends the name of every OpenAL call
 * to the file named by ARDENTIUM_AL_RECORD, then passes the call on. A run
 * that must make no OpenAL call leaves that file empty. The one call named
 * by ARDENTIUM_AL_FAIL fails instead (returns null or false), for the
 * failures OpenAL Soft cannot be made to show. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <AL/al.h>
#include <AL/alc.h>

static void Record(const char* name) {
    const char* path = getenv("ARDENTIUM_AL_RECORD");
    if (!path) return;
    FILE* f = fopen(path, "a");
    if (!f) return;
    fprintf(f, "%s\n", name);
    fclose(f);
}

static int ShouldFail(const char* name) {
    const char* fail = getenv("ARDENTIUM_AL_FAIL");
    return fail && strcmp(fail, name) == 0;
}

static void* Next(const char* name) {
    void* p = dlsym(RTLD_NEXT, name);
    if (!p) {
        fprintf(stderr, "al_recorder: no %s after me\n", name);
        abort();
    }
    return p;
}

#define FORWARD(ret, name, params, args)           \
    ret name params {                              \
        Record(#name);                             \
        if (ShouldFail(#name)) return (ret)0;      \
        ret(*next) params = Next(#name);           \
        return next args;                          \
    }
#define FORWARD_VOID(name, params, args)           \
    void name params {                             \
        Record(#name);                             \
        void(*next) params = Next(#name);          \
        next args;                                 \
    }

FORWARD(const ALCchar*, alcGetString, (ALCdevice * d, ALCenum p), (d, p))
FORWARD(ALCdevice*, alcOpenDevice, (const ALCchar* n), (n))
FORWARD(ALCboolean, alcCloseDevice, (ALCdevice * d), (d))
FORWARD(ALCcontext*, alcCreateContext, (ALCdevice * d, const ALCint* a), (d, a))
FORWARD(ALCboolean, alcMakeContextCurrent, (ALCcontext * c), (c))
FORWARD_VOID(alcDestroyContext, (ALCcontext * c), (c))
FORWARD(ALenum, alGetError, (void), ())
FORWARD_VOID(alGenBuffers, (ALsizei n, ALuint* b), (n, b))
FORWARD_VOID(alDeleteBuffers, (ALsizei n, const ALuint* b), (n, b))
FORWARD_VOID(alBufferData, (ALuint b, ALenum f, const ALvoid* d, ALsizei s, ALsizei r), (b, f, d, s, r))
FORWARD_VOID(alGenSources, (ALsizei n, ALuint* s), (n, s))
FORWARD_VOID(alDeleteSources, (ALsizei n, const ALuint* s), (n, s))
FORWARD_VOID(alSource3f, (ALuint s, ALenum p, ALfloat a, ALfloat b, ALfloat c), (s, p, a, b, c))
FORWARD_VOID(alSourcef, (ALuint s, ALenum p, ALfloat v), (s, p, v))
FORWARD_VOID(alGetSourcei, (ALuint s, ALenum p, ALint* v), (s, p, v))
FORWARD_VOID(alSourcePlay, (ALuint s), (s))
FORWARD_VOID(alSourceStop, (ALuint s), (s))
FORWARD_VOID(alSourceQueueBuffers, (ALuint s, ALsizei n, const ALuint* b), (s, n, b))
FORWARD_VOID(alSourceUnqueueBuffers, (ALuint s, ALsizei n, ALuint* b), (s, n, b))
FORWARD_VOID(alListener3f, (ALenum p, ALfloat a, ALfloat b, ALfloat c), (p, a, b, c))
