#pragma once

#include "MoxVesk/MountInfo.h"
#include "Rsvp/ErrorCounterColl.h"
#include "Rsvp/MessageCounterColl.h"
#include "Rsvp/RsvpErrorType.h"
#include "Rsvp/RsvpMsgType.h"
#include "Wirra/AddressFamily.h"
#include "Wirra/IntfId.h"

#include <cstdint>
#include <string>
#include <vector>

/// Which way a message went, as seen by the agent.
enum class Direction : std::uint8_t {
    rx = 0,
    tx = 1
};

/// The collections of counters, or their snapshot, mounted below the base of all root paths.
class CounterTables {
  public:
    enum class Which : std::uint8_t {
        current,
        snapshot
    };

    /// Throws what initialising the tables for that use throws; those that were opened before are
    /// closed again. As a writer counts go on from what the files hold, unless `fresh`.
    CounterTables(Which which, Vesk::VeskType mode, bool fresh = false);
    ~CounterTables();
    CounterTables(const CounterTables&) = delete;
    CounterTables& operator=(const CounterTables&) = delete;

    void countMessage(const Wirra::IntfId& interface, Direction direction,
                      Wirra::AddressFamily family, Rsvp::RsvpMsgType type);
    void countError(Direction direction, Rsvp::RsvpErrorType error);
    /// Makes these tables a copy of others.
    void copyFrom(const CounterTables& original);

    struct MessageRow {
        Wirra::IntfId interface;
        Direction direction;
        Wirra::AddressFamily family;
        Rsvp::RsvpMsgType type;
        std::uint32_t count;
    };
    struct ErrorRow {
        Direction direction;
        Rsvp::RsvpErrorType error;
        std::uint32_t count;
    };

    /// Every counter in the tables, in no particular order; with a snapshot what it has grown by
    /// since.
    std::vector<MessageRow> messages(const CounterTables* since = nullptr) const;
    std::vector<ErrorRow> errors(const CounterTables* since = nullptr) const;

    /// The tables of messages and of errors, in the order in which they are mounted.
    std::vector<Vesk::VeskMapBase*> messageFronts() const;
    std::vector<Vesk::VeskMapBase*> errorFronts() const;

  private:
    MoxVesk::Mounter mounter_;
    std::string messagePath_;
    std::string errorPath_;
    Mox::Ptr<Rsvp::Vesk::MessageCounterColl> messages_;
    Mox::Ptr<Rsvp::Vesk::ErrorCounterColl> errors_;
};
