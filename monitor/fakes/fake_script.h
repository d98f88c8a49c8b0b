/* Key=value scripts for the fake vendor libraries: the file named by an
 * environment variable, read again whenever it changes, so a test can
 * change readings between two refreshes. Lines: "key=value", '#' comments.
 * "fail=Fn1,Fn2" makes those calls fail. Include once per library. */
#ifndef ARDENTIUM_FAKE_SCRIPT_H
#define ARDENTIUM_FAKE_SCRIPT_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#define FAKE_MAX_KEYS 256

static struct {
    int loaded;
    long long mtime;
    long long size;
    int count;
    char key[FAKE_MAX_KEYS][64];
    char value[FAKE_MAX_KEYS][256];
} FakeScript;

static void FakeLoad(const char* variable) {
    const char* path = getenv(variable);
    struct stat st;
    int have = path && *path && stat(path, &st) == 0;
    if (FakeScript.loaded && (!have || ((long long)st.st_mtime == FakeScript.mtime && (long long)st.st_size == FakeScript.size)))
        return;
    FakeScript.loaded = 1;
    FakeScript.count = 0;
    if (!have) return;
    FakeScript.mtime = (long long)st.st_mtime;
    FakeScript.size = (long long)st.st_size;
    FILE* f = fopen(path, "r");
    if (!f) return;
    char line[400];
    while (fgets(line, sizeof line, f) && FakeScript.count < FAKE_MAX_KEYS) {
        line[strcspn(line, "\r\n")] = 0;
        if (line[0] == '#' || !line[0]) continue;
        char* eq = strchr(line, '=');
        if (!eq) continue;
        *eq = 0;
        snprintf(FakeScript.key[FakeScript.count], 64, "%s", line);
        snprintf(FakeScript.value[FakeScript.count], 256, "%s", eq + 1);
        FakeScript.count++;
    }
    fclose(f);
}

static const char* FakeGet(const char* key) {
    for (int i = FakeScript.count - 1; i >= 0; --i)
        if (!strcmp(FakeScript.key[i], key)) return FakeScript.value[i];
    return NULL;
}

static long long FakeInt(const char* key, long long fallback) {
    const char* v = FakeGet(key);
    return v ? strtoll(v, NULL, 0) : fallback;
}

/* "gpuN.key" */
static long long FakeGpuInt(int gpu, const char* key, long long fallback) {
    char k[64];
    snprintf(k, sizeof k, "gpu%d.%s", gpu, key);
    return FakeInt(k, fallback);
}

static const char* FakeGpuText(int gpu, const char* key, const char* fallback) {
    char k[64];
    snprintf(k, sizeof k, "gpu%d.%s", gpu, key);
    const char* v = FakeGet(k);
    return v ? v : fallback;
}

static int FakeFails(const char* fn) {
    const char* list = FakeGet("fail");
    if (!list) return 0;
    size_t n = strlen(fn);
    for (const char* p = list; (p = strstr(p, fn)) != NULL; p += n) {
        int startOk = p == list || p[-1] == ',';
        int endOk = p[n] == 0 || p[n] == ',';
        if (startOk && endOk) return 1;
    }
    return 0;
}

#endif
