#include "scenes/fur/fur_demo.h"

#include <cstdio>

#include "core/event_log.h"
#include "core/settings.h"
#include "core/shell_state.h"
#include "monitor/monitor_shell.h"
#include "platform/platform.h"
#include "runner/run_facts.h"
#include "runner/run_stats.h"
#include "platform/compiler.h"
#include "runner/catalogue.h"
#include "scenes/fur/gpu_readings.h"

namespace {

std::string DataPath(const char* format) {
    char path[kPathSize];
    std::snprintf(path, sizeof path, format, FurDemoBase::DataFolder().c_str());
    return path;
}

bool LoadLogo(const char* format, const char* failure, Image* out) {
    if (LoadImageFile(DataPath(format), out)) return true;
    gEventLog.Write("%s", failure);
    return false;
}

}  // namespace

std::string FurDemoBase::DataFolder() { return gShell.programFolder + "data/"; }

bool FurDemoBase::InitScene(int width, int height) {
    FurSceneRequest req;
    req.furryObject = amark_mode ? kFurryVxa : StartupOptions.furry_object;
    req.xtremeBurnIn = StartupOptions.xtreme_burn_in || StartupOptions.xtreme_burn_in_active;
    req.amarkFurStage = amark_mode;
    req.width = width;
    req.height = height;
    req.adata.numVertices = gShell.adata.Mesh_GetNumVertices;
    req.adata.numFaces = gShell.adata.Mesh_GetNumFaces;
    req.adata.vertices = gShell.adata.Mesh_GetVertices;
    req.adata.faces = gShell.adata.Mesh_GetFaces;
    scene_ = SetUpFurScene(req);
    elapsed_ = 0.0f;

    gEventLog.Write("%s", kLogTryingDefaultBackground);
    if (LoadImageFile(DataPath(kFurBackgroundImagePath), &background_))
        gEventLog.Write("%s", kLogDefaultBackgroundLoaded);
    else
        gEventLog.Write("%s", kLogBackgroundLoadFailed);
    gEventLog.Write("%s", kLogTryingDefaultFur);
    if (LoadImageFile(DataPath(kFurColorImagePath), &furColor_))
        gEventLog.Write("%s", kLogDefaultFurLoaded);
    else
        gEventLog.Write("%s", kLogFurLoadFailed);

    LoadLogo(kMakerLogoPath, kLogMakerLogoFailed, &makerLogo_);
    LoadLogo(kProductLogoPath, kLogProductLogoFailed, &productLogo_);
    const bool openGl = api_id == kApiOpenGL2 || api_id == kApiOpenGL3 || api_id == kApiOpenGL4;
    LoadLogo(openGl ? kOpenGlLogoPath : kDirect3DLogoPath, openGl ? kLogOpenGlLogoFailed : kLogDirect3DLogoFailed,
             &apiLogo_);
    LoadLogo(kGpuLogoPath, kLogGpuLogoFailed, &gpuLogo_);

    if (!scene_.hasMeshes) {
        gEventLog.Write("Furry object %d: no mesh to draw.", static_cast<int>(scene_.furryObject));
        return false;
    }
    return true;
}

void FurDemoBase::Advance(float frameSeconds) {
    elapsed_ = gRunExtras.animationTime >= 0.0f ? gRunExtras.animationTime : elapsed_ + frameSeconds;
}

bool FurDemoBase::TakeCustomImage(CustomImageKind kind, Image* out) {
    StartupOptionsRecord& o = StartupOptions;
    bool& pending = kind == CustomImageKind::kFur ? o.fur_custom_diffuse_map_flag : o.fur_custom_bkg_map_flag;
    const char* path = kind == CustomImageKind::kFur ? o.fur_custom_diffuse_map : o.fur_custom_bkg_map;
    if (!AtomicLoad(pending)) return false;
    AtomicStore(pending, false);
    // A file that cannot be read is passed over without a word.
    if (!path[0] || !LoadImageFile(path, out)) return false;
    CustomImageCheck check = CheckCustomImageSize(kind, out->width, out->height);
    for (int i = 0; i < check.messageCount; ++i) gEventLog.Write("%s", check.messages[i]);
    return check.accepted();
}

