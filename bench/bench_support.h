// Shared by the library benchmarks: the private bus, platform root and
// simulator they run against, and a reporter that prints the ratios between
// a library benchmark and its bare baseline measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ssobench {

// Collects each benchmark's mean real time per iteration (nanoseconds).
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")
                continue;
            std::string name = run.benchmark_name();
            std::string base = name.substr(0, name.find('/'));
            times_[base] = run.GetAdjustedRealTime();
            unit_[base] = benchmark::GetTimeUnitString(run.time_unit);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Prints "library / baseline = ratio" for each pair that ran.
    void PrintRatios(const std::vector<std::pair<std::string, std::string>> &pairs) const
    {
        std::printf("\nRatios (library / bare baseline, same run):\n");
        for (const auto &p : pairs) {
            auto a = times_.find(p.first);
            auto b = times_.find(p.second);
            if (a == times_.end() || b == times_.end() || b->second <= 0)
                continue;
            std::printf("  %-44s %10.2f %s / %-36s %10.2f %s = %.3fx\n", p.first.c_str(), a->second,
                        unit_.at(p.first).c_str(), p.second.c_str(), b->second,
                        unit_.at(p.second).c_str(), a->second / b->second);
        }
    }

private:
    std::map<std::string, double> times_;
    std::map<std::string, std::string> unit_;
};

} // namespace ssobench
