// main() of tavrin_bench: a headless context current for the whole run, then each row of the
// ratio table measured in rounds that alternate library and baseline.
#include "BenchSupport.h"

#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <GL/glew.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace TavrinBench
{
namespace
{
struct Ratio
{
    std::string label, library, baseline;
    Clock clock;
    double bytes;
};

std::vector<Ratio>& ratios()
{
    static std::vector<Ratio> table;
    return table;
}

// Bytes per iteration over a time per iteration in the given unit ("ns", "us", "ms", "s").
double gigabytesPerSecond(double bytes, double time, const std::string& unit)
{
    const double seconds = time * (unit == "ns" ? 1e-9 : unit == "us" ? 1e-6 : unit == "ms" ? 1e-3 : 1.0);
    return seconds > 0.0 ? bytes / seconds / 1e9 : 0.0;
}

// Keeps the time per iteration of the one benchmark a call of RunSpecifiedBenchmarks ran.
class Recorder : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
            {
                cpu = run.GetAdjustedCPUTime();
                real = run.GetAdjustedRealTime();
                unit = benchmark::GetTimeUnitString(run.time_unit);
            }
    }
    double cpu = 0.0, real = 0.0;
    std::string unit;
};

// The time per iteration of benchmark `name` (as registered), measured once; 0 when it did not run.
double measure(const std::string& name, Clock clock, std::string& unit)
{
    Recorder recorder;
    // Registered names go on with their settings ("/min_time:0.050", "/real_time").
    if (benchmark::RunSpecifiedBenchmarks(&recorder, "^" + name + "(/|$)") != 1)
        return 0.0;
    unit = recorder.unit;
    return clock == Clock::Cpu ? recorder.cpu : recorder.real;
}

// The value at fraction `q` (0 to 1) of sorted `values`, interpolated between neighbours.
double quantile(std::vector<double> values, double q)
{
    std::sort(values.begin(), values.end());
    const double position = q * double(values.size() - 1);
    const std::size_t below = std::size_t(position);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (position - double(below)) * (values[above] - values[below]);
}

void printRow(const Ratio& ratio, int rounds)
{
    std::vector<double> library, baseline, quotients;
    std::string libraryUnit, baselineUnit;
    for (int round = 0; round < rounds; ++round)
    {
        // Library and baseline alternate, each going first in every other round, so that load from
        // elsewhere and slow drift fall on both alike.
        double a = 0.0, b = 0.0;
        for (int side = 0; side < 2; ++side)
            if ((side == 0) == (round % 2 == 0))
                a = measure(ratio.library, ratio.clock, libraryUnit);
            else
                b = measure(ratio.baseline, ratio.clock, baselineUnit);
        if (a <= 0.0 || b <= 0.0)
        {
            std::printf("%-80s %s\n", ratio.label.c_str(), "not run");
            return;
        }
        library.push_back(a);
        baseline.push_back(b);
        quotients.push_back(a / b);
    }
    const double a = quantile(library, 0.5), b = quantile(baseline, 0.5), median = quantile(quotients, 0.5);
    const double spread = (quantile(quotients, 0.75) - quantile(quotients, 0.25)) / 2.0 / median * 100.0;
    // Load from elsewhere only ever slows a round down: the fastest rounds of each side are the
    // least disturbed, and their quotient the steadier figure when the machine is busy.
    const double fastest = quantile(library, 0.0) / quantile(baseline, 0.0);
    const std::string label = ratio.label + (ratio.clock == Clock::Cpu ? " [cpu]" : " [real]");
    std::printf("%-80s %9.2f %-2s %9.2f %-2s %8.3f %6.1f%% %8.3f", label.c_str(), a, libraryUnit.c_str(), b,
                baselineUnit.c_str(), median, spread, fastest);
    if (ratio.bytes > 0.0)
        std::printf("  %8.1f MiB %7.2f %7.2f GB/s", ratio.bytes / 1048576.0,
                    gigabytesPerSecond(ratio.bytes, a, libraryUnit), gigabytesPerSecond(ratio.bytes, b, baselineUnit));
    std::printf("\n");
    std::fflush(stdout);
}

// Takes "--name=value" out of the arguments; `fallback` when it is not there.
std::string takeOption(std::vector<char*>& arguments, const std::string& name, const std::string& fallback)
{
    const std::string prefix = "--" + name + "=";
    for (std::size_t i = 1; i < arguments.size(); ++i)
        if (std::string(arguments[i]).rfind(prefix, 0) == 0)
        {
            const std::string value = std::string(arguments[i]).substr(prefix.size());
            arguments.erase(arguments.begin() + std::ptrdiff_t(i));
            return value;
        }
    return fallback;
}
} // namespace

bool addRatio(const std::string& label, const std::string& library, const std::string& baseline, Clock clock,
              double bytes)
{
    ratios().push_back({label, library, baseline, clock, bytes});
    return true;
}

void shortRun(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Unit(benchmark::kMicrosecond)->MinTime(0.05);
}

void checkRawGL()
{
    if (glGetError() != GL_NO_ERROR)
        throw std::runtime_error("GL error in a raw-GL baseline");
}
} // namespace TavrinBench

int main(int argc, char** argv)
{
    // --clock=cpu or --clock=real: only the rows measured with that clock (scripts/bench.sh runs
    // the two in separate processes, the CPU rows with llvmpipe rasterising on the calling thread).
    // --rounds=N: measurements of each side per row (default 31 for CPU rows, 15 for wall-clock
    // rows, whose iterations are long). --rows=TEXT: only the rows whose label contains TEXT.
    // Other flags go to Google Benchmark (--benchmark_min_time, for example).
    std::vector<char*> arguments(argv, argv + argc);
    const std::string clock = TavrinBench::takeOption(arguments, "clock", "");
    if (clock != "" && clock != "cpu" && clock != "real")
    {
        std::fprintf(stderr, "--clock takes cpu or real\n");
        return 1;
    }
    const int defaultRounds = clock == "real" ? 15 : 31;
    const int rounds =
        std::max(1, std::atoi(TavrinBench::takeOption(arguments, "rounds", std::to_string(defaultRounds)).c_str()));
    const std::string rows = TavrinBench::takeOption(arguments, "rows", "");
    int count = int(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;

    Tavrin::OpenGL::HeadlessContext context;
    Tavrin::OpenGL::OpenGLContext::init();

    const char* threads = std::getenv("LP_NUM_THREADS");
    std::printf("%s, LP_NUM_THREADS %s\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)),
                threads ? threads : "unset");
    std::printf("Ratios (library / baseline, time per iteration): the median of %d rounds that alternate\n"
                "library and baseline, and the spread (half the interquartile range of the rounds' ratios,\n"
                "in per cent of the median), and the quotient of each side's fastest round\n",
                rounds);
    std::printf("%-80s %12s %12s %8s %7s %8s\n", "", "library", "baseline", "ratio", "spread", "fastest");
    for (const TavrinBench::Ratio& ratio : TavrinBench::ratios())
        if (ratio.label.find(rows) != std::string::npos &&
            (clock.empty() || (ratio.clock == TavrinBench::Clock::Cpu) == (clock == "cpu")))
            TavrinBench::printRow(ratio, rounds);
    benchmark::Shutdown();
    return 0;
}
