#include "InterfaceMap.h"

#include "Pello/Exception.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>

namespace {

/// Far above any number of interfaces, and below the number that stands for no interface.
constexpr std::uint64_t kLargestId = 0xFFFF'FFFE;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"InterfaceMap", "rsvp-vesk/InterfaceMap", operation, line};
}

} // namespace

InterfaceMap::InterfaceMap(const std::filesystem::path& root)
    : path_(root / "interfaces") {
    read();
}

void InterfaceMap::read() {
    std::ifstream in(path_, std::ios::binary);
    if (!in) return;
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // Taken at its word: a file that says anything else would be lost with the next new name.
    const auto refuse = [this](const std::string& why) {
        Pello::raise<Pello::CorruptionDetectedException>(tagOf("read"), "{}: {}", path_.string(),
                                                         why);
    };
    try {
        const nlohmann::json document = nlohmann::json::parse(text);
        const nlohmann::json& entries = document.at("interfaces");
        if (!entries.is_array()) refuse("\"interfaces\" is no list");
        for (const nlohmann::json& entry : entries) {
            const nlohmann::json& number = entry.at("id");
            const auto name = entry.at("name").get<std::string>();
            const std::uint64_t id = number.is_number_unsigned() ? number.get<std::uint64_t>() : 0;
            if (id == 0 || id > kLargestId) {
                refuse(fmt::format("\"{}\" has identifier {}, wanted 1 to {}", name, number.dump(),
                                   kLargestId));
            }
            if (!ids_.emplace(name, id).second || !names_.emplace(id, name).second) {
                refuse(fmt::format("\"{}\" or identifier {} stands there twice", name, id));
            }
        }
    } catch (const nlohmann::json::exception& e) {
        refuse(fmt::format("not a map of interfaces: {}", e.what()));
    }
}

Wirra::IntfId InterfaceMap::idOf(const std::string& name) {
    if (const auto known = ids_.find(name); known != ids_.end()) {
        return Wirra::IntfId(known->second);
    }
    const std::uint64_t id = names_.empty() ? 1 : names_.rbegin()->first + 1;
    if (id > kLargestId) {
        Pello::raise<Pello::InvalidInitializeException>(
            tagOf("idOf"), "{}: no identifier is left for \"{}\"", path_.string(), name);
    }
    ids_.emplace(name, id);
    names_.emplace(id, name);
    try {
        write();
    } catch (...) {
        ids_.erase(name);
        names_.erase(id);
        throw;
    }
    return Wirra::IntfId(id);
}

std::string InterfaceMap::nameOf(const Wirra::IntfId& id) const {
    const auto known = names_.find(id.raw());
    return known != names_.end() ? known->second : Wirra::valueToStrep(id);
}

void InterfaceMap::write() const {
    nlohmann::json entries = nlohmann::json::array();
    for (const auto& [id, name] : names_) {
        entries.push_back({{"id", id}, {"name", name}});
    }
    // A capture's file name may hold any bytes; what is no UTF-8 is shown as such.
    const std::string text = nlohmann::json{{"interfaces", entries}}.dump(
                                 2, ' ', false, nlohmann::json::error_handler_t::replace) +
                             "\n";
    const std::filesystem::path fresh = path_.string() + ".new";
    std::ofstream out(fresh, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    std::error_code error;
    if (out) {
        chmod(fresh.c_str(), 0644);
        std::filesystem::rename(fresh, path_, error);
        if (!error) return;
    }
    const std::string reason = error ? error.message() : std::strerror(errno);
    std::filesystem::remove(fresh, error);
    Pello::raise<Pello::InvalidInitializeException>(tagOf("write"), "cannot write {}: {}",
                                                    path_.string(), reason);
}
