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
/// The file is written anew for each new name; who brings more has made them up.
constexpr std::size_t kMostNames = 4096;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"InterfaceMap", "rsvp-vesk/InterfaceMap", operation, line};
}

/// The octets of the UTF-8 character at `at`, which is no control character; 0 when there is none.
std::size_t characterAt(const std::string& text, std::size_t at) {
    const auto octet = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = octet(at);
    if (lead < 0x80) return lead >= 0x20 && lead != 0x7f && lead != '\\' ? 1 : 0;
    const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || at + size > text.size()) return 0;
    for (std::size_t i = at + 1; i < at + size; ++i) {
        if ((octet(i) & 0xc0U) != 0x80U) return 0;
    }
    const unsigned second = octet(at + 1);
    const bool overlong = (lead == 0xe0 && second < 0xa0) || (lead == 0xf0 && second < 0x90);
    const bool beyond = (lead == 0xed && second > 0x9f) || (lead == 0xf4 && second > 0x8f);
    const bool control = lead == 0xc2 && second < 0xa0;
    return overlong || beyond || control ? 0 : size;
}

/// A name may hold any octets. Those that are no UTF-8, control characters, which a terminal would
/// obey, and the backslash itself become "\xNN", so that names stay apart.
std::string printable(const std::string& name) {
    std::string result;
    for (std::size_t at = 0; at < name.size();) {
        if (const std::size_t size = characterAt(name, at); size != 0) {
            result.append(name, at, size);
            at += size;
        } else {
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(name[at++]));
        }
    }
    return result;
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

Wirra::IntfId InterfaceMap::idOf(const std::string& rawName) {
    const std::string name = printable(rawName);
    if (const auto known = ids_.find(name); known != ids_.end()) {
        return Wirra::IntfId(known->second);
    }
    const std::uint64_t id = names_.empty() ? 1 : names_.rbegin()->first + 1;
    if (id > kLargestId || names_.size() >= kMostNames) {
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
    const std::string text = nlohmann::json{{"interfaces", entries}}.dump(2) + "\n";
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

std::string InterfaceNames::nameOf(const Wirra::IntfId& id) {
    if ((!map_ || !map_->knows(id)) && nameless_.insert(id.raw()).second) {
        try {
            map_.emplace(root_);
            problem_.clear();
        } catch (const Pello::CorruptionDetectedException& e) {
            map_.reset();
            problem_ = e.message();
        }
    }
    return map_ ? map_->nameOf(id) : Wirra::valueToStrep(id);
}
