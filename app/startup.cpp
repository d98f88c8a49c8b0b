#include <cstdint>
#include <cstring>

#include "core/boxes.h"
#include "core/event_log.h"
#include "core/settings.h"
#include "core/settings_file.h"
#include "core/shell_state.h"
#include "app/run_report.h"
#include "app/startup.h"
#include "core/run_outcome.h"
#include "monitor/gpu_listing.h"
#include "monitor/monitor_shell.h"
#include "monitor/probe_gpu.h"
#include "platform/gpu_choice.h"
#include "platform/platform.h"
#include "runner/catalogue.h"
#include "runner/run3d.h"
#include "scenes/amark/amark_gl4.h"
#include "scenes/fur/fur_factory.h"
#include "scenes/glapps/test_app.h"
#if ARD_HAVE_LAUNCHER
#include "launcher/launcher.h"
#endif



namespace {

// The test table's objects: the OpenGL 4 class is the benchmark, every other
// class a fur back-end.
std::unique_ptr<cLm4DDemo> CreateTestObject(DemoClass demoClass) {
    if (demoClass == DemoClass::OpenGL4) return std::make_unique<cLm4DDemo_OpenGL_4>();
    return CreateFurDemo(demoClass);
}

// How often the monitor thread reads the sensors, and so how often the
// temperature history and log take a sample.
constexpr unsigned kMonitorPeriodMs = 1000;

void LogDisplayModes() {
    // The enumeration repeats the last mode read for the first index that
    // fails; scripts that parse the log expect that closing line.
    if (!platform::HasDisplay()) {
        gEventLog.Write("Display modes: none (no display).");
        return;
    }
    platform::DisplayMode mode;
    for (int i = 0;; ++i) {
        bool ok = platform::EnumDisplayMode(i, &mode);
        gEventLog.Write("Display modes: %dx%d (%dbpp) @ %dHz", mode.width, mode.height, mode.bitsPerPixel, mode.frequency);
        if (!ok) break;
    }
}

// Runs the launcher started; a launcher session without one has no scores row.
int gLauncherRuns = 0;

void ShutDown() {
    if (gShell.launcherShown) WriteStartupOptionsFile(gShell.settingsFilePath.c_str());
    gTestApps.Clear();
    // A render thread the kill sequence left finishing its last frame ends
    // within that frame; the libraries it draws with outlive it.
    JoinFinishingRenderThread();
    FreeADataLibrary(&gShell.adata);
    monitor::StopMonitorThread();
    monitor::FreeSensorArray();
    monitor::MonitorShutdown();
    platform::ReleaseDisplay();
    const bool ranSomething = !gShell.launcherShown || gLauncherRuns > 0;
    if (RunParameters.run_mode == 1 && StartupOptions.log_score && ranSomething) WriteScoresRow();
    gEventLog.Write("Exit from %s.", kProductTitle);
}

// A start that cannot happen goes into the event log and the session's exit
// code. (From the launcher, its box shows the reason as well.)
void LogCouldNotStart(const std::string& text) {
    gEventLog.Write("%s", text.c_str());
    NoteCouldNotStart(text);
}

// Started directly, it is told on standard error too: a script's user reads
// the terminal first.
void TellCouldNotStart(const std::string& text) {
    LogCouldNotStart(text);
    platform::WriteStandardError(text + "\n");
}

// /gpu=N: the N-th GPU of the inventory, numbered as /list_gpus shows them.
// An index the machine does not have starts nothing.
bool ChooseGpu(int index) {
    const int count = ProbeGPU::getGpuCount();
    if (index > count) {
        char text[200];
        std::snprintf(text, sizeof text, "GPU %d does not exist: this machine has %d GPU(s), numbered 1 to %d by /list_gpus.",
                      index, count, count);
        TellCouldNotStart(text);
        return false;
    }
    platform::GpuChoice choice;
    choice.index = index;
    const ProbeGPU::GpuSlot* slot = ProbeGPU::getGpu(index - 1);
    choice.name = slot ? slot->name : std::string(ProbeGPU::getGpuName());
    if (slot && slot->pciVendor >= 0 && slot->pciDevice >= 0) {
        choice.pciVendor = slot->pciVendor;
        choice.pciDevice = slot->pciDevice;
        for (int i = 0; i < index - 1; ++i) {
            const ProbeGPU::GpuSlot* s = ProbeGPU::getGpu(i);
            if (s && s->pciVendor == slot->pciVendor && s->pciDevice == slot->pciDevice) ++choice.sameBefore;
        }
    }
    platform::SetGpuChoice(choice);
    gEventLog.Write("GPU %d chosen for the test: %s.", index, choice.name.c_str());
    return true;
}

Run3DServices RunServices() {
    Run3DServices services;
    services.createDemo = CreateTestObject;
    services.firstGpuTemperature = [](double* celsius) {
        if (!monitor::GpuTemperatureSourcePresent()) return false;
        *celsius = monitor::FirstGpuTemperature();
        return true;
    };
    services.gpuPhysxAvailable = [] { return monitor::GpuPhysXAvailable(); };
    services.runEnded = ReportRunEnded;
    services.readGpuLog = ReadGpuLogReadings;
    return services;
}

void StartDirectly() {
    const int test = StartupOptions.test3d;
    // Without a display there is nothing to open a window on.
    const bool headless = gRunExtras.headless || !platform::HasDisplay();
    if (StartsThrough3DWindow(test)) {
        Run3DServices services = RunServices();
        BeginRunReport();
        if (!Start3DRun(headless ? DisplayKind::Headless : DisplayKind::Window, services)) {
            TellCouldNotStart("The 3D window could not be created: no test was started.");
            return;
        }
    } else if (StartsAsTestApplication(test)) {
        cVXA_3DTestApp* app = gTestApps.Select(test);
        if (!app) {
            TellCouldNotStart(std::string(FindTestApp(test)->displayName) +
                              ": no registered test application could be selected: nothing was started.");
            return;
        }
        gEventLog.Write("Test application selected: %s (%d).", app->displayName, app->id);
        if (RunParameters.run_mode == 1) {
            ForceBenchmarkMode(StartupOptions, RunParameters);
            gEventLog.Write("Test application benchmark: %s, %u ms (settings: %s, %u ms).",
                            RunParameters.time_based ? "time-based" : "frame-based", RunParameters.max_time,
                            StartupOptions.time_based_benchmark ? "time-based" : "frame-based", StartupOptions.max_time);
        }
        BeginRunReport();
        if (!app->StartRenderThread(headless ? DisplayKind::Headless : DisplayKind::Window, RunServices())) {
            TellCouldNotStart("The 3D window could not be created: no test was started.");
            return;
        }
    } else if (FindTestApp(test)) {
        TellCouldNotStart(std::string(FindTestApp(test)->displayName) +
                          " starts from the launcher only: nothing was started.");
        if (headless) return;
    } else {
        char text[160];
        std::snprintf(text, sizeof text, "No test has the identifier %d: nothing was started (see /? for the tests).",
                      test);
        TellCouldNotStart(text);
        // Any other identifier starts nothing, and with a display the
        // program waits for the user (or a stop signal) as it always has.
        // Without one there is no user to wait for.
        if (headless) return;
    }
    Run3DMessageLoop();
}

#if ARD_HAVE_LAUNCHER
// The tests whose objects this build has: the fur test through OpenGL 2 and
// 3 and the OpenGL 4 benchmark everywhere, and the fur test through Direct3D
// in the Windows build.
bool BuildCanRun(int test3d, int api3d) {
    DemoChoice choice;
    if (!ChooseDemo(test3d, api3d, &choice)) return false;
    switch (choice.demoClass) {
        case DemoClass::OpenGL2:
        case DemoClass::OpenGL3:
        case DemoClass::OpenGL4:
        case DemoClass::TestAppGL2:
        case DemoClass::TestAppGL3:
        case DemoClass::TestAppGL4: return true;
#if defined(_WIN32)
        case DemoClass::D3D9:
        case DemoClass::D3D10:
        case DemoClass::D3D11: return true;
#endif
        default: return false;
    }
}

// One run started from the launcher: the settings the launcher edited go to
// the runner, and the run's window is served until it closes.
bool RunFromLauncher() {
    CopyRunParameters(StartupOptions, RunParameters);
    ++gLauncherRuns;
    const DisplayKind kind = gRunExtras.headless ? DisplayKind::Headless : DisplayKind::Window;
    // A test application is selected for its run and let go after it, so the
    // launcher can start the next one.
    if (FindTestApp(StartupOptions.test3d)) {
        cVXA_3DTestApp* app = gTestApps.Select(StartupOptions.test3d);
        if (!app) {
            LogCouldNotStart("No registered test application could be selected: no test was started.");
            return false;
        }
        gEventLog.Write("Test application selected: %s (%d).", app->displayName, app->id);
        if (RunParameters.run_mode == 1) ForceBenchmarkMode(StartupOptions, RunParameters);
        BeginRunReport();
        const bool started = app->StartRenderThread(kind, RunServices());
        if (started) Run3DMessageLoop();
        else LogCouldNotStart("The 3D window could not be created: no test was started.");
        gTestApps.Unselect();
        return started;
    }
    BeginRunReport();
    if (!Start3DRun(kind, RunServices())) {
        LogCouldNotStart("The 3D window could not be created: no test was started.");
        return false;
    }
    Run3DMessageLoop();
    return true;
}

void ShowLauncher() {
    // The launcher needs a display; a script without one is told how to run
    // a test directly.
    if (!platform::HasDisplay()) {
        TellCouldNotStart("The launcher needs a display and there is none: start a test with /display_gui=0 /test3d=ID.");
        return;
    }
    LauncherHooks hooks;
    hooks.run = RunFromLauncher;
    hooks.available = BuildCanRun;
    hooks.resultsContext = CollectResultsContext;
    std::string error;
    if (!RunLauncher(hooks, &error))
        TellCouldNotStart("The launcher could not open (" + error + "): start a test with /display_gui=0 /test3d=ID.");
}
#endif

}  // namespace

