// The catalogue of tests and graphics APIs: which object a (test3d, api3d)
// pair runs, under which name, and which settings the test forces first.
#pragma once

struct StartupOptionsRecord;

// Graphics API identifiers, as stored in the settings and by each test object.
enum ApiId { kApiOpenGL2 = 2, kApiOpenGL3 = 3, kApiOpenGL4 = 4, kApiD3D9 = 9, kApiD3D10 = 10, kApiD3D11 = 11 };

// The classes the render thread can create.
// The test applications' scenes come last: each draws through the API of its
// generation.
enum class DemoClass { OpenGL2, OpenGL3, OpenGL4, D3D9, D3D10, D3D11, TestAppGL2, TestAppGL3, TestAppGL4 };

struct DemoChoice {
    DemoClass demoClass = DemoClass::OpenGL2;
    const char* displayName = "";
    bool amarkMode = false;       // the object runs as the OpenGL 4 benchmark
    bool forceFurryVxa = false;   // furry_object := 1
    bool forceAmarkSetup = false; // api3d := 4, preset flags, aa_mode "Off"
    bool gpuPhysx = false;        // enable_gpu_physx when forceAmarkSetup (GPU variant asks the monitor)
    bool gpuPhysxFromMonitor = false;
};

// The render thread's dispatch: the first matching row wins, test3d first.
// False for a test3d outside the table (no object; the run treats it as a
// failed start).
bool ChooseDemo(int test3d, int api3d, DemoChoice* out);

// Applies what the chosen test forces before its object starts.
void ApplyForcedSettings(const DemoChoice& choice, bool gpuPhysxAvailable, StartupOptionsRecord& o);

// Direct starts: identifiers that open the 3D window and its render thread.
bool StartsThrough3DWindow(int test3d);

// The GL test applications: identifier, display name, description ("%s" is
// the product name).
struct TestAppInfo {
    int id;
    const char* displayName;
    const char* description;
    const char* link;
};
extern const TestAppInfo kTestApps[];
extern const int kTestAppCount;
const TestAppInfo* FindTestApp(int test3d);
// Identifiers a direct start hands to a registered test application.
bool StartsAsTestApplication(int test3d);

// The numeric API code a demo class reports as its api_id.
int ApiIdOf(DemoClass c);
