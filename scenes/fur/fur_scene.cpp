#include "scenes/fur/fur_scene.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "core/shell_state.h"

// ------------------------------------------------------------ dot patterns

int DotRand15() {
#if RAND_MAX == 32767
    return std::rand();
#else
    return static_cast<int>(static_cast<int64_t>(std::rand()) * 32768 / (static_cast<int64_t>(RAND_MAX) + 1));
#endif
}

namespace {

constexpr int32_t kMaxDotTextureSize = 4096;

// Truncated k/n of 255, exactly.
uint8_t FractionOf255(int64_t k, int64_t n) { return static_cast<uint8_t>(k * 255 / n); }

uint32_t PackTexel(uint8_t grey, uint8_t alpha) {
    const uint8_t bytes[4] = {grey, grey, grey, alpha};
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

void FillLayer(std::vector<uint8_t>& layer, size_t texels, uint32_t texel) {
    layer.resize(texels * 4);
    uint8_t* p = layer.data();
    for (size_t i = 0; i < texels; ++i) std::memcpy(p + i * 4, &texel, 4);
}

bool ValidDotSetArguments(int32_t numLayers, int32_t size, int32_t hairDensity) {
    return numLayers > 0 && size > 0 && size <= kMaxDotTextureSize && hairDensity >= 0;
}

// The grey floors of the two sets, truncated like every other level.
constexpr uint8_t kGradedClearFloor = 25;   // 0.1 * 255
constexpr uint8_t kUniformClearFloor = 51;  // 0.2 * 255
constexpr uint8_t kUniformDotGrey = 240;
constexpr uint8_t kUniformDotGreyXtreme = 150;

}  // namespace

DotSet GenerateGradedDotSet(int32_t numLayers, int32_t size, int32_t hairDensity) {
    DotSet set;
    set.kind = DotSetKind::kGraded;
    set.size = size;
    set.hairDensity = hairDensity;
    if (!ValidDotSetArguments(numLayers, size, hairDensity)) return set;
    const size_t texels = static_cast<size_t>(size) * size;
    set.layers.resize(numLayers);
    for (int32_t i = 0; i < numLayers; ++i) {
        std::vector<uint8_t>& layer = set.layers[i];
        const uint8_t g = FractionOf255(i, numLayers);
        FillLayer(layer, texels, PackTexel(g > kGradedClearFloor ? g : kGradedClearFloor, 0));
        const uint32_t dot = PackTexel(g, FractionOf255(numLayers - i, numLayers));
        const int64_t n = static_cast<int64_t>(hairDensity) * (numLayers - i) / numLayers;
        std::srand(static_cast<unsigned>(n));
        uint8_t* p = layer.data();
        for (int64_t k = 0; k < n; ++k) {
            const int x = DotCoordinate(DotRand15(), size);
            const int y = DotCoordinate(DotRand15(), size);
            std::memcpy(p + (static_cast<size_t>(y) * size + x) * 4, &dot, 4);
        }
    }
    return set;
}

DotSet GenerateUniformDotSet(int32_t numLayers, int32_t size, int32_t hairDensity, bool xtremeBurnIn) {
    DotSet set;
    set.kind = DotSetKind::kUniform;
    set.size = size;
    set.hairDensity = hairDensity;
    set.xtremeBurnIn = xtremeBurnIn;
    if (!ValidDotSetArguments(numLayers, size, hairDensity)) return set;
    const size_t texels = static_cast<size_t>(size) * size;
    // Every layer is seeded alike, so every layer has its dots at the same
    // places, and all dots of a layer look the same: the places are drawn
    // once, and each layer only paints its own colours over them.
    std::vector<uint8_t> dotted(texels, 0);
    std::srand(static_cast<unsigned>(hairDensity));
    for (int32_t k = 0; k < hairDensity; ++k) {
        const int x = DotCoordinate(DotRand15(), size);
        const int y = DotCoordinate(DotRand15(), size);
        dotted[static_cast<size_t>(y) * size + x] = 1;
    }
    const uint8_t dotGrey = xtremeBurnIn ? kUniformDotGreyXtreme : kUniformDotGrey;
    set.layers.resize(numLayers);
    for (int32_t i = 0; i < numLayers; ++i) {
        const uint8_t g = FractionOf255(i, numLayers);
        const uint32_t clear = PackTexel(g > kUniformClearFloor ? g : kUniformClearFloor, 0);
        const uint32_t dot = PackTexel(dotGrey, FractionOf255(numLayers - i, numLayers));
        std::vector<uint8_t>& layer = set.layers[i];
        layer.resize(texels * 4);
        uint8_t* p = layer.data();
        for (size_t t = 0; t < texels; ++t) {
            const uint32_t texel = dotted[t] ? dot : clear;
            std::memcpy(p + t * 4, &texel, 4);
        }
    }
    return set;
}

// ---------------------------------------------------------- fur parameters

FurParams gFurParams;

void ApplyFurStartValues(const FurStartValues& start, FurParams* params) {
    params->layerTextureSize = start.layerTextureSize;
    params->hairDensity = start.hairDensity;
    params->numShells = start.numShells;
    params->furLength = start.furLength;
    params->numLayerTextures = start.numLayerTextures;
}

namespace {

void SetRow(FurParams* p, int32_t shells, float length, int32_t layers, int32_t size, int32_t density) {
    p->numShells = shells;
    p->furLength = length;
    p->numLayerTextures = layers;
    p->layerTextureSize = size;
    p->hairDensity = density;
}

void SetBlur(FurParams* p, int32_t samples, float scaleMul) {
    p->radialBlurSamples = samples;
    p->radialBlurScaleMul = scaleMul;
}

}  // namespace

FurParams SelectFurParams(int32_t furryObject, bool xtremeBurnIn, bool amarkFurStage, const FurParams& previous) {
    FurParams p = previous;
    p.layerTextures = nullptr;
    if (amarkFurStage) {
        SetRow(&p, 80, 4.0f, 10, 512, 200000);
        return p;
    }
    if (xtremeBurnIn) {
        SetRow(&p, 200, furryObject == kFurryHd6970 ? 8.0f : 12.0f, 20, 512, 150000);
        SetBlur(&p, 70, 0.998f);
        return p;
    }
    switch (furryObject) {
        case kFurryVxa:
            SetRow(&p, 100, 10.0f, 40, 512, 180000);
            break;
        case kFurryTorus:
            SetRow(&p, 100, 15.0f, 50, 512, 100000);
            break;
        case kFurryBox:
            SetRow(&p, 80, 10.0f, 20, 256, 50000);
            break;
        case kFurrySphere:
            SetRow(&p, 60, 10.0f, 20, 512, 150000);
            break;
        case kFurryHd6970:
            SetRow(&p, 80, 10.0f, 20, 512, 200000);
            break;
        default:
            SetRow(&p, 160, 20.0f, 12, 256, 30000);
            return p;
    }
    SetBlur(&p, 50, 0.9975f);
    return p;
}

DotSetKind SelectDotSet(int32_t furryObject, bool xtremeBurnIn, bool amarkFurStage) {
    if (amarkFurStage || xtremeBurnIn) return DotSetKind::kUniform;
    switch (furryObject) {
        case kFurryVxa:
        case kFurryTorus:
        case kFurryBox:
        case kFurrySphere:
        case kFurryHd6970:
            return DotSetKind::kUniform;
        default:
            return DotSetKind::kGraded;
    }
}

const DotSet& DotSetStore::Acquire(DotSetKind kind, bool xtremeBurnIn, FurParams* params) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::unique_ptr<DotSet>& slot = kind == DotSetKind::kGraded ? graded_ : uniform_;
    if (!slot) {
        if (!fixed_) {
            fixed_ = true;
            fixedSize_ = params->layerTextureSize;
            fixedDensity_ = params->hairDensity;
        }
        slot = std::make_unique<DotSet>(
            kind == DotSetKind::kGraded
                ? GenerateGradedDotSet(params->numLayerTextures, fixedSize_, fixedDensity_)
                : GenerateUniformDotSet(params->numLayerTextures, fixedSize_, fixedDensity_, xtremeBurnIn));
    }
    params->layerTextureSize = slot->size;
    params->hairDensity = slot->hairDensity;
    params->numLayerTextures = slot->numLayers();
    params->layerTextures = slot.get();
    return *slot;
}

