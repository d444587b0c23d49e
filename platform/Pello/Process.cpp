#include "Pello/Process.h"

#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace Pello {

namespace {

String fileText(const String& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

template <class Number>
bool parseNumber(const char*& at, const char* end, Number& number) {
    const auto [after, error] = std::from_chars(at, end, number);
    at = after;
    return error == std::errc();
}

} // namespace

ProcessId ProcessId::self() {
    const auto pid = static_cast<std::uint32_t>(getpid());
    return running(pid).value_or(ProcessId{pid, 0});
}

std::optional<ProcessId> ProcessId::running(std::uint32_t pid) {
    const String stat = fileText(fmt::format("/proc/{}/stat", pid));
    // The command name, in parentheses, may hold anything; what follows it begins with field 3.
    const std::size_t name = stat.rfind(')');
    if (name == String::npos) return std::nullopt;
    std::istringstream fields(stat.substr(name + 1));
    String state;
    fields >> state;
    if (state == "Z" || state == "X") return std::nullopt;
    String field;
    for (int number = 4; number < 22; ++number) {
        fields >> field;
    }
    ProcessId id{pid, 0};
    if (!(fields >> id.startTime)) return std::nullopt;
    return id;
}

std::optional<ProcessId> ProcessId::parse(const String& text) {
    ProcessId id;
    const char* at = text.data();
    const char* const end = at + text.size();
    if (!parseNumber(at, end, id.pid) || at == end || *at++ != '-' ||
        !parseNumber(at, end, id.startTime) || at != end) {
        return std::nullopt;
    }
    return id;
}

String ProcessId::text() const { return fmt::format("{}-{}", pid, startTime); }

bool ProcessId::alive() const { return running(pid) == *this; }

String ProcessId::command() const {
    String name = fileText(fmt::format("/proc/{}/comm", pid));
    if (!name.empty() && name.back() == '\n') name.pop_back();
    return name.empty() ? "?" : name;
}

} // namespace Pello
