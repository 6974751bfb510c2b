// main() of tavrin_bench: a headless context current for the whole run, then every benchmark,
// then the ratio table.
#include "BenchSupport.h"

#include <opengl/HeadlessContext.h>
#include <opengl/OpenGLContext.h>

#include <GL/glew.h>

#include <algorithm>
#include <cstdio>
#include <map>
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

struct Timing
{
    double cpu = 0.0, real = 0.0;
    std::string unit;
    bool fromMinimum = false;
};

// The console output as usual, and each benchmark's time per iteration kept by name: the
// "min" statistic where repetitions give one, the single run otherwise.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    // Plain tabular text: the output is read in logs and reports as often as on a terminal.
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
        {
            if (run.error_occurred)
                continue;
            const bool minimum = run.run_type == Run::RT_Aggregate && run.aggregate_name == "min";
            if (run.run_type == Run::RT_Aggregate && !minimum)
                continue;
            const std::string name =
                run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
            Timing& timing = timings[name];
            if (!minimum && timing.fromMinimum)
                continue;
            timing.cpu = run.GetAdjustedCPUTime();
            timing.real = run.GetAdjustedRealTime();
            timing.unit = benchmark::GetTimeUnitString(run.time_unit);
            timing.fromMinimum = minimum;
        }
    }

    void printRatios() const
    {
        std::printf("\nRatios (library / raw-GL baseline, time per iteration, same run)\n");
        std::printf("%-58s %12s %12s %8s\n", "", "library", "baseline", "ratio");
        for (const Ratio& ratio : ratios())
        {
            const auto library = timings.find(ratio.library), baseline = timings.find(ratio.baseline);
            if (library == timings.end() || baseline == timings.end())
            {
                std::printf("%-58s %12s %12s %8s\n", ratio.label.c_str(), "-", "-", "not run");
                continue;
            }
            const bool cpu = ratio.clock == Clock::Cpu;
            const double a = cpu ? library->second.cpu : library->second.real;
            const double b = cpu ? baseline->second.cpu : baseline->second.real;
            const std::string label = ratio.label + (cpu ? " [cpu]" : " [real]");
            std::printf("%-58s %9.2f %-2s %9.2f %-2s %8.3f", label.c_str(), a, library->second.unit.c_str(), b,
                        baseline->second.unit.c_str(), b > 0.0 ? a / b : 0.0);
            if (ratio.bytes > 0.0)
                std::printf("  %8.1f MiB %7.2f %7.2f GB/s", ratio.bytes / 1048576.0,
                            gigabytesPerSecond(ratio.bytes, a, library->second.unit),
                            gigabytesPerSecond(ratio.bytes, b, baseline->second.unit));
            std::printf("\n");
        }
        std::fflush(stdout);
    }

private:
    std::map<std::string, Timing> timings;
};
} // namespace

bool addRatio(const std::string& label, const std::string& library, const std::string& baseline, Clock clock,
              double bytes)
{
    ratios().push_back({label, library, baseline, clock, bytes});
    return true;
}

void shortRun(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Unit(benchmark::kMicrosecond)
        ->MinTime(0.02)
        ->Repetitions(15)
        ->ReportAggregatesOnly(true)
        ->ComputeStatistics("min", [](const std::vector<double>& values) {
            return values.empty() ? 0.0 : *std::min_element(values.begin(), values.end());
        });
}

void checkRawGL()
{
    if (glGetError() != GL_NO_ERROR)
        throw std::runtime_error("GL error in a raw-GL baseline");
}
} // namespace TavrinBench

int main(int argc, char** argv)
{
    // Repetitions of different benchmarks interleave, so that load from elsewhere on a shared
    // machine falls on library and baseline alike; flags given on the command line come later
    // and win.
    std::vector<char*> arguments(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleave);
    int count = int(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;

    Tavrin::OpenGL::HeadlessContext context;
    Tavrin::OpenGL::OpenGLContext::init();

    TavrinBench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}
