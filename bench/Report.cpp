#include "Report.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace Bench {

namespace {

/// Three significant digits, in the unit that reads best.
std::string timeText(double nanoseconds) {
    if (nanoseconds >= 1e6) return fmt::format("{:.1f} ms", nanoseconds / 1e6);
    return fmt::format("{:.{}f}", nanoseconds, nanoseconds < 100 ? 1 : 0);
}

} // namespace

Reporter::Reporter()
    : own_(benchmark::CreateDefaultDisplayReporter()) {}

bool Reporter::ReportContext(const Context& context) {
    own_->SetOutputStream(&GetOutputStream());
    own_->SetErrorStream(&GetErrorStream());
    return own_->ReportContext(context);
}

void Reporter::ReportRuns(const std::vector<Run>& runs) {
    own_->ReportRuns(runs);
    for (const Run& run : runs) {
        failed_ = failed_ || run.error_occurred;
        // The figures of single repetitions come before their median, and stand without it.
        if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median") {
            const double seconds =
                run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            nanoseconds_[run.run_name.str()] = seconds * 1e9;
        }
    }
}

void Reporter::print(std::ostream& out, const std::vector<Comparison>& comparisons) const {
    out << "\n| item | ns | compared with | ns | ratio | goal | met |\n"
           "|---|---:|---|---:|---:|---:|---|\n";
    for (const Comparison& comparison : comparisons) {
        const auto subject = nanoseconds_.find(comparison.subject);
        const auto base = nanoseconds_.find(comparison.base);
        if (subject == nanoseconds_.end() || base == nanoseconds_.end()) continue;
        const double ratio = subject->second / base->second;
        const bool judged = comparison.goal != 0;
        out << fmt::format("| {} | {} | {} | {} | {:.2f} | {} | {} |\n", comparison.item,
                           timeText(subject->second), comparison.baseTitle, timeText(base->second),
                           ratio, judged ? fmt::format("{:.2f}", comparison.goal) : "-",
                           !judged                    ? "-"
                           : ratio <= comparison.goal ? "yes"
                                                      : "no");
    }
    std::array<double, 1> load{};
    if (getloadavg(load.data(), 1) == 1) {
        out << fmt::format("\nProcessor time, medians of the repetitions. Load average at the end: "
                           "{:.2f}.\n",
                           load[0]);
    }
    out.flush();
}

int run(int argc, char** argv, const RegisterAll& registerAll) {
    std::vector<char*> arguments(argv, argv + argc);
    const auto smokeFlag = std::find_if(arguments.begin(), arguments.end(), [](const char* text) {
        return std::string_view(text) == "--smoke";
    });
    const bool smoke = smokeFlag != arguments.end();
    if (smoke) arguments.erase(smokeFlag);
    const bool console = std::none_of(arguments.begin(), arguments.end(), [](const char* text) {
        const std::string_view option(text);
        return option.starts_with("--benchmark_format=") && !option.ends_with("=console");
    });

    // Before the caller's own, which then count.
    std::vector<std::string> defaults = {"--benchmark_report_aggregates_only=true"};
    if (smoke) {
        defaults.insert(defaults.end(), {"--benchmark_min_time=0.001"});
    } else {
        defaults.insert(defaults.end(), {"--benchmark_min_time=0.1", "--benchmark_repetitions=9",
                                         "--benchmark_enable_random_interleaving=true"});
    }
    std::vector<char*> all = {arguments.front()};
    for (std::string& option : defaults) {
        all.push_back(option.data());
    }
    all.insert(all.end(), arguments.begin() + 1, arguments.end());
    int count = static_cast<int>(all.size());
    benchmark::Initialize(&count, all.data());
    if (benchmark::ReportUnrecognizedArguments(count, all.data())) return 2;

    const ScratchRoot root;
    std::vector<Comparison> comparisons;
    registerAll(smoke, root, comparisons);
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print(console ? std::cout : std::cerr, comparisons);
    return reporter.failed() ? 1 : 0;
}

} // namespace Bench
