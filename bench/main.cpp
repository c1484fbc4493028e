#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/ratios.h"

struct Ratio {
    std::string what, numerator, denominator;
    RatioBound bound;
    double wanted;
};

static std::vector<Ratio>& ratios() {
    static std::vector<Ratio> list;
    return list;
}

bool expectRatio(std::string what, std::string numerator, std::string denominator, RatioBound bound, double wanted) {
    ratios().push_back({std::move(what), std::move(numerator), std::move(denominator), bound, wanted});
    return true;
}

// Keeps the best time of each benchmark, the others measure what else the machine was doing.
class BestTimes : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override {
        PrintBasicContext(&GetErrorStream(), context);
        return true;
    }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred)
                std::printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
            else if (run.run_type == Run::RT_Iteration)
                add(run);
        }
    }
    void print() const {
        std::printf("%-40s %12s %12s\n", "benchmark, best of its runs", "us", "items/us");
        for (const auto& [name, best] : best_) {
            std::printf("%-40s %12.3f", name.c_str(), best.microseconds);
            if (best.itemsPerSecond > 0) std::printf(" %12.3f", best.itemsPerSecond * 1e-6);
            std::printf("\n");
        }
    }
    // 0 when it did not run.
    double of(const std::string& name) const {
        const auto entry = best_.find(name);
        return entry == best_.end() ? 0 : entry->second.microseconds;
    }

private:
    struct Best {
        double microseconds, itemsPerSecond;
    };

    void add(const Run& run) {
        const auto counter = run.counters.find("items_per_second");
        const Best best = {run.cpu_accumulated_time / double(run.iterations) * 1e6,
                           counter == run.counters.end() ? 0 : counter->second.value};
        const auto [entry, isNew] = best_.emplace(run.run_name.function_name + argumentsOf(run), best);
        if (!isNew && best.microseconds < entry->second.microseconds) entry->second = best;
    }
    static std::string argumentsOf(const Run& run) { return run.run_name.args.empty() ? "" : "/" + run.run_name.args; }

    std::map<std::string, Best> best_;
};

static void printRatios(const BestTimes& times) {
    std::printf("\n%-58s %9s %9s\n", "ratio", "measured", "wanted");
    for (const Ratio& ratio : ratios()) {
        const double numerator = times.of(ratio.numerator), denominator = times.of(ratio.denominator);
        if (numerator == 0 || denominator == 0) continue;  // filtered out
        const double measured = numerator / denominator;
        const bool isAtLeast = ratio.bound == RatioBound::AtLeast;
        const bool isMet = isAtLeast ? measured >= ratio.wanted : measured <= ratio.wanted;
        std::printf("%-58s %9.2f %s %6.2f%s\n", ratio.what.c_str(), measured, isAtLeast ? ">=" : "<=", ratio.wanted,
                    isMet ? "" : "  MISSED");
    }
}

// Several short runs of each benchmark in turns, unless the command line says otherwise.
int main(int argc, char** argv) {
    std::vector<std::string> arguments = {argv[0], "--benchmark_repetitions=15", "--benchmark_min_time=0.02",
                                          "--benchmark_enable_random_interleaving=true"};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    int count = int(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 1;
    BestTimes times;
    benchmark::RunSpecifiedBenchmarks(&times);
    times.print();
    printRatios(times);
    return 0;
}
