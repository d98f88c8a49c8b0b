#include "scenes/fur/d3d_shaders.h"

#include <windows.h>
#include <d3dcompiler.h>

namespace d3d_shaders {

namespace {

// The assembler entry point has no declaration in the public headers.
typedef HRESULT(WINAPI* AssembleFn)(const void* data, SIZE_T size, const char* name, const D3D_SHADER_MACRO* defines,
                                    ID3DInclude* include, UINT flags, ID3DBlob** code, ID3DBlob** errors);

struct Library {
    HMODULE module = nullptr;
    pD3DCompile compile = nullptr;
    AssembleFn assemble = nullptr;
    Library() {
        module = LoadLibraryA("d3dcompiler_47.dll");
        if (!module) return;
        compile = reinterpret_cast<pD3DCompile>(reinterpret_cast<void*>(GetProcAddress(module, "D3DCompile")));
        assemble = reinterpret_cast<AssembleFn>(reinterpret_cast<void*>(GetProcAddress(module, "D3DAssemble")));
    }
};

const Library& Compiler() {
    static const Library library;  // kept for the life of the process
    return library;
}

bool Take(HRESULT hr, ID3DBlob* code, ID3DBlob* errors, std::vector<unsigned char>* out, std::string* error) {
    if (errors) {
        error->assign(static_cast<const char*>(errors->GetBufferPointer()), errors->GetBufferSize());
        while (!error->empty() && (error->back() == '\0' || error->back() == '\n' || error->back() == '\r'))
            error->pop_back();
        errors->Release();
    }
    if (FAILED(hr) || !code) {
        if (error->empty()) *error = "error 0x" + std::to_string(static_cast<unsigned long>(hr));
        if (code) code->Release();
        return false;
    }
    const unsigned char* p = static_cast<const unsigned char*>(code->GetBufferPointer());
    out->assign(p, p + code->GetBufferSize());
    code->Release();
    return true;
}

}  // namespace

bool Compile(const std::string& source, const char* entry, const char* target, std::vector<unsigned char>* code,
             std::string* error) {
    error->clear();
    if (!Compiler().compile) {
        *error = "d3dcompiler_47.dll (D3DCompile) not found";
        return false;
    }
    ID3DBlob* blob = nullptr;
    ID3DBlob* errors = nullptr;
    HRESULT hr = Compiler().compile(source.data(), source.size(), "fur", nullptr, nullptr, entry, target,
                                    D3DCOMPILE_OPTIMIZATION_LEVEL1, 0, &blob, &errors);
    if (!Take(hr, blob, errors, code, error)) {
        *error = std::string(entry) + ": " + *error;
        return false;
    }
    return true;
}

bool Assemble(const std::string& source, std::vector<unsigned char>* code, std::string* error) {
    error->clear();
    if (!Compiler().assemble) {
        *error = "d3dcompiler_47.dll (D3DAssemble) not found";
        return false;
    }
    ID3DBlob* blob = nullptr;
    ID3DBlob* errors = nullptr;
    HRESULT hr = Compiler().assemble(source.data(), source.size(), "fur", nullptr, nullptr, 0, &blob, &errors);
    return Take(hr, blob, errors, code, error);
}

}  // namespace d3d_shaders
