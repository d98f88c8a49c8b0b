/* OpenAL32.dll stand-in for the Windows tests under Wine: one device, whose
 * context plays each queued buffer in real time (by the clock, without
 * sound) and writes every buffer it is given to the WAV file named by
 * ARDENTIUM_FAKE_OPENAL_WAV, in the order they are queued. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

#define EXPORT __declspec(dllexport)

typedef int ALint;
typedef unsigned ALuint;
typedef int ALsizei;
typedef int ALenum;
typedef float ALfloat;
typedef char ALCboolean;
typedef char ALCchar;
typedef int ALCint;
typedef int ALCenum;
typedef struct { int unused; } ALCdevice;
typedef struct { int unused; } ALCcontext;

enum {
    kGain = 0x100A, kSourceState = 0x1010, kInitial = 0x1011, kPlaying = 0x1012, kStopped = 0x1014,
    kBuffersQueued = 0x1015, kBuffersProcessed = 0x1016, kMono16 = 0x1101, kStereo16 = 0x1103,
    kDefaultDevice = 0x1004, kDeviceList = 0x1005, kInvalidName = 0xA001, kInvalidOperation = 0xA004,
    kMaxBuffers = 64, kMaxQueue = 16
};

typedef struct {
    int used;
    char* data;
    ALsizei size;
    int channels;
    ALsizei rate;
} Buffer;

static ALCdevice gDevice;
static ALCcontext gContext;
static int gDeviceOpen, gContextMade;
static ALCcontext* gCurrent;
static FILE* gWav;
static uint32_t gWavBytes;
static int gWavChannels, gWavRate;
static Buffer gBuffers[kMaxBuffers + 1];  /* names 1..kMaxBuffers */
static int gSourceMade;
static ALint gState = kInitial;
static ALuint gQueue[kMaxQueue];
static int gQueued;
static double gPlayStart;  /* seconds, when the front of the queue started */
static ALenum gError;

static double Now(void) {
    LARGE_INTEGER c, f;
    QueryPerformanceCounter(&c);
    QueryPerformanceFrequency(&f);
    return (double)c.QuadPart / (double)f.QuadPart;
}

static double Seconds(const Buffer* b) {
    return b->rate > 0 ? (double)b->size / (2.0 * b->channels * b->rate) : 0.0;
}

static void Put32(unsigned char* p, uint32_t v) { p[0] = v; p[1] = v >> 8; p[2] = v >> 16; p[3] = v >> 24; }
static void Put16(unsigned char* p, unsigned v) { p[0] = v; p[1] = v >> 8; }

static void WriteWavHeader(void) {
    unsigned char h[44];
    memcpy(h, "RIFF", 4);
    Put32(h + 4, 36 + gWavBytes);
    memcpy(h + 8, "WAVEfmt ", 8);
    Put32(h + 16, 16);
    Put16(h + 20, 1);
    Put16(h + 22, gWavChannels);
    Put32(h + 24, gWavRate);
    Put32(h + 28, gWavRate * gWavChannels * 2);
    Put16(h + 32, gWavChannels * 2);
    Put16(h + 34, 16);
    memcpy(h + 36, "data", 4);
    Put32(h + 40, gWavBytes);
    fseek(gWav, 0, SEEK_SET);
    fwrite(h, 1, sizeof h, gWav);
    fseek(gWav, 0, SEEK_END);
}

static void WriteToWav(const Buffer* b) {
    if (!gWav) return;
    if (gWavChannels == 0) {  /* the first buffer sets the file's format */
        gWavChannels = b->channels;
        gWavRate = b->rate;
        WriteWavHeader();     /* the data follows the header */
    }
    fwrite(b->data, 1, b->size, gWav);
    gWavBytes += b->size;
    WriteWavHeader();
    fflush(gWav);
}

/* Buffers at the front of the queue that have played by now. */
static int Processed(void) {
    if (gState != kPlaying && gState != kStopped) return 0;
    if (gState == kStopped) return gQueued;
    double t = gPlayStart;
    const double now = Now();
    int n = 0;
    while (n < gQueued && t + Seconds(&gBuffers[gQueue[n]]) <= now) t += Seconds(&gBuffers[gQueue[n++]]);
    if (n == gQueued) gState = kStopped;  /* ran dry, as a real source does */
    return n;
}

static Buffer* Find(ALuint name) {
    return name >= 1 && name <= kMaxBuffers && gBuffers[name].used ? &gBuffers[name] : NULL;
}

EXPORT const ALCchar* alcGetString(ALCdevice* d, ALCenum p) {
    if (p == kDeviceList) return "Fake WAV Output\0";
    if (p == kDefaultDevice) return "Fake WAV Output";
    return "";
}

