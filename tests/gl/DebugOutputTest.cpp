// Driver debug output as diagnostics and exceptions, debug contexts and labels (Mesa's own words).
#include "DeviceTestSupport.h"
#include "support/GLTestEnvironment.h"

#include <opengl/DebugOutput.h>
#include <opengl/GLCheck.h>
#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

using namespace Tavrin::OpenGL;

namespace
{
// stdout|stderr|thrown, with the driver's ids of API errors as "id N".
template <typename Action> std::string seen(Action action)
{
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf(action);
    std::string text = outcome.out + "|" + outcome.err + "|" + outcome.thrown;
    const std::string key = "API, Error, id ";
    for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1))
        text.replace(at + key.size(), text.find(':', at) - at - key.size(), "N");
    return text;
}

// Asynchronous, unless throwing makes it synchronous all the same.
bool enable(bool throwOnError, DebugOutput::Severity minimum = DebugOutput::Severity::Low)
{
    return DebugOutput::enable({minimum, false, throwOnError});
}

class DebugOutputTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        DebugOutput::disable();
        GLCheck::enableGLCheck = true;
        TavrinTest::drainGLErrors();
    }
};

const int checkLine = __LINE__ + 4;
void enableUnknownCapability() // the README's provoked error, then a check
{
    glEnable(0xFFFF);
    TAVRIN_GL_CHECK();
}

std::string label(GLenum identifier, GLuint name)
{
    std::vector<char> text(4096);
    glGetObjectLabel(identifier, name, GLsizei(text.size()), nullptr, text.data());
    return text.data();
}
} // namespace

TEST_F(DebugOutputTest, AProvokedErrorUnderEachMechanism)
{
    const std::string warning = "WARNING: DebugOutputTest.cpp (line " + std::to_string(checkLine) + ") ";
    const std::string mesa = "ERROR: GLDebug: API, Error, id N: GL_INVALID_ENUM in glEnable(0xffff)";
    const struct
    {
        bool check, debug, throwing;
        std::string expected;
    } cases[] = {{true, false, false, warning + "GLCheck: Invalid enum||GLCheck: Invalid enum"},
                 {false, true, false, "|" + mesa + "|"},
                 {false, true, true, "|" + mesa + "|GLCheck: Invalid enum"},
                 {true, true, true, warning + "GLCheck: Invalid enum|" + mesa + "|GLCheck: Invalid enum"}};
    EXPECT_FALSE(DebugOutput::isEnabled()); // off until the host switches it on
    for (const auto& mechanism : cases)
    {
        GLCheck::enableGLCheck = mechanism.check;
        ASSERT_TRUE(!mechanism.debug || enable(mechanism.throwing));
        EXPECT_EQ(seen([] {
                      enableUnknownCapability();
                      DebugOutput::throwPendingError(); // nothing recorded unless throwing
                  }),
                  mechanism.expected);
        DebugOutput::disable();
        TavrinTest::drainGLErrors();
    }
    // A raw call surfaces at the explicit check point, once; a library call at its own check.
    GLCheck::enableGLCheck = false;
    enable(true);
    EXPECT_TRUE(glIsEnabled(GL_DEBUG_OUTPUT_SYNCHRONOUS));
    EXPECT_EQ(seen([] { glLineWidth(-1.0f); }), "|ERROR: GLDebug: API, Error, id N: GL_INVALID_VALUE in glLineWidth|");
    const std::string first = seen(DebugOutput::throwPendingError); // the operands of + are unsequenced
    EXPECT_EQ(first + seen(DebugOutput::throwPendingError), "||GLCheck: Invalid value||");
    EXPECT_EQ(
        seen([] { Texture2D().reserveStorage(0, Eigen::Vector2i(4, 4), GL_RGBA8); }),
        "|ERROR: GLDebug: API, Error, id N: GL_INVALID_VALUE in glTexStorage2D(levels < 1)|GLCheck: Invalid value");
}

TEST_F(DebugOutputTest, MessagesAreOneLineByMinimumSeverity)
{
    const auto insert = [](GLenum source, GLenum type, GLenum severity, const char* text) {
        glDebugMessageInsert(source, type, 7, severity, -1, text);
    };
    const auto all = [&] {
        insert(GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_ERROR, GL_DEBUG_SEVERITY_HIGH, "broken\n");
        insert(GL_DEBUG_SOURCE_THIRD_PARTY, GL_DEBUG_TYPE_PERFORMANCE, GL_DEBUG_SEVERITY_MEDIUM, "slow\r\n");
        insert(GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_PORTABILITY, GL_DEBUG_SEVERITY_LOW, "a\nb\rc");
        insert(GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR, GL_DEBUG_SEVERITY_HIGH, "u");
        insert(GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_MARKER, GL_DEBUG_SEVERITY_NOTIFICATION, "m");
        TAVRIN_GL_CHECK(); // an application's "error" sets no GL error: nothing to throw
    };
    GLCheck::enableGLCheck = false;
    ASSERT_TRUE(enable(true));
    EXPECT_EQ(seen(all), "WARNING: GLDebug: Third party, Performance, id 7: slow"
                         "INFO: GLDebug: Application, Portability, id 7: a b c|"
                         "ERROR: GLDebug: Application, Error, id 7: broken"
                         "ERROR: GLDebug: Application, Undefined behaviour, id 7: u|");
    enable(false, DebugOutput::Severity::Notification);
    EXPECT_EQ(seen([] { glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, 3, -1, "g"), glPopDebugGroup(); }),
              "INFO: GLDebug: Application, Push group, id 3: gINFO: GLDebug: Application, Pop group, id 3: g||");
    enable(false, DebugOutput::Severity::High);
    EXPECT_EQ(seen(all), "|ERROR: GLDebug: Application, Error, id 7: brokenERROR: GLDebug: Application, Undefined "
                         "behaviour, id 7: u|");
    DebugOutput::disable();
    EXPECT_FALSE(DebugOutput::isEnabled() || glIsEnabled(GL_DEBUG_OUTPUT) || glIsEnabled(GL_DEBUG_OUTPUT_SYNCHRONOUS));
}

TEST_F(DebugOutputTest, DebugContextsOnRequestAndLabels)
{
    EXPECT_EQ(DeviceTest::integer(GL_CONTEXT_FLAGS) & GL_CONTEXT_FLAG_DEBUG_BIT, 0);
    {
        TavrinTest::NoCurrentContext restored; // the suite's context again afterwards
        OpenGLContext::requestDebugContexts(true);
        HeadlessContext debugContext;
        OpenGLContext::requestDebugContexts(false);
        EXPECT_EQ(DeviceTest::integer(GL_CONTEXT_FLAGS) & GL_CONTEXT_FLAG_DEBUG_BIT, GL_CONTEXT_FLAG_DEBUG_BIT);
    }
    // By the library while enabled; by the host, cut to GL's limit.
    TavrinTest::TemporaryDirectory directory;
    directory.write("blurCompute.glsl", "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n");
    DebugOutput::enable();
    const std::unique_ptr<Program> program(Program::loadFromFile(directory.file("blur")));
    EXPECT_EQ(label(GL_PROGRAM, program->getHandle()), directory.file("blur"));
    const std::size_t maximum = std::size_t(DeviceTest::integer(GL_MAX_LABEL_LENGTH));
    DebugOutput::setLabel(*program, std::string(maximum + 5, 'f'));
    EXPECT_EQ(label(GL_PROGRAM, program->getHandle()), std::string(maximum - 1, 'f'));
}
