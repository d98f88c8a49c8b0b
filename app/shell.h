// Process-wide state owned by the application shell, and the start-up and
// shut-down sequence that runs the life of the program on the main thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

// The mesh data library and its six entry points.
struct ADataLibrary {
    using GetSizeFn = int (*)(const char*);
    using GetDataFn = const void* (*)(const char*);
    using GetCountFn = int (*)(const char*);
    using GetVerticesFn = const float* (*)(const char*);
    using GetFacesFn = const unsigned int* (*)(const char*);

    platform::LibHandle lib = nullptr;
    GetSizeFn GetSize = nullptr;
    GetDataFn GetData = nullptr;
    GetCountFn Mesh_GetNumVertices = nullptr;
    GetCountFn Mesh_GetNumFaces = nullptr;
    GetVerticesFn Mesh_GetVertices = nullptr;
    GetFacesFn Mesh_GetFaces = nullptr;

    bool loaded() const { return lib != nullptr; }
};

// The names under which the library exports its entry points, in the order of
// the members above. Windows keeps the decorated names of the original
// 32-bit build; elsewhere they are plain C names.
extern const char* const kADataEntryNames[6];

// Loads the library from the given file; false (and nothing held) when the
// file cannot be loaded or any entry point is missing. `missingEntry` tells
// which of the two happened.
bool LoadADataLibrary(const std::string& file, ADataLibrary* out, bool* missingEntry);
void FreeADataLibrary(ADataLibrary* lib);

// A solid colour the 3D window paints its background with.
struct SolidBrush {
    uint8_t r = 0, g = 0, b = 0;
};

// Values the fur scene reads when it starts.
struct FurStartValues {
    int layerTextureSize = 0;
    int hairDensity = 0;
    int numShells = 0;
    float furLength = 0.0f;
    int numLayerTextures = 0;
};

struct ShellState {
    std::string programFolder;  // with its trailing separator; the current directory after start-up
    std::string settingsFilePath;
    SolidBrush blackBrush;
    SolidBrush backgroundBrush;
    bool tachyraRunning = false;
    ADataLibrary adata;
    uint32_t physxVersion = 0;
    FurStartValues furStart;
    bool launcherShown = false;
};

extern ShellState gShell;

struct StartupOptionsRecord;
struct RunParametersBlock;
// Copies the run settings into the runner's block before a launcher or a test starts.
void CopyRunParameters(const StartupOptionsRecord& o, RunParametersBlock& run);

// Runs start-up, the chosen test or the launcher, and shut-down. Returns the
// process exit status.
int ArdentiumMain(const char* commandLine);