const DotSet* DotSetStore::Find(DotSetKind kind) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return kind == DotSetKind::kGraded ? graded_.get() : uniform_.get();
}

DotSetStore& ProcessDotSets() {
    // Never destroyed: the textures outlive every run, and no exit-time
    // destructor can pull them from under a render thread still finishing.
    static DotSetStore* store = new DotSetStore;
    return *store;
}

// ------------------------------------------------------------------ meshes

const char* AdataMeshName(int32_t furryObject) {
    switch (furryObject) {
        case kFurryVxa:
            return kAdataMeshLettering;
        case kFurryHd6970:
            return kAdataMeshBoard;
        default:
            return nullptr;
    }
}

bool BuildFurMeshes(int32_t furryObject, const AdataMeshSource& adata, FurMeshes* out) {
    *out = FurMeshes{};
    switch (furryObject) {
        case kFurryVxa:
        case kFurryHd6970: {
            if (!adata.numVertices || !adata.numFaces || !adata.vertices || !adata.faces) return false;
            const char* name = AdataMeshName(furryObject);
            out->fur = MeshFromArrays(adata.vertices(name), adata.numVertices(name),
                                      reinterpret_cast<const uint32_t*>(adata.faces(name)), adata.numFaces(name));
            if (out->fur.empty()) return false;
            out->skin = out->fur;
            return true;
        }
        case kFurryTorus:
            out->fur = MakeTorus(60.0f, 30.0f, 200);
            out->skin = MakeTorus(58.0f, 30.0f, 20);
            return true;
        case kFurrySphere:
            out->fur = MakeSphere(70.0f, 50, 50);
            out->skin = MakeSphere(69.0f, 20, 20);
            return true;
        case kFurryBox:
            out->fur = MakeBox(90.0f, 90.0f, 90.0f, 4);
            GenerateNormals(out->fur);
            out->skin = out->fur;
            return true;
        default:
            return false;
    }
}

