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

/// The collections that the agent counts in, mounted for writing below the base of all root paths.
/// Counts go on from what the files hold.
class AgentTables {
  public:
    /// With `fresh` what the files hold is removed first. Throws what initialising a writer
    /// throws; tables that were opened before are closed again.
    explicit AgentTables(bool fresh);
    ~AgentTables();
    AgentTables(const AgentTables&) = delete;
    AgentTables& operator=(const AgentTables&) = delete;

    void countMessage(const Wirra::IntfId& interface, Direction direction,
                      Wirra::AddressFamily family, Rsvp::RsvpMsgType type);
    void countError(Direction direction, Rsvp::RsvpErrorType error);

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

    /// Every counter in the tables, in no particular order.
    std::vector<MessageRow> messages() const;
    std::vector<ErrorRow> errors() const;

    /// The folders of the tables.
    std::vector<std::string> folders() const;

  private:
    MoxVesk::Mounter mounter_;
    Mox::Ptr<Rsvp::Vesk::MessageCounterColl> messages_;
    Mox::Ptr<Rsvp::Vesk::ErrorCounterColl> errors_;
};
