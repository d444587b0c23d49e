// What README.md and docs/ show and quote is what the programs print and the headers say.

#include "Documents.h"
#include "Environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <regex>

namespace {

namespace fs = std::filesystem;

const std::array<std::string, 4> kDocuments = {"README.md", "docs/architecture.md",
                                               "docs/layout.md", "docs/protocol.md"};

/// What a command prints on stdout. Its failure is the test's.
std::string outputOf(const std::string& command) {
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("popen: " + command);
    std::array<char, 4096> part;
    for (std::size_t n = 0; (n = std::fread(part.data(), 1, part.size(), pipe)) > 0;) {
        text.append(part.data(), n);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

std::string agentCommand(const std::string& root, const std::string& options) {
    return std::string(DOCS_TOOL) + " --root " + root + " agent --pcap " + DOCS_PROJECT +
           "/samples/two-links.pcap --local 02:00:5e:10:00" + options;
}

/// The lines with the folder that a document shows in the place of `root`.
Docs::Lines relocated(std::string text, const std::string& root, const std::string& shown) {
    for (std::size_t at = 0; (at = text.find(root, at)) != std::string::npos; at += shown.size()) {
        text.replace(at, root.size(), shown);
    }
    return Docs::linesOf(text);
}

TEST(Readme, showsWhatTheAgentPrints) {
    const TestSupport::TempRoot root;
    EXPECT_EQ(Docs::abridgementError(Docs::block("README.md", "agent"),
                                     relocated(outputOf(agentCommand(root.path(), "")), root.path(),
                                               "/dev/shm/rsvp-vesk.4SI0NT")),
              "");
}

TEST(Readme, showsTheJsonThatTheAgentPrints) {
    const TestSupport::TempRoot root;
    EXPECT_EQ(Docs::abridgementError(Docs::block("README.md", "json"),
                                     Docs::linesOf(outputOf(agentCommand(root.path(), " --json")))),
              "");
}

TEST(Readme, showsAnExampleThatRuns) {
    EXPECT_EQ(Docs::joined(Docs::block("README.md", "example")),
              Docs::read("tests/docs/example.cpp"));
    const TestSupport::TempRoot root;
    EXPECT_EQ(Docs::block("README.md", "example output"),
              relocated(outputOf(std::string(DOCS_EXAMPLE) + " " + root.path()), root.path(),
                        "/dev/shm/rsvp-vesk"));
}

TEST(Layout, showsTheFilesOfARoot) {
    const TestSupport::TempRoot root;
    outputOf(agentCommand(root.path(), ""));
    Docs::Lines files;
    for (const auto& entry : fs::recursive_directory_iterator(root.path())) {
        if (entry.is_regular_file()) {
            files.push_back(fs::relative(entry.path(), root.path()).string());
        }
    }
    std::sort(files.begin(), files.end());
    EXPECT_EQ(Docs::abridgementError(Docs::block("docs/layout.md", "tree"), files), "");

    const auto bytes = TestSupport::fileBytes(root.path() + "/interfaces");
    EXPECT_EQ(Docs::joined(Docs::block("docs/layout.md", "interfaces")),
              std::string(bytes.begin(), bytes.end()));
}

/// Words with single blanks between, without the marks of Markdown.
std::string plain(const std::string& text) {
    const std::string unmarked = std::regex_replace(text, std::regex("[`*]"), "");
    return std::regex_replace(unmarked, std::regex("\\s+"), " ");
}

/// The invariants stand in the headers that keep them; the document quotes them.
TEST(Protocol, quotesEveryInvariant) {
    const std::string document = plain(Docs::read("docs/protocol.md"));
    std::size_t invariants = 0;
    for (const char* const header :
         {"platform/Vesk/SlotWords.h", "src/Vesk/SlotWriter.h", "src/VeskCore/WriterHashMap.h"}) {
        std::string invariant;
        for (const std::string& line : Docs::linesOf(Docs::read(header))) {
            const bool begins = std::regex_search(line, std::regex("^// I[0-9]+ "));
            if (!begins && !invariant.empty() && line.starts_with("//     ")) {
                invariant += " " + line.substr(3);
                continue;
            }
            if (!invariant.empty()) {
                EXPECT_NE(document.find(plain(invariant)), std::string::npos) << plain(invariant);
                ++invariants;
            }
            invariant = begins ? line.substr(3) : "";
        }
    }
    EXPECT_EQ(invariants, 10U);
}

/// A link inside the project leads to a file, and a heading behind '#' is there.
TEST(Documents, linkToWhatIsThere) {
    const std::regex link("\\]\\(([^)#]*)(#[^)]*)?\\)");
    for (const std::string& document : kDocuments) {
        const std::string text = Docs::read(document);
        std::size_t links = 0;
        for (std::sregex_iterator at(text.begin(), text.end(), link), end; at != end; ++at) {
            const std::string target = (*at)[1];
            if (target.starts_with("http")) continue;
            ++links;
            const fs::path path =
                target.empty() ? fs::path(document) : fs::path(document).parent_path() / target;
            EXPECT_TRUE(fs::exists(fs::path(DOCS_PROJECT) / path)) << document << ": " << target;
            const std::string anchor = (*at)[2];
            if (anchor.empty()) continue;
            bool found = false;
            for (const std::string& line : Docs::linesOf(Docs::read(path.string()))) {
                if (!line.starts_with('#')) continue;
                std::string heading = line.substr(line.find_first_not_of("# "));
                std::transform(heading.begin(), heading.end(), heading.begin(),
                               [](unsigned char c) { return std::tolower(c); });
                heading = std::regex_replace(heading, std::regex("[^a-z0-9 -]"), "");
                std::replace(heading.begin(), heading.end(), ' ', '-');
                found = found || "#" + heading == anchor;
            }
            EXPECT_TRUE(found) << document << ": no heading " << anchor << " in " << path;
        }
        EXPECT_GT(links, 0U) << document;
    }
}

} // namespace
