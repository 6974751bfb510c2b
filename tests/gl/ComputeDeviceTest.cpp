// The compute device against real compute shaders: outputs read back texel for texel, the units
// and images it binds and releases, group counts, clearing, and refusals.
#include "DeviceTestSupport.h"

#include <opengl/ComputeDevice.h>

#include <optional>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
std::shared_ptr<Program> computeProgram(const std::string& source)
{
    return std::shared_ptr<Program>(Program::loadFromSource("", "", "", "", "", "#version 430\n" + source));
}

class TestComputeDevice : public HostDevice<ComputeDevice>
{
public:
    using HostDevice::HostDevice;
    const Eigen::Vector3i getGroupCount() const override { return groups ? *groups : ComputeDevice::getGroupCount(); }
    using ComputeDevice::clearOutput;
    using ComputeDevice::framebuffer;

    std::optional<Eigen::Vector3i> groups;
};

GLint imageOn(GLuint unit)
{
    GLint name = -1;
    glGetIntegeri_v(GL_IMAGE_BINDING_NAME, unit, &name);
    return name;
}

using ComputeDeviceTest = DeviceFixture;
} // namespace

TEST_F(ComputeDeviceTest, RunsItsShaderOverItsImagesAndReleasesWhatItBound)
{
    const Eigen::Vector2i size(7, 5);
    const Level input = patternLevel(size, 1);
    const auto device = std::make_unique<TestComputeDevice>(computeProgram(R"(
layout(local_size_x = 4, local_size_y = 4) in;
uniform sampler2D source;
layout(rgba32f) uniform image2D doubled;
layout(rgba32f) uniform image2D swizzled;
void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    vec4 v = texelFetch(source, p, 0);
    imageStore(doubled, p, 2.0 * v + 1.0);
    imageStore(swizzled, p, v.wzyx - vec4(p, 0.0, 0.0));
}
)"),
                                                            2, 2);
    device->inputNames = {"unused", "source"};
    device->outputNames = {"doubled", "swizzled"};
    device->groups = Eigen::Vector3i(2, 2, 1);      // 8 x 8 invocations: stores outside the images do nothing
    device->setInputTexture(1, textureWith(input)); // slot 0 stays empty and takes no unit
    device->setOutputTexture(0, textureWith(Level(size)));
    device->setOutputTexture(1, textureWith(Level(size)));
    glActiveTexture(GL_TEXTURE2); // inputs are pushed from the active unit on
    const auto stranger = textureWith(Level(size));
    stranger->bindImage(1, 0, 0, GL_READ_ONLY); // the device takes the unit and releases it
    std::vector<GLint> seen;
    device->before = [&] { seen = {integer(GL_CURRENT_PROGRAM), Texture2D::getActiveTextureIndex()}; };
    device->after = [&] { seen.insert(seen.end(), {integer(GL_CURRENT_PROGRAM), imageOn(0), imageOn(1)}); };
    ASSERT_TRUE(device->update());

    const Program& program = *device->program;
    EXPECT_EQ(seen, (std::vector<GLint>{GLint(program.getHandle()), 2, GLint(program.getHandle()), 0, 0}))
        << "inputs pushed after beforeRendering, images released before afterRendering";
    EXPECT_EQ((std::vector<GLint>{uniformInt(program, "source"), uniformInt(program, "doubled"),
                                  uniformInt(program, "swizzled"), Texture2D::getActiveTextureIndex(),
                                  integer(GL_CURRENT_PROGRAM)}),
              (std::vector<GLint>{2, 0, 1, 2, 0}));
    Level doubled(size), swizzled(size);
    for (int y = 0; y < size.y(); ++y)
        for (int x = 0; x < size.x(); ++x)
        {
            const Texel& v = input.at(x, y);
            doubled.at(x, y) = {2 * v[0] + 1, 2 * v[1] + 1, 2 * v[2] + 1, 2 * v[3] + 1};
            swizzled.at(x, y) = {v[3] - float(x), v[2] - float(y), v[1], v[0]};
        }
    EXPECT_EQ(download(*device->getOutputTexture(0), 0).texels, doubled.texels);
    EXPECT_EQ(download(*device->getOutputTexture(1), 0).texels, swizzled.texels);
}

