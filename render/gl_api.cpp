#include "render/gl_api.h"

#include <string>

namespace gl {

#define ARD_GL_DEFINE(name, ret, params) name##Fn name = nullptr;
ARD_GL_FUNCTIONS(ARD_GL_DEFINE)
#undef ARD_GL_DEFINE

const char* LoadFunctions(ProcLookup lookup) {
    // One process, one set of entry points: every context the program makes
    // comes from the same driver.
    static std::string missing;
    missing.clear();
#define ARD_GL_LOAD(name, ret, params)                                            \
    name = reinterpret_cast<name##Fn>(lookup("gl" #name));                        \
    if (!name) {                                                                  \
        if (!missing.empty()) missing += ", ";                                    \
        missing += "gl" #name;                                                    \
    }
    ARD_GL_FUNCTIONS(ARD_GL_LOAD)
#undef ARD_GL_LOAD
    return missing.c_str();
}

std::string ComputeApi::Load(ProcLookup lookup) {
    std::string missing;
#define ARD_GL_LOAD(name, ret, params)                                            \
    name = reinterpret_cast<decltype(name)>(lookup("gl" #name));                  \
    if (!name) {                                                                  \
        if (!missing.empty()) missing += ", ";                                    \
        missing += "gl" #name;                                                    \
    }
    ARD_GL_COMPUTE_FUNCTIONS(ARD_GL_LOAD)
#undef ARD_GL_LOAD
    return missing;
}

}  // namespace gl
