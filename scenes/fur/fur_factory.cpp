#include "scenes/fur/fur_factory.h"

#include "core/event_log.h"
#include "scenes/fur/fur_gl.h"
#if defined(_WIN32)
#include "scenes/fur/fur_d3d11.h"
#include "scenes/fur/fur_d3d9.h"
#endif

std::unique_ptr<cLm4DDemo> CreateFurDemo(DemoClass demoClass) {
    switch (demoClass) {
        case DemoClass::OpenGL2: return std::make_unique<cLm4DDemo_OpenGL_2>();
        case DemoClass::OpenGL3: return std::make_unique<cLm4DDemo_OpenGL_3>();
        case DemoClass::OpenGL4: gEventLog.Write("OpenGL 4: the benchmark object is made by the test table, not the fur factory."); break;
#if defined(_WIN32)
        case DemoClass::D3D9: return std::make_unique<cLm4DDemo_D3D9>();
        case DemoClass::D3D10: return std::make_unique<cLm4DDemo_D3D10>();
        case DemoClass::D3D11: return std::make_unique<cLm4DDemo_D3D11>();
#else
        case DemoClass::D3D9: gEventLog.Write("Direct3D 9 is available in the Windows build only."); break;
        case DemoClass::D3D10: gEventLog.Write("Direct3D 10 is available in the Windows build only."); break;
        case DemoClass::D3D11: gEventLog.Write("Direct3D 11 is available in the Windows build only."); break;
#endif
        case DemoClass::TestAppGL2:
        case DemoClass::TestAppGL3:
        case DemoClass::TestAppGL4:
            gEventLog.Write("The test applications' scenes are made by the selected application, not the fur factory.");
            break;
    }
    return nullptr;
}
