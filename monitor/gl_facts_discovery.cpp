// The probe's own OpenGL context as discovery sees it: made once at
// start-up, it gives the renderer and version texts, the limits and the
// capability list, the driver's video memory figure where it tells, and the
// display device itself where there is no PCI view of the display.
#include <cstring>

#include "monitor/gl_probe.h"
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"
#include "monitor/vendor_backend.h"

namespace ProbeGPU {

// The renderer text without the driver's decorations: "NVIDIA GeForce RTX
// 4090/PCIe/SSE2" and Mesa's "AMD Radeon RX 6800 XT (navi21, LLVM ...)".
std::string CleanRenderer(const std::string& r) {
    size_t cut = r.size();
    for (const char* tail : {"/PCIe", "/PCI", "/AGP", "/SSE", " ("}) {
        size_t p = r.find(tail);
        if (p != std::string::npos && p > 0 && p < cut) cut = p;
    }
    return r.substr(0, cut);
}

namespace {

void CopyText(char* dst, size_t size, const std::string& s) { CopyFixed(dst, size, s.c_str()); }

void AdoptRendererAsDisplayDevice(HardwareCaps& caps, const ProbeGPUnm::GlCaps& gl) {
    if (gl.renderer.empty()) return;
    if (!caps.displayDeviceFound) {
        // No PCI view of the display at all (a virtual machine, a software
        // renderer): the OpenGL renderer is the display device.
        DisplayDeviceRecord rec{"OpenGL", gl.renderer, "", ""};
        caps.adapters.Append(rec);
        caps.rowSources.push_back(RowSource());
        caps.displayRow = caps.adapters.count() - 1;
        caps.ChooseDisplayDevice(rec);
        return;
    }
    // A row named only generically (or by a database row several boards
    // share) takes the renderer's name when the renderer is that maker's.
    if (caps.adapterNamesGeneric && !caps.descriptionFromDatabase && caps.displayRow >= 0 &&
        PciVendorOfGlVendor(gl.vendor) == caps.ids.vendor) {
        std::string name = CleanRenderer(gl.renderer);
        if (!name.empty()) {
            CopyFixed(caps.m_display_device_string, sizeof caps.m_display_device_string, name.c_str());
            CopyFixed(caps.adapters.mutableRow(caps.displayRow).deviceString, 128, name.c_str());
        }
    }
}

bool Open(Root& root, const ContextRequest& r) {
    if (!root.window) return false;
    HardwareCaps& caps = root.caps;
    gProbeLog.Write("ProbeGPU::startup() - ProbeGPU_DummyW");
    ProbeGPUnm::GlCaps gl;
    bool ok;
    if (ContextFactory factory = ContextFactoryForTests()) {
        ok = factory(r.x, r.y, r.width, r.height, r.opt1, r.opt2, r.opt3, &gl);
    } else {
        ok = root.window->Create(r.x, r.y, r.width, r.height, r.opt1, r.opt2, r.opt3);
        if (ok) gl = root.window->caps();
        else gProbeLog.Write("ProbeGPU::startup() - ProbeGPU_DummyW failed: %s", root.window->failure().c_str());
    }
    if (!ok) return false;
    gProbeLog.Write("ProbeGPU::startup() - ProbeGPU_DummyW OK.");
    root.contextUsable = true;
    CopyText(gGlobals.gl_renderer, sizeof gGlobals.gl_renderer, gl.renderer);
    CopyText(gGlobals.gl_vendor, sizeof gGlobals.gl_vendor, gl.vendor);
    CopyText(gGlobals.gl_version_string, sizeof gGlobals.gl_version_string, gl.version);
    gGlobals.gl_major = gl.major;
    gGlobals.gl_minor = gl.minor;
    gGlobals.gl_max_texture_size = gl.maxTextureSize;
    gGlobals.gl_max_viewport_width = gl.maxViewportWidth;
    gGlobals.gl_max_viewport_height = gl.maxViewportHeight;
    gGlobals.gl_max_3d_texture_size = gl.max3DTextureSize;
    gGlobals.gl_max_texture_units = gl.maxTextureImageUnits;
    gGlobals.gl_max_samples = gl.maxSamples;
    gGlobals.gl_max_tess_level = gl.maxTessLevel;
    std::memcpy(caps.capabilities, gl.caps, sizeof caps.capabilities);
    // Kept for the scan's video memory fallback.
    root.liveObjects.push_back(root.window.get());
    gGlobals.video_memory_mb = gl.videoMemoryMB;
    gGlobals.vista = caps.osName.find("Vista") != std::string::npos;
    AdoptRendererAsDisplayDevice(caps, gl);
    return true;
}

// The driver's figure through OpenGL, last: every vendor figure beats it.
bool Memory(const Root&, int* mb) {
    if (gGlobals.video_memory_mb <= 0) return false;
    *mb = gGlobals.video_memory_mb;
    return true;
}

void Close(Root& root) {
    if (root.window) root.window->Destroy();
}

}  // namespace

extern const VendorBackend kGlFactsDiscovery = {
    /* name */ "GL",
    /* platforms */ kOnWindows | kOnLinux,
    /* stage */ DiscoveryStage::kContext,
    /* logStep */ nullptr,
    /* listAdapters */ nullptr,
    /* open */ &Open,
    /* driverFacts */ nullptr,
    /* listGpus */ nullptr,
    /* claimRow */ nullptr,
    /* videoMemoryMB */ &Memory,
    /* apiGpuCount */ nullptr,
    /* shaderCores */ nullptr,
    /* close */ &Close,
};

}  // namespace ProbeGPU
