// Driver debug output as diagnostics and exceptions, debug contexts and labels, on the driver's
// own messages (Mesa's words; Wine passes them through).
#include "DeviceTestSupport.h"
#include "support/GLTestEnvironment.h"

#include <opengl/DebugOutput.h>
#include <opengl/FramebufferTexture2DDevice.h>
#include <opengl/GLCheck.h>
#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <regex>

using namespace Tavrin::OpenGL;

namespace
{
// stdout|stderr|thrown, with the driver's ids of API errors as "id N".
template <typename Action> std::string seen(Action action)
{
    const TavrinTest::Outcome outcome = TavrinTest::outcomeOf(action);
    return std::regex_replace(outcome.out + "|" + outcome.err + "|" + outcome.thrown,
                              std::regex("API, Error, id [0-9]+"), "API, Error, id N");
}

class DebugOutputTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!DebugOutput::isAvailable())
            GTEST_SKIP() << "GL_KHR_debug is not available";
        TavrinTest::drainGLErrors();
    }
    void TearDown() override
    {
        DebugOutput::disable();
        GLCheck::enableGLCheck = true;
        TavrinTest::drainGLErrors();
    }
};

// The host's provoked error, then a check point (the README's example).
const int checkLine = __LINE__ + 4;
void enableUnknownCapability()
{
    glEnable(0xFFFF);
    TAVRIN_GL_CHECK();
}

struct LabelledDevice : DeviceTest::HostDevice<FramebufferTexture2DDevice>
{
    using FramebufferTexture2DDevice::inputTextures;
    using HostDevice::HostDevice;
};

std::string label(GLenum identifier, GLuint name)
{
    char text[64] = {};
    glGetObjectLabel(identifier, name, sizeof text, nullptr, text);
    return text;
}
} // namespace

TEST_F(DebugOutputTest, AProvokedErrorUnderEachMechanism)
{
    const std::string line = std::to_string(checkLine);
    const std::string mesa = "ERROR: GLDebug: API, Error, id N: GL_INVALID_ENUM in glEnable(0xffff)";
    const struct
    {
        bool check, debug, throwing;
        std::string expected;
    } cases[] = {
        {true, false, false,
         "WARNING: DebugOutputTest.cpp (line " + line + ") GLCheck: Invalid enum||GLCheck: Invalid enum"},
        {false, true, false, "|" + mesa + "|"},
        {false, true, true, "|" + mesa + "|GLCheck: Invalid enum"},
        {true, true, true,
         "WARNING: DebugOutputTest.cpp (line " + line + ") GLCheck: Invalid enum|" + mesa + "|GLCheck: Invalid enum"}};
    for (const auto& mechanism : cases)
    {
        GLCheck::enableGLCheck = mechanism.check;
        DebugOutput::Options options;
        options.throwOnError = mechanism.throwing;
        EXPECT_EQ(!mechanism.debug || DebugOutput::enable(options), true);
        EXPECT_EQ(seen(enableUnknownCapability), mechanism.expected);
        DebugOutput::disable();
        TavrinTest::drainGLErrors();
    }
    // The host's raw call surfaces at its explicit check point, once; a library call at its own check.
    GLCheck::enableGLCheck = false;
    DebugOutput::Options throwing;
    throwing.throwOnError = true;
    DebugOutput::enable(throwing);
    EXPECT_EQ(seen([] { glLineWidth(-1.0f); }), "|ERROR: GLDebug: API, Error, id N: GL_INVALID_VALUE in glLineWidth|");
    EXPECT_EQ(seen([] { DebugOutput::throwPendingError(); }), "||GLCheck: Invalid value");
    EXPECT_EQ(seen([] { DebugOutput::throwPendingError(); }), "||");
    Texture2D texture;
    EXPECT_EQ(
        seen([&] { texture.reserveStorage(0, Eigen::Vector2i(4, 4), GL_RGBA8); }),
        "|ERROR: GLDebug: API, Error, id N: GL_INVALID_VALUE in glTexStorage2D(levels < 1)|GLCheck: Invalid value");
}

