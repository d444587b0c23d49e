#include "Report.h"

#include "Mem/RootPath.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <string_view>
#include <tuple>

namespace {

std::string nameOf(Direction direction) { return direction == Direction::rx ? "rx" : "tx"; }

std::string nameOf(Wirra::AddressFamily family) {
    return family == Wirra::ipv4AddressFamily ? "ipv4" : "ipv6";
}

std::string nameOf(Rsvp::RsvpMsgType type) {
    if (type == Rsvp::rsvpNoneMsg) return "ERROR"; // counts the messages that were in error
    const std::string_view name = Rsvp::wireName(type);
    return name.empty() ? std::to_string(static_cast<std::uint32_t>(type)) : std::string(name);
}

} // namespace

std::vector<NamedMessageRow> namedRows(const std::vector<CounterTables::MessageRow>& rows,
                                       InterfaceNames& names) {
    std::vector<NamedMessageRow> named;
    for (const CounterTables::MessageRow& row : rows) {
        if (row.count == 0) continue;
        named.push_back({names.nameOf(row.interface), nameOf(row.direction), nameOf(row.family),
                         nameOf(row.type), static_cast<std::uint32_t>(row.type), row.count});
    }
    const auto order = [](const NamedMessageRow& row) {
        return std::tie(row.interface, row.direction, row.family, row.typeNumber);
    };
    std::sort(named.begin(), named.end(),
              [&](const auto& a, const auto& b) { return order(a) < order(b); });
    return named;
}

std::vector<NamedErrorRow> namedRows(const std::vector<CounterTables::ErrorRow>& rows) {
    std::vector<NamedErrorRow> named;
    for (const CounterTables::ErrorRow& row : rows) {
        if (row.count == 0) continue;
        named.push_back({nameOf(row.direction), Rsvp::stringValue(row.error),
                         static_cast<std::uint32_t>(row.error), row.count});
    }
    std::sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
        return std::tie(a.direction, a.errorNumber) < std::tie(b.direction, b.errorNumber);
    });
    return named;
}

nlohmann::ordered_json jsonOf(const std::vector<NamedMessageRow>& rows) {
    nlohmann::ordered_json messages = nlohmann::ordered_json::array();
    for (const NamedMessageRow& row : rows) {
        messages.push_back({{"interface", row.interface},
                            {"direction", row.direction},
                            {"family", row.family},
                            {"type", row.type},
                            {"typeNumber", row.typeNumber},
                            {"count", row.count}});
    }
    return messages;
}

nlohmann::ordered_json jsonOf(const std::vector<NamedErrorRow>& rows) {
    nlohmann::ordered_json errors = nlohmann::ordered_json::array();
    for (const NamedErrorRow& row : rows) {
        errors.push_back({{"direction", row.direction},
                          {"error", row.error},
                          {"errorNumber", row.errorNumber},
                          {"count", row.count}});
    }
    return errors;
}

void print(std::ostream& out, const std::vector<NamedMessageRow>& rows) {
    std::size_t width = std::string_view("interface").size();
    for (const NamedMessageRow& row : rows) {
        width = std::max(width, row.interface.size());
    }
    fmt::print(out, "{:<{}}  direction  family  type           count\n", "interface", width);
    for (const NamedMessageRow& row : rows) {
        fmt::print(out, "{:<{}}  {:<9}  {:<6}  {:<8}  {:>10}\n", row.interface, width,
                   row.direction, row.family, row.type, row.count);
    }
}

void print(std::ostream& out, const std::vector<NamedErrorRow>& rows) {
    fmt::print(out, "{:<40}  direction       count\n", "error");
    for (const NamedErrorRow& row : rows) {
        fmt::print(out, "{:<40}  {:<9}  {:>10}\n", row.error, row.direction, row.count);
    }
}

void print(std::ostream& out, const nlohmann::ordered_json& document) {
    out << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void reportJson(std::ostream& out, const CounterTables& tables, InterfaceNames& names,
                const FrameCounts& frames) {
    print(out, nlohmann::ordered_json{{"messages", jsonOf(namedRows(tables.messages(), names))},
                                      {"errors", jsonOf(namedRows(tables.errors()))},
                                      {"frames", frames.frames},
                                      {"rsvp", frames.rsvp},
                                      {"ignored", frames.ignored},
                                      {"cut", frames.cut}});
}

void reportText(std::ostream& out, const CounterTables& tables, const HistoryTables& history,
                InterfaceNames& names, const FrameCounts& frames) {
    print(out, namedRows(tables.messages(), names));
    out << '\n';
    print(out, namedRows(tables.errors()));
    fmt::print(out, "\nframes {}: {} with RSVP, {} ignored, {} cut short by the capture\n",
               frames.frames, frames.rsvp, frames.ignored, frames.cut);
    fmt::print(out, "history: {} entries of sessions, {} of paths\n", history.sessionEntries(),
               history.pathEntries());
    fmt::print(out, "\nTables below {}:\n", Mem::RootPath::base());
    for (const auto& fronts : {tables.messageFronts(), tables.errorFronts(), history.fronts()}) {
        for (const Vesk::VeskMapBase* const front : fronts) {
            fmt::print(out, "  {}\n", front->rootPath().dirName());
        }
    }
}