void FurDemoBase::SampleTemperatures() {
    const monitor::GpuSensorArray* sensors = monitor::SensorArray();
    const unsigned period = monitor::MonitorPeriodMs();
    if (!sensors || period == 0) return;
    // The log's seconds count from the test's start on a clock of their own:
    // the run statistics' elapsed time restarts when a benchmark's warm-up ends.
    if (!history_.Sample(sensors, platform::TickCountMs(), period)) return;
    const int gpus = history_.gpuCount();
    if (gpus > 0 && !history_.history(0).empty()) {
        RunFacts.tempStart = history_.history(0).front().celsius;
        RunFacts.tempEnd = history_.history(0).back().celsius;
        RunFacts.tempMax = history_.highest();
    }
    if (!StartupOptions.log_temperature) return;
    if (!temperatureLog_) {
        std::string name = monitor::SensorGpuCount() > 0 ? sensors->Snapshot(0).name : std::string();
        temperatureLog_ = std::make_unique<monitor::TemperatureLog>(name.c_str());
    }
    for (int i : history_.sampledGpus()) {
        const monitor::TemperatureSample& last = history_.history(i).back();
        temperatureLog_->WriteFurLine(i, last.celsius, last.seconds);
    }
}

void FurDemoBase::CloseTemperatureLog() {
    if (temperatureLog_) temperatureLog_->Close();
    temperatureLog_.reset();
}

HudFrame FurDemoBase::CurrentHud(int width, int height) const {
    std::vector<GpuReading> gpus;
    const bool snapshot = CurrentGpuReadings(&gpus);
    for (size_t i = 0; i < gpus.size() && static_cast<int>(i) < history_.gpuCount(); ++i)
        gpus[i].hasHistory = !history_.history(static_cast<int>(i)).empty() &&
                             history_.history(static_cast<int>(i)).front().celsius > 0.0f;
    return BuildHud(CurrentHudInput(*this, width, height, monitor::AdapterText(), snapshot, gpus));
}

std::vector<FurDemoBase::GraphDraw> FurDemoBase::GraphDraws(const HudFrame& hud, int width, int height) {
    std::vector<GraphDraw> draws;
    for (int gpu : hud.graphs) {
        if (gpu >= history_.gpuCount()) continue;
        while (static_cast<int>(graphs_.size()) <= gpu) graphs_.emplace_back(kGraphPoints);
        monitor::GraphGeometry g =
            graphs_[static_cast<size_t>(gpu)].Compute(history_.history(gpu), gpu, static_cast<float>(width),
                                                      static_cast<float>(height),
                                                      AtomicLoad(StartupOptions.gpu_temp_graph.shown),
                                                      static_cast<float>(hud.graphOffsetPerGpu * gpu));
        if (g.empty) continue;
        // The graph's coordinates are centred on the view with y up.
        const float cx = width * 0.5f, cy = height * 0.5f;
        auto px = [&](float x) { return cx + x; };
        auto py = [&](float y) { return cy - y; };
        GraphDraw d;
        d.frame = {px(g.left), py(g.bottom), px(g.right), py(g.bottom), px(g.right), py(g.top), px(g.left), py(g.top)};
        for (int c = 0; c < 4; ++c) d.lineColor[c] = g.color[c];
        for (int c = 0; c < 3; ++c) d.frameColor[c] = g.color[c];
        d.frameColor[3] = 0.35f;
        d.drawLine = g.drawLine;
        if (g.drawLine) {
            for (size_t k = 0; k < g.xs.size() && k < g.ys.size(); ++k) d.line.insert(d.line.end(), {px(g.xs[k]), py(g.ys[k])});
            d.minimumMark = {px(g.left), py(g.minimumMarkY), px(g.right), py(g.minimumMarkY)};
        }
        d.labelX = static_cast<int>(g.labelX);
        d.labelBaselineY = height - static_cast<int>(g.labelY);
        d.labelColor = Color4{g.labelColor[0], g.labelColor[1], g.labelColor[2], g.labelColor[3]};
        d.label = g.label;
        draws.push_back(std::move(d));
    }
    return draws;
}
