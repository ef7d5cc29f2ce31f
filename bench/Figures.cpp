#include "Figures.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

/// Keeps the processor time of every run, by benchmark.
class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &) override { return true; }

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const std::string &name = run.run_name.function_name;
            if (run.error_occurred) {
                m_failures.push_back(name + ": " + run.error_message);
                continue;
            }
            m_nanoseconds[name].push_back(run.GetAdjustedCPUTime());
        }
    }

    const std::vector<std::string> &failures() const { return m_failures; }

    /// 0 when the benchmark did not run.
    double medianOf(const char *name) const {
        const auto found = m_nanoseconds.find(name);
        if (found == m_nanoseconds.end())
            return 0.0;
        std::vector<double> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> m_nanoseconds;
    std::vector<std::string> m_failures;
};

bool print(const Figure &figure, const Collector &collector) {
    constexpr double nsPerMs = 1e6;
    const double measured = collector.medianOf(figure.measured);
    const double reference = figure.reference ? collector.medianOf(figure.reference) : nsPerMs;
    if (measured <= 0.0 || reference <= 0.0)
        return printFigure(figure.what, -1.0, figure.limit, "not measured");
    char detail[96];
    std::snprintf(detail, sizeof detail, "%.2f us against %.2f us", measured / 1000.0, reference / 1000.0);
    return printFigure(figure.what, measured / reference, figure.limit, figure.reference ? detail : "ms");
}

} // namespace

bool printFigure(const char *what, double value, double limit, const char *detail) {
    const bool kept = value >= 0.0 && value <= limit;
    std::printf("| %-58s | %8.3f | %8.3f | %-6s | %s |\n", what, value, limit, kept ? "yes" : "MISSED", detail);
    return kept;
}

int runFigures(int argc, char **argv, std::span<const Figure> figures) {
    char repetitions[] = "--benchmark_repetitions=9";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char shortest[] = "--benchmark_min_time=0.1";
    std::vector<char *> arguments{argv[0], repetitions, interleaving, shortest};
    arguments.insert(arguments.end(), argv + 1, argv + argc); // later ones win
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;

    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    for (const std::string &failure : collector.failures())
        std::fprintf(stderr, "%s\n", failure.c_str());
    bool kept = collector.failures().empty();
    for (const Figure &figure : figures)
        kept = print(figure, collector) && kept;
    return kept ? 0 : 1;
}
