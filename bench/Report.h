#pragma once

#include "ScratchRoot.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace Bench {

/// Two benchmarks of one run, and what the first may cost at most as a multiple of the second.
struct Comparison {
    std::string item;
    std::string subject;   ///< name of a benchmark
    std::string base;      ///< name of the benchmark that it is compared with
    std::string baseTitle; ///< what that is
    double goal;           ///< largest ratio; 0 for none
};

/// Passes everything on to Google Benchmark's own reporter and keeps the figures.
class Reporter : public benchmark::BenchmarkReporter {
  public:
    Reporter();
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override { own_->Finalize(); }

    /// Whether a benchmark found a wrong answer.
    bool failed() const { return failed_; }

    /// A Markdown table of the comparisons that were run, in nanoseconds of processor time (medians
    /// when there were repetitions).
    void print(std::ostream& out, const std::vector<Comparison>& comparisons) const;

  private:
    std::unique_ptr<benchmark::BenchmarkReporter> own_;
    std::map<std::string, double> nanoseconds_;
    bool failed_ = false;
};

/// Registers benchmarks, small ones for a smoke run, and says what is compared with what.
using RegisterAll =
    std::function<void(bool smoke, const ScratchRoot& root, std::vector<Comparison>& comparisons)>;

/// The main function of a program of benchmarks: takes --smoke and Google Benchmark's options, runs
/// what is registered in a scratch root, and prints the comparisons. Returns the exit code: 1 when
/// an answer was wrong, 2 for an unknown option.
int run(int argc, char** argv, const RegisterAll& registerAll);

} // namespace Bench
