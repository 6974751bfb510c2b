// One GL context for the whole test executable, current on the main thread.
#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <gtest/gtest.h>

#include <memory>

namespace
{
class GLTestEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        context = std::make_unique<Tavrin::OpenGL::HeadlessContext>();
        Tavrin::OpenGL::OpenGLContext::init();
    }
    void TearDown() override { context.reset(); }

private:
    std::unique_ptr<Tavrin::OpenGL::HeadlessContext> context;
};

::testing::Environment* const environment = ::testing::AddGlobalTestEnvironment(new GLTestEnvironment);
} // namespace
