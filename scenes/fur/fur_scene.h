// The fur scene as every graphics back-end sees it, before any API is
// involved: the fur parameters of each object, the dot-pattern textures the
// hairs are made of, the meshes, the camera, the sway, the lights, the
// order of the shells, and the rules and texts for images. The back-ends
// turn this into API objects and draw calls; nothing here needs a GPU.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "data/adata.h"
#include "render/math3d.h"
#include "render/mesh.h"

struct FurStartValues;

// ---------------------------------------------------------------- objects

// The `furry_object` setting's numbers.
enum FurryObject : int32_t {
    kFurryVxa = 1,
    kFurryTorus = 2,
    kFurryBox = 3,
    kFurrySphere = 4,
    kFurryHd6970 = 5,
};

// ------------------------------------------------------------ dot patterns

enum class DotSetKind {
    kGraded,   // for object numbers the table does not name
    kUniform,  // for the named objects and the benchmark
};

// A set of square RGBA8 dot-pattern textures, one per layer; texel (x, y)
// of a layer is at byte (y * size + x) * 4, row 0 first, the order a texture
// upload takes them in.
struct DotSet {
    DotSetKind kind = DotSetKind::kUniform;
    int32_t size = 0;
    int32_t hairDensity = 0;
    bool xtremeBurnIn = false;  // the uniform set's dot colour depends on it
    std::vector<std::vector<uint8_t>> layers;

    int32_t numLayers() const { return static_cast<int32_t>(layers.size()); }
    const uint8_t* Texel(int layer, int x, int y) const {
        return &layers[layer][(static_cast<size_t>(y) * size + x) * 4];
    }
};

// One draw of the C library's generator on the 0..32767 scale the dot
// placement is written for: rand() itself where RAND_MAX is 32767 (the
// Windows C library), and rand() scaled down where the library draws more
// bits (glibc), so the formulas keep their range on every platform while the
// sequence stays the platform's own.
int DotRand15();
// A dot's coordinate from one draw: truncate(r * size / 32768).
inline int DotCoordinate(int r15, int size) {
    return static_cast<int>(static_cast<int64_t>(r15) * size / 32768);
}

// The graded set: layer i of n, with f = 1 - i/n and g = i/n, is cleared to
// grey max(g, 0.1) with alpha 0, and then gets truncate(hairDensity * f)
// dots of grey truncate(g * 255) and alpha truncate(f * 255), placed by the
// C library's generator seeded with that dot count (x drawn before y, later
// dots over earlier ones). Inner layers carry many opaque dark dots, outer
// layers few faint light ones.
// The uniform set: every layer cleared to grey max(g, 0.2), alpha 0, and
// given hairDensity dots at the same places (the generator is seeded with
// hairDensity for every layer), of grey 150 with Xtreme burn-in and 240
// without, and alpha truncate((1 - g) * 255).
// Fractions of 255 are taken exactly (integer arithmetic), the grey floors
// are truncated like the rest: 0.1 -> 25, 0.2 -> 51.
// Both leave the C library's generator in whatever state the last draw left
// it. Empty sets for a non-positive layer count, a size outside 1..4096 or a
// negative dot count.
DotSet GenerateGradedDotSet(int32_t numLayers, int32_t size, int32_t hairDensity);
DotSet GenerateUniformDotSet(int32_t numLayers, int32_t size, int32_t hairDensity, bool xtremeBurnIn);

// ---------------------------------------------------------- fur parameters

struct FurParams {
    int32_t numShells = 120;
    float furLength = 12.0f;
    int32_t numLayerTextures = 12;
    int32_t layerTextureSize = 512;
    int32_t hairDensity = 200000;
    // The benchmark's fur stage and unknown objects keep whatever these held
    // before; a process that never set them starts from the soft blur the
    // named objects use.
    int32_t radialBlurSamples = 50;
    float radialBlurScaleMul = 0.9975f;
    const DotSet* layerTextures = nullptr;  // the set in use; owned by a DotSetStore
};

// The process-wide record the fur demo fills at initialisation. It starts
// with the values above; the shell sets the start values from its own
// start-up (ApplyFurStartValues) before the first run.
extern FurParams gFurParams;

// Copies the shell's fur start values (texture size, dot count, shells,
// length, layer textures) into the record; the blur values stay.
void ApplyFurStartValues(const FurStartValues& start, FurParams* params);

// The parameter table, first matching row wins: the benchmark's fur stage;
// Xtreme burn-in (HD6970 with the shorter fur); then each named object; any
// other number. Fields a row leaves unchanged (the blur of the benchmark
// stage and of unknown objects) come from `previous`. layerTextures is
// cleared: the dot set is attached by DotSetStore::Acquire.
FurParams SelectFurParams(int32_t furryObject, bool xtremeBurnIn, bool amarkFurStage,
                          const FurParams& previous = gFurParams);
// The table's last column: graded for unknown objects (without Xtreme
// burn-in and outside the benchmark), uniform for everything else.
DotSetKind SelectDotSet(int32_t furryObject, bool xtremeBurnIn, bool amarkFurStage);

