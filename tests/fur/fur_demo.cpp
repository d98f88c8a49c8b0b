#include "tests/fur/fur_demo.h"

#include <cstdio>

#include "app/event_log.h"
#include "app/settings.h"
#include "app/shell.h"
#include "monitor/monitor_shell.h"
#include "platform/platform.h"
#include "runner/run_facts.h"
#include "runner/run_stats.h"
#include "platform/compiler.h"
#include "runner/catalogue.h"

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
    if (!history_.Sample(sensors, platform::TickCountMs(), RunStats.elapsed_ms, period)) return;
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
    for (int i = 0; i < gpus; ++i) {
        const monitor::TemperatureSample& last = history_.history(i).back();
        temperatureLog_->WriteFurLine(i, last.celsius, last.seconds);
    }
}

void FurDemoBase::CloseTemperatureLog() {
    if (temperatureLog_) temperatureLog_->Close();
    temperatureLog_.reset();
}
