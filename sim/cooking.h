// The cooked cloth cache: constraint data is cooked once per mesh and kept
// in a file; a cache file that is damaged, cut short, from another version
// or for another mesh is never trusted but cooked again and rewritten.
#pragma once

#include <string>

#include "sim/cloth.h"

namespace sim {

enum class CookSource { Cooked, Cache };

// The cache file of a mesh in a folder: its name carries the mesh's size and
// a checksum of its rest shape.
std::string CookedCachePath(const std::string& folder, const char* meshName, const ClothMesh& mesh);

// Cooks `mesh` or reads it from the cache folder ("" for no cache). Damaged
// cache files are logged and replaced. False with *why when the mesh cannot
// be cooked at all.
bool LoadOrCookCloth(const ClothMesh& mesh, const char* meshName, const std::string& cacheFolder,
                     CookedCloth* out, CookSource* source, std::string* why);

}  // namespace sim
