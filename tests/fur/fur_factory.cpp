#include "tests/fur/fur_factory.h"

#include "app/event_log.h"
#include "tests/fur/fur_gl.h"

std::unique_ptr<cLm4DDemo> CreateFurDemo(DemoClass demoClass) {
    switch (demoClass) {
        case DemoClass::OpenGL2: return std::make_unique<cLm4DDemo_OpenGL_2>();
        case DemoClass::OpenGL3: return std::make_unique<cLm4DDemo_OpenGL_3>();
        case DemoClass::OpenGL4: gEventLog.Write("OpenGL 4: this build has no OpenGL 4 benchmark yet."); break;
        case DemoClass::D3D9: gEventLog.Write("Direct3D 9: this build has no Direct3D 9 back-end yet."); break;
        case DemoClass::D3D10: gEventLog.Write("Direct3D 10: this build has no Direct3D 10 back-end yet."); break;
        case DemoClass::D3D11: gEventLog.Write("Direct3D 11: this build has no Direct3D 11 back-end yet."); break;
    }
    return nullptr;
}
