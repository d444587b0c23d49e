#pragma once

// Access to what the documents claim. A claim that a test checks stands directly after a line
// "<!-- checked: NAME -->": a fenced block, or a table.

#include <string>
#include <vector>

namespace Docs {

using Lines = std::vector<std::string>;

/// A file of the project, by its path from the project's folder. Throws when there is none.
std::string read(const std::string& path);
Lines linesOf(const std::string& text);
std::string joined(const Lines& lines);

/// The lines of the fenced block of that name. Throws when the document has no such block.
Lines block(const std::string& document, const std::string& name);

/// The cells of the rows of the table of that name, without its heading. Throws like `block`.
std::vector<Lines> table(const std::string& document, const std::string& name);

/// What stands between backticks in a text.
Lines quoted(const std::string& text);

/// Whether `shown` is `real` with parts left out where it says "..." on a line of its own. The
/// reason when not.
std::string abridgementError(const Lines& shown, const Lines& real);

} // namespace Docs