EXPORT ALCdevice* alcOpenDevice(const ALCchar* name) {
    if (gDeviceOpen) return NULL;
    const char* path = getenv("ARDENTIUM_FAKE_OPENAL_WAV");
    if (path && *path) {
        gWav = fopen(path, "wb");
        if (!gWav) return NULL;
        gWavBytes = 0;
        gWavChannels = gWavRate = 0;
    }
    gDeviceOpen = 1;
    return &gDevice;
}

EXPORT ALCboolean alcCloseDevice(ALCdevice* d) {
    if (d != &gDevice || !gDeviceOpen) return 0;
    if (gWav) fclose(gWav);
    gWav = NULL;
    gDeviceOpen = 0;
    return 1;
}

EXPORT ALCcontext* alcCreateContext(ALCdevice* d, const ALCint* attributes) {
    if (d != &gDevice || gContextMade) return NULL;
    gContextMade = 1;
    return &gContext;
}

EXPORT ALCboolean alcMakeContextCurrent(ALCcontext* c) {
    if (c && c != &gContext) return 0;
    gCurrent = c;
    return 1;
}

EXPORT void alcDestroyContext(ALCcontext* c) {
    if (c == &gContext) gContextMade = 0;
}

EXPORT ALenum alGetError(void) {
    ALenum e = gError;
    gError = 0;
    return e;
}

EXPORT void alGenBuffers(ALsizei n, ALuint* names) {
    for (ALsizei i = 0; i < n; ++i) {
        ALuint k = 1;
        while (k <= kMaxBuffers && gBuffers[k].used) ++k;
        if (k > kMaxBuffers || !gCurrent) {
            gError = kInvalidOperation;
            return;
        }
        memset(&gBuffers[k], 0, sizeof gBuffers[k]);
        gBuffers[k].used = 1;
        names[i] = k;
    }
}

EXPORT void alDeleteBuffers(ALsizei n, const ALuint* names) {
    for (ALsizei i = 0; i < n; ++i) {
        Buffer* b = Find(names[i]);
        if (!b) continue;
        free(b->data);
        memset(b, 0, sizeof *b);
    }
}

EXPORT void alBufferData(ALuint name, ALenum format, const void* data, ALsizei size, ALsizei rate) {
    Buffer* b = Find(name);
    if (!b || (format != kMono16 && format != kStereo16) || size < 0) {
        gError = kInvalidName;
        return;
    }
    free(b->data);
    b->data = malloc(size > 0 ? size : 1);
    memcpy(b->data, data, size);
    b->size = size;
    b->channels = format == kMono16 ? 1 : 2;
    b->rate = rate;
}

EXPORT void alGenSources(ALsizei n, ALuint* names) {
    if (n != 1 || gSourceMade || !gCurrent) {
        gError = kInvalidOperation;
        return;
    }
    gSourceMade = 1;
    gState = kInitial;
    gQueued = 0;
    names[0] = 1000;
}

EXPORT void alDeleteSources(ALsizei n, const ALuint* names) { gSourceMade = 0; gQueued = 0; }
EXPORT void alSource3f(ALuint s, ALenum p, ALfloat a, ALfloat b, ALfloat c) {}
EXPORT void alSourcef(ALuint s, ALenum p, ALfloat v) {}
EXPORT void alListener3f(ALenum p, ALfloat a, ALfloat b, ALfloat c) {}

EXPORT void alGetSourcei(ALuint s, ALenum p, ALint* v) {
    if (p == kBuffersProcessed) *v = Processed();
    else if (p == kSourceState) { Processed(); *v = gState; }
    else if (p == kBuffersQueued) *v = gQueued;
}

EXPORT void alSourcePlay(ALuint s) {
    if (gState == kPlaying) return;
    gState = kPlaying;
    gPlayStart = Now();
}

EXPORT void alSourceStop(ALuint s) { gState = kStopped; }

EXPORT void alSourceQueueBuffers(ALuint s, ALsizei n, const ALuint* names) {
    for (ALsizei i = 0; i < n; ++i) {
        Buffer* b = Find(names[i]);
        if (!b || gQueued == kMaxQueue) {
            gError = kInvalidOperation;
            return;
        }
        gQueue[gQueued++] = names[i];
        WriteToWav(b);
    }
}

EXPORT void alSourceUnqueueBuffers(ALuint s, ALsizei n, ALuint* names) {
    if (n > Processed()) {
        gError = kInvalidOperation;
        return;
    }
    for (ALsizei i = 0; i < n; ++i) {
        names[i] = gQueue[0];
        gPlayStart += Seconds(&gBuffers[gQueue[0]]);
        memmove(gQueue, gQueue + 1, (gQueued - 1) * sizeof gQueue[0]);
        --gQueued;
    }
}
