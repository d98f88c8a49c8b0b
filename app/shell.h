// Process-wide state owned by the application shell, and the start-up and
// shut-down sequence that runs the life of the program on the main thread.
#pragma once

#include <cstdint>
#include <string>

#include "data/adata.h"
#include "platform/platform.h"

// The mesh data library and its six entry points.
struct ADataLibrary {
    platform::LibHandle lib = nullptr;
    AdataGetSizeFn GetSize = nullptr;
    AdataGetDataFn GetData = nullptr;
    AdataGetNumVerticesFn Mesh_GetNumVertices = nullptr;
    AdataGetNumFacesFn Mesh_GetNumFaces = nullptr;
    AdataGetVerticesFn Mesh_GetVertices = nullptr;
    AdataGetFacesFn Mesh_GetFaces = nullptr;

    bool loaded() const { return lib != nullptr; }
};

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
