#include "InterfaceMap.h"

#include "Pello/Exception.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>

namespace {

Pello::SourceTag tagOf(const char* operation,
                       std::source_location where = std::source_location::current()) {
    return {"InterfaceMap", "rsvp-vesk/InterfaceMap", operation, where};
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
    try {
        const nlohmann::json document = nlohmann::json::parse(text);
        for (const nlohmann::json& entry : document.at("interfaces")) {
            const auto id = entry.at("id").get<std::uint64_t>();
            const auto name = entry.at("name").get<std::string>();
            const bool fresh = ids_.emplace(name, id).second && names_.emplace(id, name).second;
            if (!fresh) {
                Pello::raise<Pello::CorruptionDetectedException>(
                    tagOf("read"), "{}: \"{}\" or identifier {} stands there twice", path_.string(),
                    name, id);
            }
        }
    } catch (const nlohmann::json::exception& e) {
        Pello::raise<Pello::CorruptionDetectedException>(
            tagOf("read"), "{}: not a map of interfaces: {}", path_.string(), e.what());
    }
}

Wirra::IntfId InterfaceMap::idOf(const std::string& name) {
    if (const auto known = ids_.find(name); known != ids_.end()) {
        return Wirra::IntfId(known->second);
    }
    const std::uint64_t id = names_.empty() ? 1 : names_.rbegin()->first + 1;
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