TEST_F(ComputeDeviceTest, DispatchesItsGroupCountWithComponentsBelowOneRaisedToOne)
{
    // Each work group marks one texel with the dispatch size it saw.
    TestComputeDevice device(computeProgram(R"(
layout(local_size_x = 1) in;
layout(rgba32f) uniform image2D target;
void main()
{
    imageStore(target, ivec2(gl_WorkGroupID.x + 4u * gl_WorkGroupID.z, gl_WorkGroupID.y), vec4(gl_NumWorkGroups, 1.0));
}
)"),
                             0, 1);
    device.outputNames = {"target"};
    device.setOutputTexture(0, textureWith(Level(Eigen::Vector2i(12, 4))));
    // Cleared from the hook, as a host would before a sparse write.
    device.before = [&] { device.clearOutput(0, Eigen::Vector4f(-1.0f, -1.0f, -1.0f, -1.0f)); };
    EXPECT_EQ(device.getGroupCount(), Eigen::Vector3i(64, 64, 1));
    const std::pair<Eigen::Vector3i, Eigen::Vector3i> counts[] = {
        {{0, -3, 2}, {1, 1, 2}}, {{3, 2, 1}, {3, 2, 1}}, {{-7, 0, 0}, {1, 1, 1}}, {{4, 4, 3}, {4, 4, 3}}}; // asked, run
    for (const auto& [asked, run] : counts)
    {
        device.groups = asked;
        ASSERT_TRUE(device.update());
        const Level target = download(*device.getOutputTexture(0), 0);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 12; ++x)
            {
                const bool inside = x % 4 < run.x() && x / 4 < run.z() && y < run.y();
                const Texel marked = {float(run.x()), float(run.y()), float(run.z()), 1.0f};
                EXPECT_EQ(target.at(x, y), inside ? marked : Texel({-1.0f, -1.0f, -1.0f, -1.0f}))
                    << "asked " << asked.transpose() << ", texel " << x << ", " << y;
            }
    }
    // A dispatch GL refuses leaves update() through the check.
    device.groups = Eigen::Vector3i(1 << 30, 1, 1);
    EXPECT_EQ(thrownBy([&] { device.update(); }), "GLCheck: Invalid value");
    Program::useFixed();
    Texture2D::unbindImage(0);
}

TEST_F(ComputeDeviceTest, ClearsOutputsWithStorageAndRefusesToUpdateWithoutOutputOrProgram)
{
    TestComputeDevice device(nullptr, 0, 2);
    device.setOutputTexture(0, textureWith(Level(Eigen::Vector2i(3, 2))));
    device.setOutputTexture(1, textureWith(Level(Eigen::Vector2i(2, 3))));
    device.clearOutput(1, Eigen::Vector4f(0.25f, -1.5f, 2.0f, 0.5f)); // attachment 1, draw buffer 0
    device.clearOutput(0, Eigen::Vector4f(4.0f, 3.0f, 2.0f, 1.0f));
    EXPECT_EQ(download(*device.getOutputTexture(1), 0).texels, std::vector<Texel>(6, {0.25f, -1.5f, 2.0f, 0.5f}));
    EXPECT_EQ(download(*device.getOutputTexture(0), 0).texels, std::vector<Texel>(6, {4.0f, 3.0f, 2.0f, 1.0f}));
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);
    for (GLenum attachment : {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1})
    {
        GLint name = -1;
        glGetNamedFramebufferAttachmentParameterivEXT(device.framebuffer->getHandle(), attachment,
                                                      GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
        EXPECT_EQ(name, 0) << "detached again";
    }
    EXPECT_THROW(device.clearOutput(2, Eigen::Vector4f::Zero()), std::out_of_range);

    // Without storage only the size is asked; without output 0 or a program, update() refuses
    // (false, or "No program.") before any GL call: the pending error reaches no check.
    const auto texture = std::make_shared<Texture2D>();
    device.setOutputTexture(0, nullptr);
    device.setOutputTexture(1, texture);
    leaveErrorPending();
    device.clearOutput(1, Eigen::Vector4f(1.0f, 1.0f, 1.0f, 1.0f));
    {
        TavrinTest::StreamCapture err(std::cerr); // the message: the framebuffer device's test
        EXPECT_FALSE(device.update());
    }
    device.setOutputTexture(0, texture);
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No program.");
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
}