void CopyRunParameters(const StartupOptionsRecord& o, RunParametersBlock& run) {
    run.fullscreen = o.fullscreen != 0 ? 1 : 0;
    run.run_mode = o.run_mode;
    run.width = o.width;
    run.height = o.height;
    run.max_time = o.max_time;
    run.max_frames = o.max_frames;
    run.time_based = o.time_based_benchmark ? 1 : 0;
    // A run needs an end: without a frame count it is timed, and a timed run
    // without a time lasts a minute.
    if (run.max_frames == 0) run.time_based = 1;
    if (run.time_based == 1 && run.max_time == 0) run.max_time = 60000;
}

int ArdentiumMain(const char* commandLine) {
    platform::RememberUiThread();
    platform::InstallStopRequestHandlers();
    platform::MakeProcessDpiAware();
    platform::TuneMemoryAllocator();
    platform::InitCommonControls();

    gEventLog.Write("%s DX11 is starting up.", kProductTitle);
    gEventLog.Write("Build: %d.%d.%d [%s @ %s]", kVersionMajor, kVersionMinor, kVersionPatch, __DATE__, __TIME__);

    platform::SystemInfo si = platform::GetSystemInfo();
    gEventLog.Write("CPU Arch: %i", si.processorArchitecture);
    gEventLog.Write("CPU Level: %i", si.processorLevel);
    gEventLog.Write("# of CPU processors: %u", si.numberOfProcessors);

    platform::OsVersion os = platform::GetOsVersion();
    gEventLog.Write("%s Build: %u - %s Ver: %u.%u", os.family, os.build, os.family, os.major, os.minor);

    // Paths the user gives on the command line are meant from where the
    // program was started, before it moves to its own folder.
    const std::string startFolder = platform::CurrentDir();
    gShell.programFolder = platform::FolderOf(platform::ExecutablePath());
    platform::SetCurrentDir(gShell.programFolder);

    InitStartupOptions();
    gShell.settingsFilePath = gShell.programFolder + kSettingsFileName;
    ReadStartupOptionsFile(gShell.settingsFilePath.c_str());
    ParseCommandLine(commandLine);
    gRunExtras = ParseRunExtras(commandLine);
    if (!gRunExtras.screenshotPath.empty())
        gRunExtras.screenshotPath = platform::ResolvePath(startFolder, gRunExtras.screenshotPath);
    if (!gRunExtras.resultsJsonPath.empty())
        gRunExtras.resultsJsonPath = platform::ResolvePath(startFolder, gRunExtras.resultsJsonPath);
    if (!gRunExtras.logFramesPath.empty())
        gRunExtras.logFramesPath = platform::ResolvePath(startFolder, gRunExtras.logFramesPath);
    if (!gRunExtras.launcherStatePath.empty())
        gRunExtras.launcherStatePath = platform::ResolvePath(startFolder, gRunExtras.launcherStatePath);

    // Diagnostics for scripted users: nothing is started and nothing written.
    if (WantsUsage(commandLine)) {
        platform::WriteConsole(UsageText());
        return 0;
    }
    if (commandLine && std::strstr(commandLine, kPrintSettingsSwitch)) {
        platform::WriteConsole(FormatSettings(StartupOptions));
        return 0;
    }

    gShell.tachyraRunning = platform::SharedMemoryExists("VTHMSharedMemory");
    gEventLog.Write(gShell.tachyraRunning ? "VXA Tachyra is running..." : "VXA Tachyra not found.");

    gShell.blackBrush = SolidBrush{0, 0, 0};
    gShell.backgroundBrush = SolidBrush{5, 9, 17};
    gShell.furStart = FurStartValues{512, 200000, 120, 12.0f, StartupOptions.furry_object == 1 ? 18 : 12};

    if (StartupOptions.display_version) {
        InformationBox("%s v%d.%d.%d", kProductTitle, kVersionMajor, kVersionMinor, kVersionPatch);
        return 0;
    }

    // The hardware monitor: the GPU inventory and the vendor interfaces.
    if (!monitor::MonitorStartup(0, 0, 32, 32, 0, 0, 0)) {
        ErrorBox("Could not initialize ProbeGPU. %s startup failed. Bye!", kProductTitle);
        return kExitCouldNotStart;
    }
    if (!monitor::GraphicsDriversFound()) {
        monitor::MonitorShutdown();
        ErrorBox("Graphics drivers detection failed. Bye!");
        return kExitCouldNotStart;
    }

    // The one-shot listing needs the monitor only: no data, no window.
    if (gRunExtras.listGpus) {
        platform::WriteConsole(monitor::GpuListing());
        monitor::MonitorShutdown();
        return 0;
    }

    if (gRunExtras.gpuIndex > 0 && !ChooseGpu(gRunExtras.gpuIndex)) {
        monitor::MonitorShutdown();
        gEventLog.Write("Exit from %s.", kProductTitle);
        return CurrentExitCode();
    }

    bool missingEntry = false;
    if (!LoadADataLibrary(gShell.programFolder + platform::LibFileName(kAdataLibraryBase), &gShell.adata, &missingEntry)) {
        ErrorBox(missingEntry ? "FATAL ERROR: unable to load adata pointers." : "FATAL ERROR: unable to load adata library.");
        return kExitCouldNotStart;
    }

    monitor::WriteStartupReport();
    monitor::EnableGpuzBridge(StartupOptions.enable_gpuz_bridge);
    monitor::StartMonitorThread(kMonitorPeriodMs);
    LogDisplayModes();

    uint32_t physx = 0;
    if (platform::ReadRegistryDword("SOFTWARE\\AGEIA Technologies", "PhysX Version", &physx)) gShell.physxVersion = physx;

    RegisterTestApps(gTestApps);

    CopyRunParameters(StartupOptions, RunParameters);

    if (StartupOptions.display_gui) {
#if ARD_HAVE_LAUNCHER
        ShowLauncher();
#else
        TellCouldNotStart("Launcher not available in this build: start a test with /display_gui=0 /test3d=ID.");
#endif
    } else {
        StartDirectly();
    }

    ShutDown();
    return CurrentExitCode();
}
