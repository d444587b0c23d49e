#pragma once

#include "Wirra/IntfId.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

/// The names of interfaces and the identifiers that stand for them in the tables: the file
/// `interfaces` below the root, a JSON object {"interfaces": [{"id": 1, "name": "et1"}, ...]}. It
/// is replaced as a whole, and an identifier never changes its name, so that a reader may keep
/// what it has read and look again only when it meets an identifier that it does not know.
class InterfaceMap {
  public:
    /// Reads the file; a missing one is an empty map. Throws `CorruptionDetectedException` for one
    /// that is not what this class writes.
    explicit InterfaceMap(const std::filesystem::path& root);

    /// The identifier of a name; a new name gets the next one and is written to the file before
    /// this returns. Throws `InvalidInitializeException` when the file cannot be written.
    Wirra::IntfId idOf(const std::string& name);

    /// The name behind an identifier; one that no name stands for gives its own text.
    std::string nameOf(const Wirra::IntfId& id) const;

    bool knows(const Wirra::IntfId& id) const { return names_.contains(id.raw()); }
    bool isName(const std::string& name) const { return ids_.contains(name); }

  private:
    void read();
    void write() const;

    std::filesystem::path path_;
    std::map<std::string, std::uint64_t> ids_;
    std::map<std::uint64_t, std::string> names_;
};

/// The names as a reader has them: the file is read again when an identifier comes that it did not
/// name before. A file that is not sound gives no names.
class InterfaceNames {
  public:
    explicit InterfaceNames(std::filesystem::path root)
        : root_(std::move(root)) {}

    /// The name behind an identifier; one that no name stands for gives its own text.
    std::string nameOf(const Wirra::IntfId& id);

    bool isName(const std::string& name) const { return map_ && map_->isName(name); }
    /// What is wrong with the file; empty when nothing is.
    const std::string& problem() const { return problem_; }

  private:
    std::filesystem::path root_;
    std::optional<InterfaceMap> map_;
    std::set<std::uint64_t> nameless_; ///< not to be looked for again
    std::string problem_;
};
