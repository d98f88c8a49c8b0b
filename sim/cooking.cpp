#include "sim/cooking.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "core/event_log.h"

namespace sim {

std::string CookedCachePath(const std::string& folder, const char* meshName, const ClothMesh& mesh) {
    uint32_t sum = Checksum32(mesh.positions.data(), mesh.positions.size() * sizeof(float));
    sum = Checksum32(mesh.invMass.data(), mesh.invMass.size() * sizeof(float), sum);
    char name[160];
    std::snprintf(name, sizeof name, "%s_%dx%d_%08x.cooked", meshName, mesh.columns, mesh.rows, sum);
    std::filesystem::path p = std::filesystem::u8path(folder) / name;
    return p.u8string();
}

bool LoadOrCookCloth(const ClothMesh& mesh, const char* meshName, const std::string& cacheFolder,
                     CookedCloth* out, CookSource* source, std::string* why) {
    std::string path;
    if (!cacheFolder.empty()) {
        path = CookedCachePath(cacheFolder, meshName, mesh);
        UserStream in(path.c_str(), true);
        if (in.Ok()) {
            CookedCloth cached;
            std::string problem;
            if (ReadCooked(in, &cached, &problem) && ValidateCooked(cached, mesh, &problem)) {
                *out = std::move(cached);
                *source = CookSource::Cache;
                return true;
            }
            gEventLog.Write("Cooked cloth cache %s is damaged (%s); cooking it again.", path.c_str(), problem.c_str());
        }
    }
    if (!CookCloth(mesh, out, why)) return false;
    *source = CookSource::Cooked;
    if (!path.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(std::filesystem::u8path(cacheFolder), ec);
        // Written beside the final name and renamed, so a reader never sees half a file.
        std::string temp = path + ".tmp";
        UserStream file(temp.c_str(), false);
        WriteCooked(*out, file);
        bool written = file.Close();
        std::filesystem::rename(std::filesystem::u8path(temp), std::filesystem::u8path(path), ec);
        if (!written || ec) {
            std::filesystem::remove(std::filesystem::u8path(temp), ec);
            gEventLog.Write("Cooked cloth cache %s could not be written; the cloth is cooked at every start.",
                            path.c_str());
        }
    }
    return true;
}

}  // namespace sim