// Holds the two dot sets, each generated at most once and kept for the life
// of the store. The first set generated fixes the texture size and dot
// count for both: a later set is generated with those, whatever the later
// parameters ask for. A set, once made, also keeps its layer count and
// colours; Acquire writes the set's size, dot count and layer count back
// into the parameters so that the shells share out exactly the textures that
// exist. Safe to call from any thread.
class DotSetStore {
public:
    const DotSet& Acquire(DotSetKind kind, bool xtremeBurnIn, FurParams* params);
    // The set of that kind, or nullptr when it was never generated.
    const DotSet* Find(DotSetKind kind) const;

private:
    mutable std::mutex mutex_;
    std::unique_ptr<DotSet> graded_;
    std::unique_ptr<DotSet> uniform_;
    bool fixed_ = false;
    int32_t fixedSize_ = 0;
    int32_t fixedDensity_ = 0;
};

// The process's store; its sets live until the process ends, across runs
// and graphics APIs.
DotSetStore& ProcessDotSets();

// ------------------------------------------------------------------ meshes

// The mesh data library's entry points the scene reads (function pointers,
// so tests can hand in arrays of their own).
struct AdataMeshSource {
    AdataGetNumVerticesFn numVertices = nullptr;
    AdataGetNumFacesFn numFaces = nullptr;
    AdataGetVerticesFn vertices = nullptr;
    AdataGetFacesFn faces = nullptr;
};

struct FurMeshes {
    Mesh fur;   // drawn as the shells
    Mesh skin;  // drawn once, opaque, under them
};

// The library's name of the object's model ("VXA", "HD6970"), else nullptr.
const char* AdataMeshName(int32_t furryObject);

// Builds both meshes of the object: the library's model for "VXA" and
// "HD6970" (the same data in both), torus (60, 30, 200) and (58, 30, 20)
// (ring and tube radius), spheres of radius 70 (50 x 50) and 69 (20 x 20),
// or the 90-unit box of 4 x 4 x 4 with generated normals. False, with both
// meshes empty, for an object number without a mesh or when the library's
// model is missing or broken; nothing is logged.
bool BuildFurMeshes(int32_t furryObject, const AdataMeshSource& adata, FurMeshes* out);

// ------------------------------------------------------------------ camera

constexpr float kFurNearPlane = 1.0f;
constexpr float kFurFarPlane = 10000.0f;

// width / height; 1.0 when the height is not positive or the quotient is
// not positive (a zero-width view).
float FurViewAspect(int width, int height);

struct FurCamera {
    float aspect = 1.0f;
    float fovYDegrees = 60.0f;
    m3d::Vec3 eye;
    m3d::Mat4 projection;
    m3d::Mat4 view;  // looks at the origin with +Y up
};

// "VXA" and "HD6970": 80 degrees from (0, 0, 150); other objects: 60 degrees
// from (0, 20, 140).
FurCamera MakeFurCamera(int32_t furryObject, int width, int height);

// ------------------------------------------------------------------- sway

struct SwayAngles {
    float a = 0.0f;  // degrees about X: the object nods
    float b = 0.0f;  // degrees about Y: the object turns left and right
};

// A = 15 sin t, B = 20 cos t, plus 90 on B for the torus, box and sphere
// (which turns the torus's hole towards the camera).
SwayAngles FurSwayAngles(int32_t furryObject, float elapsedSeconds);
// RotationX(A) * RotationY(B): turned about Y first, then nodded about the
// view's X axis; no translation, so the object sways about its centre.
m3d::Mat4 FurModelMatrix(int32_t furryObject, float elapsedSeconds);

// The matrix of the full-screen passes: maps the unit square onto the whole
// clip space (scale 2 on X and Y, -1 on Z, translation (-1, -1, 0)).
m3d::Mat4 FullScreenMatrix();
// The HUD's matrix: pixels of a view of this size, y down from its top,
// onto clip space.
m3d::Mat4 PixelViewMatrix(int width, int height);

// ---------------------------------------------------------------- lighting

struct FurLight {
    m3d::Vec3 position;  // world space; the vertex shader moves it into eye space
    float ambient[4];
    float diffuse[4];
};

extern const FurLight kFurLights[2];
extern const float kFurMaterialAmbient[4];
extern const float kFurMaterialDiffuse[4];
constexpr float kSkinShadeScale = 0.35f;    // the skin is drawn darker than the hairs
constexpr float kFurUvScaleAtCreation = 2.1f;
constexpr float kFurUvScale = 1.0f;         // set every frame
// The check frames of error detection: the scene at this animation time, in
// a target of the view's shape at most this many pixels a side.
constexpr float kCheckAnimationSeconds = 1.0f;
constexpr int kCheckFrameSide = 256;
constexpr float kDotTexCoordScale = 2.0f;   // the dot texture repeats twice as often
constexpr int kHairFadePower = 5;

