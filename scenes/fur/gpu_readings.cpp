#include "scenes/fur/gpu_readings.h"

#include "monitor/monitor_shell.h"

bool CurrentGpuReadings(std::vector<GpuReading>* out) {
    out->clear();
    const int count = monitor::SensorGpuCount();
    for (int i = 0; i < count; ++i) {
        monitor::GpuSensorSnapshot s;
        if (!monitor::ReadGpuSensors(i, &s)) continue;
        GpuReading r;
        r.hasLoad = s.has_load;
        r.hasTemperature = s.has_temperature;
        r.load = s.load;
        r.temperature = s.temperature;
        r.name = s.name;
        r.powerAvailable = s.power_available != 0;
        r.powerPercent = static_cast<float>(s.power_percent);
        r.coreClock = static_cast<int>(s.core_clock);
        r.coreClockOverride = static_cast<int>(s.override_core_clock);
        r.throttlingMhz = static_cast<int>(s.throttling_mhz());
        r.memoryClock = static_cast<int>(s.memory_clock);
        r.memoryClockOverride = static_cast<int>(s.override_memory_clock);
        r.vddc = s.core_voltage;
        r.vddcOverride = s.override_voltage;
        out->push_back(r);
    }
    return count > 0 && !out->empty();
}
