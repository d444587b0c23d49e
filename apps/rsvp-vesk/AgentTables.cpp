#include "AgentTables.h"

#include "Pello/Util.h"

#include <utility>

namespace {

constexpr std::uint32_t kMessageTableSize = 5632; // 512 interfaces, 11 types of message
constexpr std::uint32_t kErrorTableSize = 10;
constexpr const char* kMessagePath = "mpls/rsvp/messageCounters";
constexpr const char* kErrorPath = "mpls/rsvp/errorCounters";

template <class Writer, class Ops>
std::unique_ptr<Writer> open(const char* path, const char* table, std::uint32_t size,
                             const char* classType) {
    const std::string name = std::string(path) + "/" + table;
    auto handler =
        Pello::Platform::getDebugHandler(Pello::Util::traceHandleName(name, "", false), true);
    auto writer = std::make_unique<Writer>(std::move(handler), name,
                                           Vesk::MapDescriptor(size, Vesk::VeskType::writer), Ops(),
                                           classType, [](bool) {});
    writer->initialize("none");
    return writer;
}

/// Adds 1 to the counter of a key.
template <class Counter, class Writer, class Key>
void increment(Writer& writer, const Key& key) {
    bool found = false;
    const auto* const stored = writer.lookup(key, found, nullptr);
    Counter counter(key, found ? stored->count() : 0);
    counter.countInc(1);
    writer.write(counter, true);
}

template <class Writer, class Visit>
void forEach(const Writer& writer, Visit visit) {
    typename Writer::Value value;
    Vesk::IterHint hint;
    for (bool more = writer.first(value, hint); more;
         more = writer.next(value.key(), value, hint)) {
        visit(value);
    }
}

} // namespace

AgentTables::AgentTables() {
    using namespace Rsvp::Vesk;
    const auto messageTable = [this](const char* name, Direction direction,
                                     Wirra::AddressFamily family) {
        messageTables_.push_back(
            {direction, family,
             open<MessageCounterWriter, MessageCounterOps>(kMessagePath, name, kMessageTableSize,
                                                           "Rsvp::Vesk::MessageCounterColl")});
    };
    const auto errorTable = [this](const char* name, Direction direction) {
        errorTables_.push_back(
            {direction, open<ErrorCounterWriter, ErrorCounterOps>(kErrorPath, name, kErrorTableSize,
                                                                  "Rsvp::Vesk::ErrorCounterColl")});
    };
    messageTable("rxIpv4Count", Direction::rx, Wirra::ipv4AddressFamily);
    messageTable("rxIpv6Count", Direction::rx, Wirra::ipv6AddressFamily);
    messageTable("txIpv4Count", Direction::tx, Wirra::ipv4AddressFamily);
    messageTable("txIpv6Count", Direction::tx, Wirra::ipv6AddressFamily);
    errorTable("rxErrorCount", Direction::rx);
    errorTable("txErrorCount", Direction::tx);
}

void AgentTables::countMessage(const Wirra::IntfId& interface, Direction direction,
                               Wirra::AddressFamily family, Rsvp::RsvpMsgType type) {
    const std::size_t table =
        (direction == Direction::rx ? 0U : 2U) + (family == Wirra::ipv4AddressFamily ? 0U : 1U);
    increment<Rsvp::Vesk::MessageCounter>(*messageTables_[table].writer,
                                          Rsvp::Vesk::MessageCounterKey(interface, type));
}

void AgentTables::countError(Direction direction, Rsvp::RsvpErrorType error) {
    increment<Rsvp::Vesk::ErrorCounter>(*errorTables_[direction == Direction::rx ? 0 : 1].writer,
                                        Rsvp::Vesk::ErrorCounterKey(error));
}

std::vector<AgentTables::MessageRow> AgentTables::messages() const {
    std::vector<MessageRow> rows;
    for (const MessageTable& table : messageTables_) {
        forEach(*table.writer, [&](const Rsvp::Vesk::MessageCounter& counter) {
            rows.push_back({counter.key().intfId(), table.direction, table.family,
                            counter.key().mType(), counter.count()});
        });
    }
    return rows;
}

std::vector<AgentTables::ErrorRow> AgentTables::errors() const {
    std::vector<ErrorRow> rows;
    for (const ErrorTable& table : errorTables_) {
        forEach(*table.writer, [&](const Rsvp::Vesk::ErrorCounter& counter) {
            rows.push_back({table.direction, counter.key().errorType(), counter.count()});
        });
    }
    return rows;
}

std::vector<std::string> AgentTables::folders() const {
    std::vector<std::string> folders;
    for (const MessageTable& table : messageTables_) {
        folders.push_back(table.writer->rootPath().path());
    }
    for (const ErrorTable& table : errorTables_) {
        folders.push_back(table.writer->rootPath().path());
    }
    return folders;
}
