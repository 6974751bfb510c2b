// The compute device against real compute shaders: outputs read back, units and images bound, refusals.
#include "DeviceTestSupport.h"

#include <opengl/ComputeDevice.h>

#include <optional>

using namespace Tavrin::OpenGL;
using namespace DeviceTest;

namespace
{
struct TestComputeDevice : HostDevice<ComputeDevice>
{
    using HostDevice::HostDevice;
    const Eigen::Vector3i getGroupCount() const override { return groups ? *groups : ComputeDevice::getGroupCount(); }
    using ComputeDevice::clearOutput;
    using ComputeDevice::framebuffer;
    std::optional<Eigen::Vector3i> groups;
};

using ComputeDeviceTest = DeviceFixture;
} // namespace

TEST_F(ComputeDeviceTest, RunsItsShaderOverItsGroupsAndImagesAndReleasesWhatItBound)
{
    // Output 0 gets 2v + 1 where an invocation ran; output 1 marks each work group with the dispatch size.
    TestComputeDevice device(std::shared_ptr<Program>(Program::loadFromSource("", "", "", "", "", R"(#version 430
layout(local_size_x = 4, local_size_y = 4) in;
uniform sampler2D source;
layout(rgba32f) uniform image2D doubled;
layout(rgba32f) uniform image2D marks;
void main()
{
    ivec2 p = ivec2(gl_GlobalInvocationID.xy);
    imageStore(doubled, p, 2.0 * texelFetch(source, p, 0) + 1.0);
    imageStore(marks, ivec2(gl_WorkGroupID.x + 4u * gl_WorkGroupID.z, gl_WorkGroupID.y), vec4(gl_NumWorkGroups, 1.0));
})")),
                             2, 2);
    const Eigen::Vector2i size(7, 5);
    const Level input = patternLevel(size, 1);
    device.inputNames = {"unused", "source"};
    device.outputNames = {"doubled", "marks", "source"}; // a name past the slots is never asked
    device.setInputTexture(1, textureWith(input));       // slot 0 stays empty and takes no unit
    device.setOutputTexture(0, textureWith(Level(size)));
    device.setOutputTexture(1, textureWith(Level(Eigen::Vector2i(12, 4))));
    glActiveTexture(GL_TEXTURE3);                               // inputs are pushed from the active unit on
    textureWith(Level(size))->bindImage(1, 0, 0, GL_READ_ONLY); // the device takes the unit and releases it
    std::vector<GLint> seen;
    device.before = [&] {
        device.clearOutput(0, Eigen::Vector4f::Constant(-1.0f));
        device.clearOutput(1, Eigen::Vector4f::Constant(-2.0f)); // through attachment 1 and draw buffer 0
        seen = {integer(GL_CURRENT_PROGRAM), Texture2D::getActiveTextureIndex()};
    };
    device.after = [&] {
        seen.insert(seen.end(), {integer(GL_CURRENT_PROGRAM), integer(GL_IMAGE_BINDING_NAME, 0),
                                 integer(GL_IMAGE_BINDING_NAME, 1)});
    };
    EXPECT_EQ(device.getGroupCount(), Eigen::Vector3i(64, 64, 1));
    const std::pair<Eigen::Vector3i, Eigen::Vector3i> counts[] = {
        {{0, -3, 2}, {1, 1, 2}}, {{2, 2, 1}, {2, 2, 1}}, {{3, 1, 3}, {3, 1, 3}}}; // asked, run
    for (const auto& [asked, run] : counts)
    {
        device.groups = asked;
        ASSERT_TRUE(device.update());
        const GLint program = GLint(device.program->getHandle());
        EXPECT_EQ(seen, (std::vector<GLint>{program, 3, program, 0, 0}));
        EXPECT_EQ((std::vector<GLint>{uniformInt(*device.program, "source"), uniformInt(*device.program, "doubled"),
                                      uniformInt(*device.program, "marks"), Texture2D::getActiveTextureIndex(),
                                      integer(GL_CURRENT_PROGRAM), integer(GL_FRAMEBUFFER_BINDING)}),
                  (std::vector<GLint>{3, 0, 1, 3, 0, 0}));
        Level doubled(size, Texel{-1.0f, -1.0f, -1.0f, -1.0f}),
            marks(Eigen::Vector2i(12, 4), Texel{-2.0f, -2.0f, -2.0f, -2.0f});
        for (int y = 0; y < std::min(size.y(), 4 * run.y()); ++y)
            for (int x = 0; x < std::min(size.x(), 4 * run.x()); ++x)
                for (int c = 0; c < 4; ++c)
                    doubled.at(x, y)[c] = 2 * input.at(x, y)[c] + 1;
        for (int i = 0; i < run.prod(); ++i)
            marks.at(i % run.x() + 4 * (i / run.x() / run.y()),
                     i / run.x() % run.y()) = {float(run.x()), float(run.y()), float(run.z()), 1.0f};
        EXPECT_EQ(download(*device.getOutputTexture(0), 0).texels, doubled.texels) << asked.transpose();
        EXPECT_EQ(download(*device.getOutputTexture(1), 0).texels, marks.texels) << asked.transpose();
    }
    // A dispatch GL refuses leaves update() through its own check.
    device.groups = Eigen::Vector3i(1 << 30, 1, 1);
    const TavrinTest::Outcome refused = TavrinTest::outcomeOf([&] { device.update(); });
    EXPECT_EQ(refused.thrown + "; " + TavrinTest::withoutLineNumbers(refused.out),
              "GLCheck: Invalid value; WARNING: ComputeDevice.cpp (line N) GLCheck: Invalid value");
    Program::useFixed();
    Texture2D::unbindImage(0);
    EXPECT_EQ(attachedName(*device.framebuffer, GL_COLOR_ATTACHMENT1), 0);
    EXPECT_THROW(device.clearOutput(2, Eigen::Vector4f::Zero()), std::out_of_range);
    const auto depth = std::make_shared<Texture2D>();
    depth->reserveStorage(1, Eigen::Vector2i(2, 2), GL_DEPTH_COMPONENT32);
    device.setOutputTexture(1, depth);
    EXPECT_EQ(thrownBy([&] { device.clearOutput(1, Eigen::Vector4f::Zero()); }),
              "Framebuffer incomplete: Incomplete attachment");

    // Refusals come before any GL call: the pending error reaches no check.
    device.setOutputTexture(1, std::make_shared<Texture2D>());
    glActiveTexture(GL_TEXTURE0 - 1);
    device.clearOutput(1, Eigen::Vector4f::Zero()); // without storage only the size is asked
    device.program.reset();
    EXPECT_EQ(thrownBy([&] { device.update(); }), "No program.");
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
}
