#include "core/shell_state.h"

ShellState gShell;

namespace {

template <typename Fn>
bool Resolve(platform::LibHandle lib, const char* name, Fn* out) {
    *out = reinterpret_cast<Fn>(platform::LibSymbol(lib, name));
    return *out != nullptr;
}

}  // namespace

bool LoadADataLibrary(const std::string& file, ADataLibrary* out, bool* missingEntry) {
    *out = ADataLibrary();
    if (missingEntry) *missingEntry = false;
    platform::LibHandle lib = platform::LoadLib(file.c_str());
    if (!lib) return false;
    ADataLibrary a;
    a.lib = lib;
    bool all = Resolve(lib, kAdataSymbolNames[kAdataGetSize], &a.GetSize) &&
               Resolve(lib, kAdataSymbolNames[kAdataGetData], &a.GetData) &&
               Resolve(lib, kAdataSymbolNames[kAdataMeshGetNumVertices], &a.Mesh_GetNumVertices) &&
               Resolve(lib, kAdataSymbolNames[kAdataMeshGetNumFaces], &a.Mesh_GetNumFaces) &&
               Resolve(lib, kAdataSymbolNames[kAdataMeshGetVertices], &a.Mesh_GetVertices) &&
               Resolve(lib, kAdataSymbolNames[kAdataMeshGetFaces], &a.Mesh_GetFaces);
    if (!all) {
        platform::FreeLib(lib);
        if (missingEntry) *missingEntry = true;
        return false;
    }
    *out = a;
    return true;
}

void FreeADataLibrary(ADataLibrary* lib) {
    if (lib->lib) platform::FreeLib(lib->lib);
    *lib = ADataLibrary();
}

