// One GL context for the whole test executable, current on the main thread, and the GL object
// census: every test must end with no more live GL objects than it started with.
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
class GLTestEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        context = std::make_unique<Tavrin::OpenGL::HeadlessContext>();
        Tavrin::OpenGL::OpenGLContext::init();
    }
    void TearDown() override { context.reset(); }

    std::unique_ptr<Tavrin::OpenGL::HeadlessContext> context;
};

class GLObjectCensus : public ::testing::EmptyTestEventListener
{
    void OnTestStart(const ::testing::TestInfo&) override
    {
        TavrinTest::resetGLObjectGrowthAllowance();
        before = TavrinTest::liveGLObjects();
    }

    void OnTestEnd(const ::testing::TestInfo& test) override
    {
        if (TavrinTest::glObjectGrowthAllowed() || test.result()->Skipped())
            return;
        const std::vector<std::string> after = TavrinTest::liveGLObjects();
        std::vector<std::string> leaked;
        std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(leaked));
        if (after.size() > before.size() || !leaked.empty())
        {
            std::string list;
            for (const auto& object : leaked)
                list += " " + object;
            ADD_FAILURE() << test.test_suite_name() << "." << test.name() << " left GL objects alive:" << list;
        }
    }

    std::vector<std::string> before;
};

GLTestEnvironment* const environment =
    static_cast<GLTestEnvironment*>(::testing::AddGlobalTestEnvironment(new GLTestEnvironment));
const bool censusInstalled = [] {
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
    environment->context->makeCurrent();
}
} // namespace TavrinTest