// ------------------------------------------------------------------ camera

float FurViewAspect(int width, int height) {
    if (height <= 0) return 1.0f;
    const float aspect = static_cast<float>(width) / static_cast<float>(height);
    return aspect > 0.0f ? aspect : 1.0f;
}

FurCamera MakeFurCamera(int32_t furryObject, int width, int height) {
    FurCamera c;
    c.aspect = FurViewAspect(width, height);
    const bool model = furryObject == kFurryVxa || furryObject == kFurryHd6970;
    c.fovYDegrees = model ? 80.0f : 60.0f;
    c.eye = model ? m3d::Vec3{0.0f, 0.0f, 150.0f} : m3d::Vec3{0.0f, 20.0f, 140.0f};
    c.projection = m3d::Perspective(c.fovYDegrees, c.aspect, kFurNearPlane, kFurFarPlane);
    c.view = m3d::LookAt(c.eye, m3d::Vec3{0.0f, 0.0f, 0.0f}, m3d::Vec3{0.0f, 1.0f, 0.0f});
    return c;
}

// -------------------------------------------------------------------- sway

SwayAngles FurSwayAngles(int32_t furryObject, float elapsedSeconds) {
    SwayAngles s;
    s.a = 15.0f * std::sin(elapsedSeconds);
    s.b = 20.0f * std::cos(elapsedSeconds);
    if (furryObject == kFurryTorus || furryObject == kFurryBox || furryObject == kFurrySphere) s.b += 90.0f;
    return s;
}

m3d::Mat4 FurModelMatrix(int32_t furryObject, float elapsedSeconds) {
    const SwayAngles s = FurSwayAngles(furryObject, elapsedSeconds);
    return m3d::RotationX(s.a) * m3d::RotationY(s.b);
}

m3d::Mat4 FullScreenMatrix() {
    return m3d::Translation(m3d::Vec3{-1.0f, -1.0f, 0.0f}) * m3d::Scaling(m3d::Vec3{2.0f, 2.0f, -1.0f});
}

m3d::Mat4 PixelViewMatrix(int width, int height) {
    m3d::Mat4 m;
    m.at(0, 0) = 2.0f / static_cast<float>(width > 0 ? width : 1);
    m.at(1, 1) = -2.0f / static_cast<float>(height > 0 ? height : 1);
    m.at(0, 3) = -1.0f;
    m.at(1, 3) = 1.0f;
    return m;
}

// ---------------------------------------------------------------- lighting

