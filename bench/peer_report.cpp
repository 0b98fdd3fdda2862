#include "peer_report.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace bench {
namespace {

using Times = std::map<std::string, double>; // by name, nanoseconds

Times& results() {
    static Times times;
    return times;
}

Times& processor_times() {
    static Times times;
    return times;
}

void take(Times& times, const std::string& name, double time) {
    const auto [entry, added] = times.try_emplace(name, time);
    if (!added)
        entry->second = std::min(entry->second, time);
}

double find(const Times& times, const char* name) {
    const auto found = times.find(name);
    return found == times.end() ? 0.0 : found->second;
}

double nanoseconds(const benchmark::BenchmarkReporter::Run& run) {
    const auto items = run.counters.find("items_per_second");
    if (items != run.counters.end())
        return 1e9 / items->second.value;
    return run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9;
}

// Keeps the fastest repetition of each benchmark.
class FastestReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            if (run.error_occurred) {
                std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
                continue;
            }
            take(results(), run.run_name.function_name, nanoseconds(run));
            take(processor_times(), run.run_name.function_name,
                 run.cpu_accumulated_time / static_cast<double>(run.iterations) * 1e9);
        }
    }
};

bool is_ours(const std::string& name) {
    return name.find("/ours") != std::string::npos;
}

void print_pairs(const Times& times) {
    std::printf("%-40s %-32s %14s %14s %8s %14s\n", "subject", "peer", "ours [ns]", "peer [ns]", "ratio",
                "more by [ns]");
    for (const auto& [ours, our_time] : times) {
        if (!is_ours(ours))
            continue;
        const std::string group = ours.substr(0, ours.find('/') + 1);
        const std::string subject = ours.substr(0, group.size() - 1) + ours.substr(group.size() + 4);
        for (auto peer = times.lower_bound(group); peer != times.end() && peer->first.starts_with(group);
             ++peer) {
            if (is_ours(peer->first))
                continue;
            std::printf("%-40s %-32s %14.3f %14.3f %8.3f %14.3f\n", subject.c_str(),
                        peer->first.c_str() + group.size(), our_time, peer->second, our_time / peer->second,
                        our_time - peer->second);
        }
    }
}

} // namespace

int run_beside_peers(int argc, char** argv) {
    std::vector<std::string> words(argv, argv + argc);
    words.insert(words.begin() + 1,
                 {"--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
                  "--benchmark_min_time=0.05"});
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;
    FastestReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    print_pairs(results());
    return results().empty() ? 1 : 0;
}

double fastest(const char* name) {
    return find(results(), name);
}

double least_processor_time(const char* name) {
    return find(processor_times(), name);
}

} // namespace bench
