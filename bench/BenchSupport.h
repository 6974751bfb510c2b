// The benchmark program's frame: one headless GL context for the whole run, and the table of
// ratios (library time per iteration / raw-GL baseline time per iteration) it measures.
#pragma once

#include <opengl/GLCheck.h>

#include <benchmark/benchmark.h>

#include <string>

namespace TavrinBench
{
/// The render device's pass vertex shader, and the start of every pass fragment shader: the
/// step uniform the device sets.
inline const char* const passVertexShader = R"(#version 430 compatibility
void main() { gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex; }
)";
inline const std::string passFragmentHeader = R"(#version 430 compatibility
struct FramebufferDeviceStep
{
    int mipLevelCount;
    int stepCount;
    int layerCount;
    int index;
    ivec2 resolution;
    int mipLevelIndex;
};
uniform FramebufferDeviceStep framebufferDeviceStep;
)";

/// Switches the library's GL check for one benchmark run and back.
class CheckSwitch
{
public:
    explicit CheckSwitch(bool on) : previous(Tavrin::OpenGL::GLCheck::enableGLCheck)
    {
        Tavrin::OpenGL::GLCheck::enableGLCheck = on;
    }
    ~CheckSwitch() { Tavrin::OpenGL::GLCheck::enableGLCheck = previous; }
    CheckSwitch(const CheckSwitch&) = delete;
    CheckSwitch& operator=(const CheckSwitch&) = delete;

private:
    bool previous;
};

enum class Clock
{
    Cpu, // the calling thread's CPU time: what the library itself costs
    Real // wall-clock time: for work the driver does on other threads
};

/// Adds a line to the ratio table: the time per iteration of benchmark `library` divided by
/// that of benchmark `baseline`, both names as registered (arguments included, e.g.
/// "DeviceUpdate/1"). The two are measured in alternation, a number of rounds each, and the
/// line shows the median of the rounds' ratios and their spread. Call it at static
/// initialisation, next to the BENCHMARK registrations. With `bytes` (what one iteration must
/// move at least) the line also shows them and the effective GB/s of both sides.
bool addRatio(const std::string& label, const std::string& library, const std::string& baseline,
              Clock clock = Clock::Cpu, double bytes = 0.0);

/// The settings every benchmark here runs with (Apply(TavrinBench::shortRun)): microseconds and
/// a short measurement; the repetitions are the rounds of the ratio table.
void shortRun(benchmark::internal::Benchmark* benchmark);

/// Throws std::runtime_error when GL has an error pending: the baselines' stand-in for the
/// library's check, so that both sides make the same glGetError calls.
void checkRawGL();
} // namespace TavrinBench
