#pragma once

// Access to what the documents claim. A claim that a test checks stands directly after a line
// "<!-- checked: NAME -->": a fenced block, or a table.

#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace Docs {

inline std::string read(const std::string& document) {
    std::ifstream in(std::string(DOCS_PROJECT) + "/" + document, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + document);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The lines from the second one behind the marker of that name to the one before `end`.
inline std::string marked(const std::string& document, const std::string& name, const char* end) {
    const std::string text = read(document);
    const std::string marker = "\n<!-- checked: " + name + " -->\n";
    const std::size_t at = text.find(marker);
    if (at == std::string::npos) throw std::runtime_error(document + ": no example " + name);
    const std::size_t from = text.find('\n', at + marker.size()) + 1;
    return text.substr(from, text.find(end, from) + 1 - from);
}

/// The text inside the fenced block of that name.
inline std::string block(const std::string& document, const std::string& name) {
    return marked(document, name, "\n```\n");
}

using Row = std::vector<std::string>;

/// The cells of the table of that name, without its heading.
inline std::vector<Row> table(const std::string& document, const std::string& name) {
    std::vector<Row> rows;
    const std::string text = marked(document, name, "\n\n");
    const std::regex row("\\| *(.*?) *\\|\n");
    const std::regex bar(" *\\| *");
    for (std::sregex_iterator at(text.begin(), text.end(), row), end; at != end; ++at) {
        const std::string cells = (*at)[1];
        rows.emplace_back(std::sregex_token_iterator(cells.begin(), cells.end(), bar, -1),
                          std::sregex_token_iterator());
    }
    if (rows.size() < 2) throw std::runtime_error(document + ": " + name + " has no rows");
    rows.erase(rows.begin()); // the line below the heading
    return rows;
}

/// What stands between the first two backticks of a text; empty when there are none.
inline std::string quoted(const std::string& text) {
    const std::size_t from = text.find('`') + 1;
    return from == 0 ? "" : text.substr(from, text.find('`', from) - from);
}

} // namespace Docs
