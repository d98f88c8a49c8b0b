#include "render/font.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

struct Extent {
    float top = 1e9f, bottom = -1e9f;
};

Extent VerticalExtent(const std::vector<float>& v) {
    Extent e;
    for (size_t i = 1; i < v.size(); i += 4) {
        e.top = std::min(e.top, v[i]);
        e.bottom = std::max(e.bottom, v[i]);
    }
    return e;
}

// Text that must sit on a point (the temperature graph's label) is laid out
// from its baseline; a line laid out from its top hangs below it instead.
TEST(FontAtlas, TextPlacedOnABaselineEndsThereAndRisesAboveIt) {
    const std::string file = FindHudFontFile("");
    if (file.empty()) GTEST_SKIP() << "no Arial-compatible TrueType face on this machine";
    FontAtlas font;
    std::string error;
    ASSERT_TRUE(font.Build(file, 15.0f, &error)) << error;
    ASSERT_GT(font.ascent(), 5.0f);

    const int baseline = 200;
    std::vector<float> v;
    font.Layout("GPU 1: 63", 10.0f, static_cast<float>(font.TopForBaseline(baseline)), &v);  // no descenders
    ASSERT_FALSE(v.empty());
    Extent on = VerticalExtent(v);
    EXPECT_NEAR(on.bottom, baseline, 1.5f);
    EXPECT_LT(on.top, baseline - 8.0f);

    v.clear();
    font.Layout("GPU 1: 63", 10.0f, static_cast<float>(baseline), &v);
    EXPECT_GT(VerticalExtent(v).top, baseline - 1.0f);  // from the top: all of it below the point
}

}  // namespace
