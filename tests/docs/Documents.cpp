#include "Documents.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace Docs {

namespace {

/// The line after the marker of that name.
Lines::const_iterator afterMarker(const Lines& lines, const std::string& document,
                                  const std::string& name) {
    const auto marker = std::find(lines.begin(), lines.end(), "<!-- checked: " + name + " -->");
    if (marker == lines.end()) throw std::runtime_error(document + " has no example " + name);
    return std::find_if(marker + 1, lines.end(), [](const auto& line) { return !line.empty(); });
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

} // namespace

std::string read(const std::string& path) {
    std::ifstream in(std::string(DOCS_PROJECT) + "/" + path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Lines linesOf(const std::string& text) {
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + '\n';
    }
    return text;
}

Lines block(const std::string& document, const std::string& name) {
    const Lines lines = linesOf(read(document));
    const auto open = afterMarker(lines, document, name);
    if (open == lines.end() || !open->starts_with("```")) {
        throw std::runtime_error(document + ": " + name + " is no fenced block");
    }
    return {open + 1, std::find(open + 1, lines.end(), "```")};
}

std::vector<Lines> table(const std::string& document, const std::string& name) {
    const Lines lines = linesOf(read(document));
    std::vector<Lines> rows;
    for (auto line = afterMarker(lines, document, name);
         line != lines.end() && line->starts_with('|'); ++line) {
        Lines cells;
        std::istringstream in(line->substr(1));
        for (std::string cell; std::getline(in, cell, '|');) {
            cells.push_back(trimmed(cell));
        }
        rows.push_back(cells);
    }
    if (rows.size() < 3) throw std::runtime_error(document + ": " + name + " is no table");
    rows.erase(rows.begin(), rows.begin() + 2);
    return rows;
}

Lines quoted(const std::string& text) {
    Lines parts;
    std::istringstream in(text);
    bool inside = false;
    for (std::string part; std::getline(in, part, '`'); inside = !inside) {
        if (inside) parts.push_back(part);
    }
    return parts;
}

std::string abridgementError(const Lines& shown, const Lines& real) {
    auto at = real.begin();
    bool gap = false;
    for (const std::string& line : shown) {
        if (line == "...") {
            gap = true;
            continue;
        }
        const auto found = gap ? std::find(at, real.end(), line) : at;
        if (found == real.end() || *found != line) return "not there: " + line;
        at = found + 1;
        gap = false;
    }
    return gap || at == real.end() ? std::string() : "left out without \"...\": " + *at;
}

} // namespace Docs