// What the shaders compute for one fragment of colour `texColor` (rgb) with
// unit normal `normal` at `position`, the lights given in the same space:
// for each light, light ambient * material ambient * colour plus light
// diffuse * material diffuse * clamp(dot(N, L), 0, 1) * colour.
m3d::Vec3 ShadeTwoLights(const m3d::Vec3& normal, const m3d::Vec3& position, const m3d::Vec3& texColor,
                         const m3d::Vec3& light0Position, const m3d::Vec3& light1Position);
// (1 - layer)^5: the hairs fade out towards their tips.
float HairFade(float layer);

// ------------------------------------------------------------------ shells

struct FurShell {
    int index = 0;
    float layer = 0.0f;      // (i + 1) / numShells, the `Layer` uniform
    float furLength = 0.0f;  // layer * furLength, the `FurLength` uniform
    int texture = 0;         // truncate(numLayerTextures * i / numShells)
    bool bind = false;       // the texture differs from the previous shell's
};

// Shell i of the frame, innermost first (i from 0 to numShells - 1).
FurShell FurShellAt(const FurParams& params, int i);
std::vector<FurShell> FurShellSchedule(const FurParams& params);
// How many dot-texture binds one frame's shells make.
int FurTextureBindsPerFrame(const FurParams& params);

// ----------------------------------------------------------- custom images

enum class CustomImageKind { kFur, kBackground };

constexpr int kCustomImageMinSize = 256;
constexpr int kCustomImageMaxSize = 1024;

// What the size check of a custom image says: the messages to log, in
// order (first the width's, then the height's, each only when that side is
// outside 256..1024 inclusive; both sides share one text). The image is
// uploaded only when there is none.
struct CustomImageCheck {
    int messageCount = 0;
    const char* messages[2] = {nullptr, nullptr};
    bool accepted() const { return messageCount == 0; }
};
CustomImageCheck CheckCustomImageSize(CustomImageKind kind, int width, int height);

constexpr const char* kCustomFurSizeMessage =
    "Custom fur texture size must be in the range [256px to 1024px] for the width and height. Loading failed.";
constexpr const char* kCustomBkgSizeMessage =
    "Custom bkg texture size must be in the range [256px to 1024px] for the width and height. Loading failed.";

// ----------------------------------------------------- data files and logs

// Paths under the data folder ("%s" is the folder, with its separator).
constexpr const char* kFurBackgroundImagePath = "%sGraphics/bg.jpg";
constexpr const char* kFurColorImagePath = "%sGraphics/fur.jpg";
constexpr const char* kMakerLogoPath = "%sGraphics/logo_vxa.png";       // 160 x 43
constexpr const char* kProductLogoPath = "%sGraphics/logo_a.png";       // 512 x 128
constexpr const char* kOpenGlLogoPath = "%sGraphics/logo_opengl.png";   // 128 x 64
constexpr const char* kDirect3DLogoPath = "%sGraphics/logo_direct3d.png";  // 128 x 64
constexpr const char* kGpuLogoPath = "%sGraphics/logo_gpu.png";         // 150 x 100, the GPU panel

// The set-up's log lines, written by whoever loads the images.
constexpr const char* kLogTryingDefaultBackground = "Trying to load default background image...";
constexpr const char* kLogDefaultBackgroundLoaded = "Default background image loaded OK.";
constexpr const char* kLogBackgroundLoadFailed = "Background texture loading failed";
constexpr const char* kLogTryingDefaultFur = "Trying to load default fur image...";
constexpr const char* kLogDefaultFurLoaded = "Default fur image loaded OK.";
constexpr const char* kLogFurLoadFailed = "Fur texture loading failed";
constexpr const char* kLogMakerLogoFailed = "Texture 03 loading failed";
constexpr const char* kLogProductLogoFailed = "Texture Logo A loading failed";
constexpr const char* kLogOpenGlLogoFailed = "OpenGL logo loading failed";
constexpr const char* kLogGpuLogoFailed = "GPU logo loading failed";
constexpr const char* kLogDirect3DLogoFailed = "Direct3D logo loading failed";

// ------------------------------------------------------------- the set-up

struct FurSceneRequest {
    int32_t furryObject = kFurryVxa;
    bool xtremeBurnIn = false;
    bool amarkFurStage = false;  // the benchmark's fur stage: the object is forced to "VXA"
    int width = 0;
    int height = 0;
    AdataMeshSource adata;
};

struct FurScene {
    int32_t furryObject = kFurryVxa;
    int width = 0;
    int height = 0;
    FurParams params;
    FurCamera camera;
    FurMeshes meshes;
    bool hasMeshes = false;
};

// The demo's initialisation without the images: stores the view size,
// selects the parameters (from and into `record`), attaches the dot set
// from `store` (generating it the first time), sets the camera and builds
// the meshes.
FurScene SetUpFurScene(const FurSceneRequest& request, FurParams* record = &gFurParams,
                       DotSetStore* store = &ProcessDotSets());
