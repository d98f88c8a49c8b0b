// The program builder on a real context (headless EGL on Linux): what a
// scene's author meets when a stage does not compile, and the hook that
// must run before the link for transform feedback to exist at all.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/event_log.h"
#include "platform/gl_context.h"
#include "render/gl4_api.h"
#include "render/gl_shader.h"

namespace {

constexpr GLenum kTransformFeedbackVaryings = 0x8C83, kInterleavedAttribs = 0x8C8C;

class GlProgram : public ::testing::Test {
protected:
    void SetUp() override {
        RenderTarget target;
        target.headless = true;
        target.width = target.height = 16;
        platform::GlContextRequest request;
        request.major = 4;
        request.minor = 0;
        request.core = true;
        std::string error;
        context_ = platform::CreateGlContext(target, request, &error);
        if (!context_) GTEST_SKIP() << "no OpenGL 4 context here: " << error;
        const char* missing = gl::LoadFunctions(platform::CurrentGlProcAddress);
        ASSERT_STREQ(missing, "");
    }
    std::vector<std::string> LogSince(unsigned line) const { return gEventLog.LinesAfter(line); }

    std::unique_ptr<platform::GlContext> context_;
};

const char* const kVertex = "#version 400 core\nin vec3 p;\nout vec3 q;\nvoid main() { q = p; gl_Position = vec4(p, 1.0); }\n";
const char* const kFragment = "#version 400 core\nout vec4 c;\nvoid main() { c = vec4(1.0); }\n";
const char* const kBroken = "#version 400 core\nlayout(vertices = 3) out;\nvoid main() { this is not a shader; }\n";

bool AnyStartsWith(const std::vector<std::string>& lines, const std::string& start) {
    for (const std::string& l : lines)
        if (l.compare(0, start.size(), start) == 0) return true;
    return false;
}

TEST_F(GlProgram, AFailingStageIsNamedAndNothingIsLeftBuilt) {
    EXPECT_NE(BuildProgram(kVertex, kFragment), 0u);

    unsigned before = gEventLog.LineCount();
    EXPECT_EQ(BuildStagedProgram({{gl::VERTEX_SHADER, kVertex},
                                  {gl4::TESS_CONTROL_SHADER, kBroken},
                                  {gl::FRAGMENT_SHADER, kFragment}}),
              0u);
    EXPECT_TRUE(AnyStartsWith(LogSince(before), "Tessellation control shader creation failed: ")) << LogSince(before).size();

    before = gEventLog.LineCount();
    EXPECT_EQ(BuildProgram(kVertex, "#version 400 core\nvoid main() { nope }\n"), 0u);
    EXPECT_TRUE(AnyStartsWith(LogSince(before), "Pixel shader creation failed: "));

    // Stages that compile but cannot make a program fail at the link.
    before = gEventLog.LineCount();
    const char* noMain = "#version 400 core\nout vec4 c;\nvoid paint() { c = vec4(1.0); }\n";
    EXPECT_EQ(BuildProgram(kVertex, noMain), 0u);
    EXPECT_TRUE(AnyStartsWith(LogSince(before), "Shader program creation failed: "));
}

TEST_F(GlProgram, TheHookRunsBeforeTheLinkAndALeftOutStageIsSkipped) {
    const char* varying = "q";
    typedef void(ARD_GLAPI * VaryingsFn)(GLuint, GLsizei, const char* const*, GLenum);
    auto varyings = reinterpret_cast<VaryingsFn>(platform::CurrentGlProcAddress("glTransformFeedbackVaryings"));
    ASSERT_NE(varyings, nullptr);
    int calls = 0;
    const GLuint p = BuildStagedProgram({{gl::VERTEX_SHADER, kVertex}, {gl4::TESS_CONTROL_SHADER, nullptr}}, {{0, "p"}},
                                        [&](GLuint program) {
                                            ++calls;
                                            varyings(program, 1, &varying, kInterleavedAttribs);
                                        });
    ASSERT_NE(p, 0u);
    EXPECT_EQ(calls, 1);
    // Varyings given after the link would not count until the next one.
    GLint count = 0;
    gl::GetProgramiv(p, kTransformFeedbackVaryings, &count);
    EXPECT_EQ(count, 1);
    gl::DeleteProgram(p);
}

}  // namespace
