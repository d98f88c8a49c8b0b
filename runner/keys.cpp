#include "runner/keys.h"

#include "core/settings.h"
#include "platform/compiler.h"
#include "runner/catalogue.h"
#include "runner/demo_access.h"

namespace {

template <typename T>
void Toggle(T& flag) {
    AtomicStore(flag, static_cast<T>(!AtomicLoad(flag)));
}

}  // namespace

KeyResult HandleRunKey(RunKey key, const unsigned char* keyboardState) {
    if (key == RunKey::Escape) return KeyResult::Close;
    // A benchmark locks every other key so that nothing changes what is measured.
    if (RunParameters.run_mode == 1) return KeyResult::Ignored;

    StartupOptionsRecord& o = StartupOptions;
    KeyResult result = KeyResult::Ignored;
    DemoAccess::With([&](cLm4DDemo& demo) {
        const bool benchmarkObject = demo.amark_mode;
        result = KeyResult::Handled;
        switch (key) {
            case RunKey::Space:
                if (benchmarkObject) result = KeyResult::Ignored;
                else demo.render_furry_object = !demo.render_furry_object;
                break;
            case RunKey::P:
                if (benchmarkObject && keyboardState) demo.CopyKeyboardState(keyboardState);
                else result = KeyResult::Ignored;
                break;
            case RunKey::I: Toggle(o.display_visual_indicators); break;
            case RunKey::F5: Toggle(o.gpu_load_graph.shown); break;
            case RunKey::F6: Toggle(o.gpu_temp_graph.shown); break;
            case RunKey::T: Toggle(o.render_temp_graphs); break;
            case RunKey::G: Toggle(o.render_gpu_monitor); break;
            case RunKey::F1: demo.show_help = !demo.show_help; break;
            case RunKey::NumPlus:
                if (benchmarkObject) result = KeyResult::Ignored;
                else AtomicStore(o.tone_down_delay_ms, AtomicLoad(o.tone_down_delay_ms) + 1);
                break;
            case RunKey::NumMinus:
                if (benchmarkObject || AtomicLoad(o.tone_down_delay_ms) <= 0) result = KeyResult::Ignored;
                else AtomicStore(o.tone_down_delay_ms, AtomicLoad(o.tone_down_delay_ms) - 1);
                break;
            case RunKey::K: Toggle(o.render_post_fx); break;
            default: result = demo.PanelKey(key) ? KeyResult::Handled : KeyResult::Ignored; break;
        }
    });
    return result;
}
