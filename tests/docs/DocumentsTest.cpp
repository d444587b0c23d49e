// What README.md and docs/ show and quote is what the programs print and the headers say.

#include "Documents.h"
#include "Environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>

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
    std::string words;
    for (const char c : text) {
        if (c == '`' || c == '*') continue;
        const char next = c == '\n' ? ' ' : c;
        if (next != ' ' || (!words.empty() && words.back() != ' ')) words += next;
    }
    return words;
}

/// The numbered invariants of a header's opening comment.
Docs::Lines invariantsOf(const std::string& header) {
    Docs::Lines invariants;
    bool inside = false;
    for (const std::string& line : Docs::linesOf(Docs::read(header))) {
        if (line.starts_with("// I") && line.size() > 4 && line[4] >= '0' && line[4] <= '9') {
            invariants.push_back(line.substr(3));
            inside = true;
        } else if (inside && line.starts_with("//     ")) {
            invariants.back() += line.substr(2);
        } else {
            inside = false;
        }
    }
    return invariants;
}

/// The invariants stand in the headers that keep them; the document quotes them.
TEST(Protocol, quotesEveryInvariant) {
    const std::string document = plain(Docs::read("docs/protocol.md"));
    std::size_t count = 0;
    for (const char* const header :
         {"platform/Vesk/SlotWords.h", "src/Vesk/SlotWriter.h", "src/VeskCore/WriterHashMap.h"}) {
        for (const std::string& invariant : invariantsOf(header)) {
            EXPECT_NE(document.find(plain(invariant)), std::string::npos) << plain(invariant);
            ++count;
        }
    }
    EXPECT_EQ(count, 10U);
}

/// The targets of all links.
Docs::Lines linksOf(const std::string& text) {
    Docs::Lines links;
    for (std::size_t at = 0; (at = text.find("](", at)) != std::string::npos; ++at) {
        links.push_back(text.substr(at + 2, text.find(')', at) - at - 2));
    }
    return links;
}

/// The name under which a link reaches a heading.
std::string anchorOf(const std::string& heading) {
    std::string anchor;
    for (const char c : heading.substr(heading.find_first_not_of("# "))) {
        const auto lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (std::isalnum(static_cast<unsigned char>(lower)) != 0 || lower == '-') anchor += lower;
        if (lower == ' ') anchor += '-';
    }
    return anchor;
}

bool hasHeading(const std::string& document, const std::string& anchor) {
    const Docs::Lines lines = Docs::linesOf(Docs::read(document));
    return std::any_of(lines.begin(), lines.end(), [&anchor](const std::string& line) {
        return line.starts_with('#') && anchorOf(line) == anchor;
    });
}

/// A link inside the project leads to a file or folder, and to a heading where it names one.
TEST(Documents, linkToWhatIsThere) {
    for (const std::string& document : kDocuments) {
        std::size_t checked = 0;
        for (const std::string& link : linksOf(Docs::read(document))) {
            if (link.starts_with("http")) continue;
            ++checked;
            const std::string target = link.substr(0, link.find('#'));
            const fs::path path =
                target.empty() ? fs::path(document) : fs::path(document).parent_path() / target;
            ASSERT_TRUE(fs::exists(fs::path(DOCS_PROJECT) / path)) << document << ": " << link;
            if (target.size() < link.size()) {
                EXPECT_TRUE(hasHeading(path.string(), link.substr(target.size() + 1)))
                    << document << ": no heading " << link;
            }
        }
        EXPECT_GT(checked, 0U) << document;
    }
}

} // namespace
