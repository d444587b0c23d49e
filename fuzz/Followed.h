#pragma once

#include "Checked.h"

#include "state/Follower.h"

#include <algorithm>
#include <array>

namespace Fuzz {

/// Counts what lives by the events told; a contradiction aborts.
class LiveCount : public State::Sink {
  public:
    void session(const State::SessionEvent& event) override {
        const bool isMember = event.type == Rsvp::rsvpSessionMemberHistoryEntry;
        expect(event.time >= time_);
        time_ = event.time;
        if (isMember) {
            members_ += event.created ? 1 : -1;
        } else {
            sessions_ += event.created ? 1 : -1;
        }
        expect(members_ >= 0 && sessions_ >= 0);
    }
    void path(const State::PathEvent& event) override {
        expect(event.time >= time_ && members_ > 0);
        time_ = event.time;
    }
    void isThatOf(const State::Follower& follower) const {
        expect(sessions_ == follower.sessions() && members_ == follower.paths());
        expect(follower.messageIds() <= 4 * follower.paths());
    }

  private:
    static void expect(bool holds) {
        if (!holds) std::abort();
    }

    std::int64_t time_ = 0;
    std::int64_t members_ = 0;
    std::int64_t sessions_ = 0;
};

/// Checks the decoder, and hands what is sound to a follower.
class Followed {
  public:
    void timeIs(std::int64_t time) { seen_.time = time; }
    void packet(const Packets::FrameSource& source) {
        checked_.packet(source);
        const bool isV4 = source.family == Packets::Family::ipv4;
        std::array<std::uint8_t, 16> bytes{};
        std::copy(source.address, source.address + (isV4 ? 4 : 16), bytes.begin());
        seen_.source = {bytes, isV4 ? Wirra::ipv4AddressFamily : Wirra::ipv6AddressFamily};
        seen_.sent = source.direction == Packets::Direction::sent;
    }
    void verdict(const Packets::Verdict& verdict) {
        checked_.verdict(verdict);
        if (verdict.message.empty()) return;
        seen_.message = verdict.message;
        follower_.message(seen_);
        live_.isThatOf(follower_);
    }
    void outcomeIs(Packets::Outcome outcome) { checked_.outcomeIs(outcome); }
    /// Nothing lives for ever.
    void end() {
        seen_.time = std::int64_t{1} << 62U;
        seen_.message = {};
        follower_.message(seen_);
        live_.isThatOf(follower_);
        if (follower_.paths() + follower_.sessions() + follower_.messageIds() != 0) std::abort();
    }

  private:
    Checked checked_;
    LiveCount live_;
    State::Observed seen_;
    State::Follower follower_{live_};
};

} // namespace Fuzz