const FurLight kFurLights[2] = {
    {m3d::Vec3{100.0f, 20.0f, 50.0f}, {0.2f, 0.2f, 0.2f, 1.0f}, {0.9f, 0.0f, 0.0f, 1.0f}},
    {m3d::Vec3{-100.0f, -20.0f, 50.0f}, {0.2f, 0.2f, 0.2f, 1.0f}, {0.0f, 0.4f, 1.0f, 1.0f}},
};
const float kFurMaterialAmbient[4] = {0.8f, 0.8f, 0.8f, 1.0f};
const float kFurMaterialDiffuse[4] = {0.9f, 0.9f, 0.9f, 1.0f};

m3d::Vec3 ShadeTwoLights(const m3d::Vec3& normal, const m3d::Vec3& position, const m3d::Vec3& texColor,
                         const m3d::Vec3& light0Position, const m3d::Vec3& light1Position) {
    const m3d::Vec3 lightPositions[2] = {light0Position, light1Position};
    float rgb[3] = {0.0f, 0.0f, 0.0f};
    const float tex[3] = {texColor.x, texColor.y, texColor.z};
    for (int l = 0; l < 2; ++l) {
        const m3d::Vec3 toLight = m3d::Normalize(lightPositions[l] - position);
        float ndl = m3d::Dot(normal, toLight);
        ndl = ndl < 0.0f ? 0.0f : ndl > 1.0f ? 1.0f : ndl;
        for (int c = 0; c < 3; ++c) {
            const float ambient = kFurLights[l].ambient[c] * kFurMaterialAmbient[c];
            const float diffuse = kFurLights[l].diffuse[c] * kFurMaterialDiffuse[c] * ndl;
            rgb[c] += (ambient + diffuse) * tex[c];
        }
    }
    return {rgb[0], rgb[1], rgb[2]};
}

float HairFade(float layer) {
    float k = 1.0f - layer;
    k = k < 0.0f ? 0.0f : k > 1.0f ? 1.0f : k;
    float r = 1.0f;
    for (int i = 0; i < kHairFadePower; ++i) r *= k;
    return r;
}

// ------------------------------------------------------------------ shells

namespace {

int ShellTexture(const FurParams& p, int i) {
    return static_cast<int>(static_cast<int64_t>(p.numLayerTextures) * i / p.numShells);
}

}  // namespace

FurShell FurShellAt(const FurParams& params, int i) {
    FurShell s;
    if (params.numShells <= 0 || i < 0 || i >= params.numShells) return s;
    s.index = i;
    s.layer = static_cast<float>(i + 1) / static_cast<float>(params.numShells);
    s.furLength = s.layer * params.furLength;
    s.texture = ShellTexture(params, i);
    s.bind = i == 0 || s.texture != ShellTexture(params, i - 1);
    return s;
}

std::vector<FurShell> FurShellSchedule(const FurParams& params) {
    std::vector<FurShell> shells;
    for (int i = 0; i < params.numShells; ++i) shells.push_back(FurShellAt(params, i));
    return shells;
}

int FurTextureBindsPerFrame(const FurParams& params) {
    int binds = 0;
    for (int i = 0; i < params.numShells; ++i) binds += FurShellAt(params, i).bind ? 1 : 0;
    return binds;
}

// ----------------------------------------------------------- custom images

CustomImageCheck CheckCustomImageSize(CustomImageKind kind, int width, int height) {
    const char* text = kind == CustomImageKind::kFur ? kCustomFurSizeMessage : kCustomBkgSizeMessage;
    CustomImageCheck check;
    if (width < kCustomImageMinSize || width > kCustomImageMaxSize) check.messages[check.messageCount++] = text;
    if (height < kCustomImageMinSize || height > kCustomImageMaxSize) check.messages[check.messageCount++] = text;
    return check;
}

// ------------------------------------------------------------- the set-up

FurScene SetUpFurScene(const FurSceneRequest& request, FurParams* record, DotSetStore* store) {
    FurScene scene;
    scene.furryObject = request.amarkFurStage ? kFurryVxa : request.furryObject;
    scene.width = request.width;
    scene.height = request.height;
    *record = SelectFurParams(request.furryObject, request.xtremeBurnIn, request.amarkFurStage, *record);
    store->Acquire(SelectDotSet(request.furryObject, request.xtremeBurnIn, request.amarkFurStage),
                   request.xtremeBurnIn, record);
    scene.params = *record;
    scene.camera = MakeFurCamera(scene.furryObject, request.width, request.height);
    scene.hasMeshes = BuildFurMeshes(scene.furryObject, request.adata, &scene.meshes);
    return scene;
}
