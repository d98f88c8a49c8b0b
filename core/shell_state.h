// Process-wide state that the application shell fills at start-up and the
// scenes read: the program folder, the mesh data library, start values.
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
