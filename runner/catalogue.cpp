#include "runner/catalogue.h"

#include "core/settings.h"

namespace {

struct Row {
    int test3d;
    int api3d;  // -1: any
    DemoChoice choice;
};

DemoChoice Make(DemoClass c, const char* name) {
    DemoChoice d;
    d.demoClass = c;
    d.displayName = name;
    return d;
}

DemoChoice Furry(DemoClass c, const char* name) {
    DemoChoice d = Make(c, name);
    d.forceFurryVxa = true;
    return d;
}

DemoChoice AMark(const char* name, bool gpu) {
    DemoChoice d = Make(DemoClass::OpenGL4, name);
    d.amarkMode = true;
    d.forceAmarkSetup = true;
    d.gpuPhysxFromMonitor = gpu;
    return d;
}

DemoChoice AMarkByApi() {
    // The OpenGL 4 object chosen through test 0 keeps this name on purpose:
    // result tables of earlier versions are keyed by it.
    DemoChoice d = Make(DemoClass::OpenGL4, "AMark GL2");
    d.amarkMode = true;
    return d;
}

const Row kRows[] = {
    {0, 2, Make(DemoClass::OpenGL2, "Fur GL2")},
    {0, 3, Make(DemoClass::OpenGL3, "Fur GL3")},
    {0, 4, AMarkByApi()},
    {0, 9, Make(DemoClass::D3D9, "Fur D3D9")},
    {0, 10, Make(DemoClass::D3D10, "Fur D3D10")},
    {0, 11, Make(DemoClass::D3D11, "Fur D3D11")},
    {0, -1, Make(DemoClass::OpenGL2, "Fur GL2")},
    {2003, -1, Furry(DemoClass::OpenGL2, "Furry VXA GL2")},
    {2102, -1, Furry(DemoClass::OpenGL3, "Furry VXA GL3")},
    {2006, -1, Furry(DemoClass::D3D9, "Furry VXA D3D9")},
    {2010, -1, Furry(DemoClass::D3D10, "Furry VXA D3D10")},
    {2015, -1, Furry(DemoClass::D3D11, "Furry VXA D3D11")},
    {2205, -1, AMark("AMark GL4 GPU PhysX", true)},
    {2206, -1, AMark("AMark GL4 CPU PhysX", false)},
    // The test applications, once one is selected, draw on the same thread.
    {2001, -1, Make(DemoClass::TestAppGL2, "Triangle of Death (GL2)")},
    {2002, -1, Make(DemoClass::TestAppGL2, "Wavy Plane (GL2)")},
    {2101, -1, Make(DemoClass::TestAppGL3, "Fractal Flame (GL3)")},
    {2201, -1, Make(DemoClass::TestAppGL4, "GF OC Test (GL4)")},
    {2202, -1, Make(DemoClass::TestAppGL4, "Tessy Spheres on Plane (GL4)")},
    {2203, -1, Make(DemoClass::TestAppGL4, "Tessy Spheres on Plane v2 (GL4)")},
    {2204, -1, Make(DemoClass::TestAppGL4, "Furry and Tessy Test (GL4)")},
};

}  // namespace

bool ChooseDemo(int test3d, int api3d, DemoChoice* out) {
    for (const Row& r : kRows) {
        if (r.test3d != test3d) continue;
        if (r.api3d != -1 && r.api3d != api3d) continue;
        *out = r.choice;
        return true;
    }
    return false;
}

void ApplyForcedSettings(const DemoChoice& choice, bool gpuPhysxAvailable, StartupOptionsRecord& o) {
    if (choice.forceFurryVxa) o.furry_object = 1;
    if (choice.forceAmarkSetup) {
        o.api3d = kApiOpenGL4;
        o.enable_gpu_physx = choice.gpuPhysxFromMonitor && gpuPhysxAvailable;
        // The launcher's presets 4 and 5 give these two flags.
        o.reserved_benchmark_flags[0] = true;
        o.reserved_benchmark_flags[1] = false;
        CopyText(o.aa_mode, sizeof o.aa_mode, "Off");
    }
}

bool StartsThrough3DWindow(int test3d) {
    switch (test3d) {
        case 2003: case 2006: case 2010: case 2015: case 2102: case 2205: case 2206: return true;
        default: return false;
    }
}

const TestAppInfo kTestApps[] = {
    {2001, "Triangle of Death (GL2)", "%s: this OpenGL 2 test draws a simple triangle. Online score: N.A.",
     "https://ardentium.example/tests/2001"},
    {2002, "Wavy Plane (GL2)",
     "%s: this OpenGL 2 test renders a wavy surface made up of millions faces and vertices. It requires a lot of "
     "vertex processing power. Online score: available.",
     "https://ardentium.example/tests/2002"},
    {2101, "Fractal Flame (GL3)",
     "%s: this OpenGL 3 test renders a fractal flame made up of millions of point-sprite particles. Online score: "
     "available.",
     "https://ardentium.example/tests/2101"},
    {2201, "GF OC Test (GL4)",
     "%s: this OpenGL 4 test renders a highly tessellated sphere. You can quickly test your OC settings on GeForce "
     "(Fermi and Kepler): this test fails when OC settings are too high. Online score: N.A.",
     "https://ardentium.example/tests/2201"},
    {2202, "Tessy Spheres on Plane (GL4)",
     "%s: this OpenGL 4 test renders tessellated spheres on a plane with soft shadows. Requires a lot of "
     "tessellation processing power. Online score: N.A.",
     "https://ardentium.example/tests/2202"},
    {2203, "Tessy Spheres on Plane v2 (GL4)",
     "%s: this OpenGL 4 test renders tessellated spheres on a tessellated plane with soft shadows. Requires a lot "
     "of tessellation processing power. Online score: available.",
     "https://ardentium.example/tests/2203"},
    {2204, "Furry and Tessy Test (GL4)",
     "%s: this OpenGL 4 test renders a furry and tessellated object. Requires a lot of GPU processing power. Online "
     "score: N.A.",
     "https://ardentium.example/tests/2204"},
};
const int kTestAppCount = static_cast<int>(sizeof kTestApps / sizeof kTestApps[0]);

const TestAppInfo* FindTestApp(int test3d) {
    for (const TestAppInfo& a : kTestApps)
        if (a.id == test3d) return &a;
    return nullptr;
}

bool StartsAsTestApplication(int test3d) { return test3d != 2001 && FindTestApp(test3d) != nullptr; }

int ApiIdOf(DemoClass c) {
    switch (c) {
        case DemoClass::OpenGL2: return kApiOpenGL2;
        case DemoClass::OpenGL3: return kApiOpenGL3;
        case DemoClass::OpenGL4: return kApiOpenGL4;
        case DemoClass::D3D9: return kApiD3D9;
        case DemoClass::D3D10: return kApiD3D10;
        case DemoClass::D3D11: return kApiD3D11;
        case DemoClass::TestAppGL2: return kApiOpenGL2;
        case DemoClass::TestAppGL3: return kApiOpenGL3;
        case DemoClass::TestAppGL4: return kApiOpenGL4;
    }
    return kApiOpenGL2;
}
