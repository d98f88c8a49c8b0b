#include "audio/al_api.h"

#include "platform/platform.h"

#ifdef ARD_LINKED_OPENAL
#include <AL/al.h>
#include <AL/alc.h>
#endif

namespace audio {
namespace {

const AlApi* gTestApi = nullptr;

#ifdef ARD_LINKED_OPENAL

const AlApi* RealApi(std::string*) {
    static const AlApi api = [] {
        AlApi a;
#define ARD_AL_LINK(ret, name, params) a.name = reinterpret_cast<decltype(a.name)>(&::name);
        ARD_AL_FUNCTIONS(ARD_AL_LINK)
#undef ARD_AL_LINK
        return a;
    }();
    return &api;
}

#else

constexpr const char* kOpenAlLibrary = "OpenAL32.dll";

// Loaded once; the library stays loaded to the end of the process, as the
// device it opened may be closed late in shut-down.
const AlApi* RealApi(std::string* why) {
    static std::string failure;
    static const AlApi* loaded = [] () -> const AlApi* {
        platform::LibHandle lib = platform::LoadLib(kOpenAlLibrary);
        if (!lib) {
            failure = std::string(kOpenAlLibrary) + " is not installed";
            return nullptr;
        }
        static AlApi a;
#define ARD_AL_LOAD(ret, name, params)                                          \
    a.name = reinterpret_cast<decltype(a.name)>(platform::LibSymbol(lib, #name)); \
    if (!a.name) {                                                              \
        failure = std::string(kOpenAlLibrary) + " has no " #name;               \
        platform::FreeLib(lib);                                                 \
        return nullptr;                                                         \
    }
        ARD_AL_FUNCTIONS(ARD_AL_LOAD)
#undef ARD_AL_LOAD
        return &a;
    }();
    if (!loaded && why) *why = failure;
    return loaded;
}

#endif

}  // namespace

const AlApi* AcquireAlApi(std::string* why) {
    if (gTestApi) return gTestApi;
    return RealApi(why);
}

void SetAlApiForTesting(const AlApi* api) { gTestApi = api; }

}  // namespace audio
