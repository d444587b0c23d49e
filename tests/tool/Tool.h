#pragma once

// The tool as its users have it: a process with arguments, streams and an exit code.

#include "Environment.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <vector>

namespace ToolTest {

using nlohmann::json;

struct Outcome {
    int code; ///< exit code; 1000 and the signal that ended it otherwise
    std::string out;
    std::string err;
};

/// Runs the tool. The named streams are closed in it; its standard output goes to the file `out`
/// when that is given.
Outcome tool(const std::vector<std::string>& arguments, const std::vector<int>& closed = {},
             const char* out = nullptr);

/// What a report counts, by "interface direction family type" and by "error direction".
using Figures = std::map<std::string, std::uint64_t>;
Figures figuresOf(const json& report);

inline const std::string kSample = RSVPVESK_SAMPLES "/two-links.pcap";
json sampleReport();
/// The figures of the sample, read that many times.
Figures sampleFigures(std::uint64_t times = 1);

struct Tool : testing::Test {
    /// The agent with the sample's own address, below the root of this test.
    Outcome agent(std::vector<std::string> more, const std::vector<int>& closed = {},
                  const char* out = nullptr) const;
    /// What the tables hold, from a run over a capture without packets.
    Figures held() const;

    /// A file of this test; answers with its path.
    std::string write(const std::string& name, const std::string& bytes) const;
    /// The sample's first bytes.
    static std::string sample(std::size_t bytes = std::string::npos);

    TestSupport::TempRoot temp;
    std::string root = temp.path() + "/root";
};

} // namespace ToolTest
