#include "Report.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>

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

} // namespace Bench