TEST_F(DebugOutputTest, MessagesAreOneLineByMinimumSeverity)
{
    const struct
    {
        GLenum source, type, severity;
        const char* text;
        std::string expected;
    } cases[] = {{GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_ERROR, GL_DEBUG_SEVERITY_HIGH, "broken\n",
                  "|ERROR: GLDebug: Application, Error, id 7: broken|"},
                 {GL_DEBUG_SOURCE_THIRD_PARTY, GL_DEBUG_TYPE_PERFORMANCE, GL_DEBUG_SEVERITY_MEDIUM, "slow\r\n",
                  "WARNING: GLDebug: Third party, Performance, id 7: slow||"},
                 {GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_PORTABILITY, GL_DEBUG_SEVERITY_LOW, "a\nb\rc",
                  "INFO: GLDebug: Application, Portability, id 7: a b c||"},
                 {GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_DEPRECATED_BEHAVIOR, GL_DEBUG_SEVERITY_MEDIUM, "",
                  "WARNING: GLDebug: Application, Deprecated behaviour, id 7: ||"},
                 {GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR, GL_DEBUG_SEVERITY_HIGH, "u",
                  "|ERROR: GLDebug: Application, Undefined behaviour, id 7: u|"},
                 {GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_MARKER, GL_DEBUG_SEVERITY_LOW, "m",
                  "INFO: GLDebug: Application, Marker, id 7: m||"},
                 {GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_OTHER, GL_DEBUG_SEVERITY_NOTIFICATION, "below Low", "||"}};
    GLCheck::enableGLCheck = false;
    DebugOutput::Options options;
    options.throwOnError = true; // an application's "error" sets no GL error: nothing to throw
    ASSERT_TRUE(DebugOutput::enable(options));
    for (const auto& message : cases)
        EXPECT_EQ(seen([&] {
                      glDebugMessageInsert(message.source, message.type, 7, message.severity, -1, message.text);
                      TAVRIN_GL_CHECK();
                  }),
                  message.expected);
    options.minimumSeverity = DebugOutput::Severity::Notification;
    DebugOutput::enable(options);
    EXPECT_EQ(
        seen([] {
            glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, 3, -1, "group");
            glPopDebugGroup();
        }),
        "INFO: GLDebug: Application, Push group, id 3: groupINFO: GLDebug: Application, Pop group, id 3: group||");
    options.minimumSeverity = DebugOutput::Severity::High;
    DebugOutput::enable(options);
    EXPECT_EQ(seen([] {
                  glDebugMessageInsert(GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_OTHER, 1, GL_DEBUG_SEVERITY_MEDIUM,
                                       -1, "x");
              }),
              "||");
    DebugOutput::disable();
    EXPECT_FALSE(DebugOutput::isEnabled());
    EXPECT_FALSE(glIsEnabled(GL_DEBUG_OUTPUT)); // the suite's context is no debug context
    EXPECT_FALSE(glIsEnabled(GL_DEBUG_OUTPUT_SYNCHRONOUS));
}

TEST_F(DebugOutputTest, DebugContextsOnRequestAndLabels)
{
    const auto flags = [] {
        GLint value = 0;
        glGetIntegerv(GL_CONTEXT_FLAGS, &value);
        return value & GL_CONTEXT_FLAG_DEBUG_BIT;
    };
    EXPECT_EQ(flags(), 0);
    {
        TavrinTest::NoCurrentContext restored; // the suite's context again afterwards
        OpenGLContext::requestDebugContexts(true);
        HeadlessContext debugContext;
        OpenGLContext::requestDebugContexts(false);
        EXPECT_EQ(flags(), GL_CONTEXT_FLAG_DEBUG_BIT);
        EXPECT_TRUE(glIsEnabled(GL_DEBUG_OUTPUT));
    }
    // Labels: by the host, cut to GL's limit, none on a bare name; by the library while enabled.
    TavrinTest::TemporaryDirectory directory;
    directory.write("blurCompute.glsl", "#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n");
    DebugOutput::enable();
    const std::unique_ptr<Program> program(Program::loadFromFile(directory.file("blur")));
    EXPECT_EQ(label(GL_PROGRAM, program->getHandle()), directory.file("blur"));
    Texture2D bare;
    DebugOutput::setLabel(bare, "bare");
    auto output = std::make_shared<Texture2D>();
    LabelledDevice device(std::shared_ptr<Program>(Program::loadFromSource(
                              "", "", "", "", "#version 430\nout vec4 o;\nvoid main() { o = vec4(1); }\n", "")),
                          1, 1);
    device.inputTextures[0].texture = DeviceTest::textureWith(DeviceTest::Level(Eigen::Vector2i(4, 4)));
    device.outputNames = {"edges"};
    device.outputTextures[0].texture = output;
    ASSERT_TRUE(device.update());
    EXPECT_EQ(label(GL_TEXTURE, output->getHandle()), "edges");
    Framebuffer framebuffer;
    framebuffer.bind();
    Framebuffer::unbind();
    GLint maximum = 0;
    glGetIntegerv(GL_MAX_LABEL_LENGTH, &maximum);
    DebugOutput::setLabel(framebuffer, std::string(std::size_t(maximum) + 5, 'f'));
    std::vector<char> text(std::size_t(maximum) + 8);
    GLsizei length = 0;
    glGetObjectLabel(GL_FRAMEBUFFER, framebuffer.getHandle(), GLsizei(text.size()), &length, text.data());
    EXPECT_EQ(length, maximum - 1);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}
