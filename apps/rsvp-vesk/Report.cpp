#include "Report.h"

#include "Mem/RootPath.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

namespace {

const char* nameOf(Direction direction) { return direction == Direction::rx ? "rx" : "tx"; }

const char* nameOf(Wirra::AddressFamily family) {
    return family == Wirra::ipv4AddressFamily ? "ipv4" : "ipv6";
}

std::string nameOf(Rsvp::RsvpMsgType type) {
    if (type == Rsvp::rsvpNoneMsg) return "ERROR"; // counts the messages that were in error
    const std::string_view name = Rsvp::wireName(type);
    return name.empty() ? std::to_string(static_cast<std::uint32_t>(type)) : std::string(name);
}

struct NamedMessageRow : AgentTables::MessageRow {
    std::string interfaceName;
};

std::vector<NamedMessageRow> messageRows(const AgentTables& tables,
                                         const InterfaceMap& interfaces) {
    std::vector<NamedMessageRow> rows;
    for (const AgentTables::MessageRow& row : tables.messages()) {
        if (row.count != 0) rows.push_back({row, interfaces.nameOf(row.interface)});
    }
    const auto order = [](const NamedMessageRow& row) {
        return std::tie(row.interfaceName, row.direction, row.family, row.type);
    };
    std::sort(rows.begin(), rows.end(),
              [&](const auto& a, const auto& b) { return order(a) < order(b); });
    return rows;
}

std::vector<AgentTables::ErrorRow> errorRows(const AgentTables& tables) {
    std::vector<AgentTables::ErrorRow> rows = tables.errors();
    std::erase_if(rows, [](const auto& row) { return row.count == 0; });
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return std::tie(a.direction, a.error) < std::tie(b.direction, b.error);
    });
    return rows;
}

} // namespace

void reportJson(std::ostream& out, const AgentTables& tables, const InterfaceMap& interfaces,
                const FrameCounts& frames) {
    nlohmann::ordered_json messages = nlohmann::ordered_json::array();
    for (const NamedMessageRow& row : messageRows(tables, interfaces)) {
        messages.push_back({{"interface", row.interfaceName},
                            {"direction", nameOf(row.direction)},
                            {"family", nameOf(row.family)},
                            {"type", nameOf(row.type)},
                            {"typeNumber", static_cast<std::uint32_t>(row.type)},
                            {"count", row.count}});
    }
    nlohmann::ordered_json errors = nlohmann::ordered_json::array();
    for (const AgentTables::ErrorRow& row : errorRows(tables)) {
        errors.push_back({{"direction", nameOf(row.direction)},
                          {"error", Rsvp::stringValue(row.error)},
                          {"errorNumber", static_cast<std::uint32_t>(row.error)},
                          {"count", row.count}});
    }
    const nlohmann::ordered_json document{{"messages", messages},      {"errors", errors},
                                          {"frames", frames.frames},   {"rsvp", frames.rsvp},
                                          {"ignored", frames.ignored}, {"cut", frames.cut}};
    out << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void reportText(std::ostream& out, const AgentTables& tables, const InterfaceMap& interfaces,
                const FrameCounts& frames) {
    const std::vector<NamedMessageRow> messages = messageRows(tables, interfaces);
    std::size_t width = std::string_view("interface").size();
    for (const NamedMessageRow& row : messages) {
        width = std::max(width, row.interfaceName.size());
    }
    fmt::print(out, "{:<{}}  direction  family  type           count\n", "interface", width);
    for (const NamedMessageRow& row : messages) {
        fmt::print(out, "{:<{}}  {:<9}  {:<6}  {:<8}  {:>10}\n", row.interfaceName, width,
                   nameOf(row.direction), nameOf(row.family), nameOf(row.type), row.count);
    }
    fmt::print(out, "\n{:<40}  direction       count\n", "error");
    for (const AgentTables::ErrorRow& row : errorRows(tables)) {
        fmt::print(out, "{:<40}  {:<9}  {:>10}\n", Rsvp::stringValue(row.error),
                   nameOf(row.direction), row.count);
    }
    fmt::print(out, "\nframes {}: {} with RSVP, {} ignored, {} cut short by the capture\n",
               frames.frames, frames.rsvp, frames.ignored, frames.cut);
    fmt::print(out, "\nTables below {}:\n", Mem::RootPath::base());
    for (const std::string& folder : tables.folders()) {
        fmt::print(out, "  {}\n", folder.substr(Mem::RootPath::base().size() + 1));
    }
}
