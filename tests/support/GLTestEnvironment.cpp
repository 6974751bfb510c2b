// One GL context for the whole executable, and the census: no test may end with more GL objects.
#include "support/GLTestEnvironment.h"
#include "support/TestSupport.h"

#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#if defined(_WIN32)
#include <windows.h>
#else
#include <EGL/egl.h>
#endif

namespace
{
std::unique_ptr<Tavrin::OpenGL::HeadlessContext> context;

class GLTestEnvironment : public ::testing::Environment
{
    void SetUp() override
    {
        context = std::make_unique<Tavrin::OpenGL::HeadlessContext>();
        Tavrin::OpenGL::OpenGLContext::init();
    }
    void TearDown() override { context.reset(); }
};

class GLObjectCensus : public ::testing::EmptyTestEventListener
{
    void OnTestStart(const ::testing::TestInfo&) override { before = TavrinTest::liveGLObjects(); }
    void OnTestEnd(const ::testing::TestInfo& test) override
    {
        std::string leaked;
        for (const std::string& object : TavrinTest::liveGLObjects())
            if (!std::binary_search(before.begin(), before.end(), object))
                leaked += " " + object;
        if (!leaked.empty() && !test.result()->Skipped())
            ADD_FAILURE() << test.test_suite_name() << "." << test.name() << " left GL objects alive:" << leaked;
    }
    std::vector<std::string> before;
};

const bool installed = [] {
    ::testing::AddGlobalTestEnvironment(new GLTestEnvironment);
    ::testing::UnitTest::GetInstance()->listeners().Append(new GLObjectCensus);
    return true;
}();
} // namespace

namespace TavrinTest
{
NoCurrentContext::NoCurrentContext()
{
#if defined(_WIN32)
    wglMakeCurrent(nullptr, nullptr);
#else
    eglMakeCurrent(eglGetCurrentDisplay(), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
#endif
}

NoCurrentContext::~NoCurrentContext()
{
    context->makeCurrent();
}
} // namespace TavrinTest
