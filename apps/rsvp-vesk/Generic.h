#pragma once

#include <string>
#include <vector>

/// What `rsvp-vesk get` and `rsvp-vesk call` were asked to do.
struct GenericOptions {
    std::string type;      ///< name of a registered type, with its namespace or without
    std::string attribute; ///< of the type
    std::vector<std::string> arguments;
    bool json = false;
};

// Everything below goes through the descriptions of types alone: nothing here knows a collection,
// a value or an attribute when it is compiled.

/// Prints an attribute: of a table all elements, or that of a key, or the value of a constant; of
/// a value type that of the value given as text. Returns the exit code: 0 done, 1 there is no such
/// element or it failed, 2 no such type or attribute, 3 no such table, 4 corruption.
int runGet(const GenericOptions& options);

/// Calls a method or a static function and prints what it returns. Arguments are text forms; a
/// collection is named by the path where it is mounted. For a value type's method the first
/// argument is the value. Exit codes as above.
int runCall(const GenericOptions& options);
