// Messages at given times, and the events that each gives.

#include "Messages.h"

#include <limits>

namespace State::Test {

struct Step {
    double time; ///< seconds
    Octets message;
    std::string events;
    std::uint8_t interface = 1;
    bool sent = false;
    std::uint8_t source = 50;
    bool isV6 = false;
};

void hear(Follower& follower, const Step& step) {
    follower.message({.interface = Wirra::IntfId(step.interface),
                      .sent = step.sent,
                      .source = ip(step.isV6, step.source),
                      .time = static_cast<std::int64_t>(step.time * 1e9),
                      .message = step.message});
}

void play(const std::vector<Step>& steps) {
    Log log;
    Follower follower(log);
    for (const Step& step : steps) {
        hear(follower, step);
        EXPECT_EQ(log.take(), step.events) << "step " << &step - steps.data();
    }
    // Long after, nothing is left, not even of what no event tells.
    hear(follower, {1e9, message(HELLO, {}), ""});
    EXPECT_EQ(follower.sessions() + follower.paths() + follower.messageIds(), 0U);
}

/// With a session and one sender, and what else is given.
[[nodiscard]] Octets make(std::uint8_t type, const std::vector<Octets>& others = {},
                          std::uint8_t lsp = 1, std::uint8_t session = 1, const Kind& kind = p2p) {
    const bool isOfReservation = type == RESV || type == RESVTEAR || type == RESVERR;
    Octets sender = kind.senderObject(isOfReservation ? 10 : 11, lsp);
    if (isOfReservation) sender = concat({shared, traffic(9, 100), sender});
    if (type == PATH) sender = concat({sender, traffic(12, 100)});
    return message(type, {kind.sessionObject(session), sender, concat(others)});
}
[[nodiscard]] Octets all(std::uint8_t type, const std::vector<Octets>& others = {}) {
    return message(type, {p2p.sessionObject(1), wildcard, traffic(9, 100), concat(others)});
}
[[nodiscard]] Octets other(std::uint8_t type, const Octets& object) {
    return message(type, {object});
}

const Octets hello = message(HELLO, {});
const std::string begun = ": session+ member+1 oper(up,unknown) bw(pending,800,1)";
const std::string reserved = ": oper(up,up) bw(admitted,800,1)";
const std::string ended = " member-1 session-";

TEST(Follower, LifeOfEveryKindOfPath) {
    for (const Kind& kind : kinds) {
        const auto of = [&](std::uint8_t type, std::uint8_t lsp = 1, std::uint8_t session = 1) {
            return make(type, {}, lsp, session, kind);
        };
        const Octets both = message(RESV, {kind.sessionObject(1), shared, traffic(9, 100),
                                           kind.senderObject(10, 2), kind.senderObject(10, 3)});
        SCOPED_TRACE(kind.name);
        play({{10, of(PATH), "10" + begun},
              {20, of(RESV), "20" + reserved},
              {30, of(PATH), ""},
              {40, of(RESV), ""},
              {41, of(PATH, 2), "41: member+2 oper(up,unknown) bw(pending,800,1)"},
              {42, of(PATH, 1, 2), "42: session+ member+3 oper(up,unknown) bw(pending,800,1)"},
              {43, both,
               "43: oper(up,up) bw(admitted,800,1) "
               "member+4 oper(unknown,up) bw(admitted,800,1)"},
              {44, of(RESVTEAR), "44: oper(up,down) bw(pending,800,1)"},
              {45, of(RESVTEAR), ""},
              {46, of(RESVTEAR, 3), "46: oper(unknown,down) member-4"},
              {47, of(PATHTEAR), "47: oper(down,down) member-1"},
              {48, of(PATHTEAR), ""},
              {49, of(PATHTEAR, 2), "49: oper(down,down) member-2 session-"},
              {50, of(PATHTEAR, 1, 2), "50: oper(down,unknown) member-3 session-"},
              {51, of(RESV), "51: session+ member+5 oper(unknown,up) bw(admitted,800,1)"},
              {52, of(PATH), "52: oper(up,up)"},
              {600, hello,
               "208.5: oper(up,down) bw(pending,800,1) "
               "209.5: oper(down,down) member-5 session-"}});
        Log log;
        Follower follower(log);
        hear(follower, {1, of(PATH, 7, 9), ""});
        EXPECT_EQ(log.paths, std::vector(2, kind.pathId(9, 7)));
        EXPECT_EQ(log.sessions, std::vector(2, kind.sessionId(9)));
    }
}

TEST(Follower, StateRunsOut) {
    // (3 + 1/2) * 1.5 * 30 s without TIME_VALUES, and with it.
    play({{10, make(PATH), "10" + begun},
          {167.4, make(PATH), ""},
          {324.8, hello, ""},
          {324.95, hello, "324.9: oper(down,unknown)" + ended}});
    play({{10, make(PATH, {times(1000)}), "10" + begun},
          {12, make(RESV, {times(2000)}), "12" + reserved},
          {15.2, make(PATH, {times(10000)}), ""}, // a period may change
          {22.4, make(RESV, {times(1000)}), ""},
          {30, hello, "27.65: oper(up,down) bw(pending,800,1)"},
          {80, make(PATH),
           "67.7: oper(down,down)" + ended +
               " 80: session+ member+2 oper(up,unknown) bw(pending,800,1)"},
          {90, make(PATHTEAR), "90: oper(down,unknown) member-2 session-"}});
    // Several at once, in the order of their times, those of one time in the order of their begin.
    play({{1, make(PATH, {times(3000)}, 3), "1" + begun},
          {2, make(PATH, {times(1000)}, 2), "2: member+2 oper(up,unknown) bw(pending,800,1)"},
          {2, make(PATH, {times(1000)}, 1), "2: member+3 oper(up,unknown) bw(pending,800,1)"},
          {90, hello,
           "7.25: oper(down,unknown) member-2 oper(down,unknown) member-3 "
           "16.75: oper(down,unknown)" +
               ended}});
    // The longest of periods.
    play({{1, make(PATH, {times(~0U)}), "1" + begun},
          {1e7, make(RESV, {times(0)}), "10000000" + reserved},
          {1.1e7, make(PATHTEAR),
           "10000157.5: oper(up,down) bw(pending,800,1) "
           "11000000: oper(down,down)" +
               ended}});
}

TEST(Follower, TimeOfCaptures) {
    play({{0, make(PATH), "0" + begun}, // unknown
          {100, make(RESV), "100" + reserved},
          {-50, make(PATH), ""},
          {0, make(RESVERR, {error(2, 0)}), "100: error(2,0)"},
          {20, make(RESV, {}, 2), "100: member+2 oper(unknown,up) bw(admitted,800,1)"},
          {257.4, make(PATH), ""},
          {257.6, hello, "257.5: oper(up,down) bw(pending,800,1) oper(unknown,down) member-2"},
          {30, make(RESVTEAR), ""},
          {414, make(PATHTEAR), "414: oper(down,down)" + ended}});
    Log log;
    Follower follower(log);
    constexpr auto end = std::numeric_limits<std::int64_t>::max();
    const Octets path = make(PATH, {times(~0U)});
    for (const std::int64_t time : {end, -end, end - 1, std::int64_t{5}, end}) {
        follower.message(
            {.interface = Wirra::IntfId(1), .source = {}, .time = time, .message = path});
    }
    EXPECT_EQ(log.sessions.size(), 2U); // neither ended nor began anew
}

TEST(Follower, WildcardReservationsAndOddMessages) {
    play({{1, all(RESV), ""},
          {1, make(PATH), "1" + begun},
          {2, make(PATH, {}, 2), "2: member+2 oper(up,unknown) bw(pending,800,1)"},
          {3, all(RESV), "3: oper(up,up) bw(admitted,800,1) oper(up,up) bw(admitted,800,1)"},
          {4, all(RESV), ""},
          {4, all(RESVERR, {error(4, 1), p2p.senderObject(10, 2)}), "4: error(4,1)"},
          {5, all(RESVERR, {error(4, 2)}), "5: error(4,2) error(4,2)"},
          {6, message(RESV, {p2p.sessionObject(1), shared}), ""}, // not wildcard, and no filter
          {6, message(RESVTEAR, {p2p.sessionObject(1)}), ""},
          {6, message(PATH, {p2p.sessionObject(1)}), ""},
          {6, message(PATHTEAR, {p2p.sessionObject(1)}), ""},
          {6, make(PATHERR, {}), ""}, // without an error
          {6, make(PATHERR, {error(1, 1)}, 3), ""},
          {6, make(RESVTEAR, {}, 3), ""},
          {7, make(PATHTEAR), "7: oper(down,down) member-1"},
          {8, all(RESVTEAR), "8: oper(up,down) bw(pending,800,1)"},
          {9, make(PATHTEAR, {}, 2), "9: oper(down,down) member-2 session-"}});
}

TEST(Follower, ProtectionErrorsAndBandwidth) {
    const Octets more =
        message(PATH, {p2p.sessionObject(1), p2p.senderObject(11, 1), traffic(12, 200)});
    play({{1, make(PATH, {recorded(7, 0)}), "1" + begun},
          {2, make(PATH, {recorded(7, 2)}), "2: upstream+"},
          {3, make(RESV, {recorded(8, 1)}),
           "3: oper(up,up) available+(10.0.0.8) bw(admitted,800,1)"},
          {4, make(RESV, {recorded(8, 1)}), ""},
          {5, make(RESV, {recorded(8, 9)}), "5: available+(10.0.0.8,node)"},
          {6, make(RESV, {recorded(9, 11)}),
           "6: available+(10.0.0.9,node) downstream+(10.0.0.9,node)"},
          {7, make(RESV, {recorded(9, 2)}), "7: available-(none) downstream+(10.0.0.9)"},
          {8, make(RESV), "8: downstream-(none)"},
          {9, make(PATH), "9: upstream-"},
          {10, more, "10: bw(pending,1600,1)"},
          {11, make(RESV), "11: bw(admitted,800,1)"},
          {12, more, ""},
          {13, make(PATHERR, {error(24, 5)}), "13: error(24,5)"},
          {14, make(PATHERR, {error(24, 5)}), ""},
          {15, make(RESVERR, {error(1, 2)}), "15: error(1,2) bw(rejected,800,1)"},
          {16, make(RESV), ""}, // says what was rejected
          {17,
           message(RESV, {p2p.sessionObject(1), shared, traffic(9, 50), p2p.senderObject(10, 1)}),
           "17: bw(admitted,400,1)"},
          {18, make(PATHERR, {error(1, 2)}), "18: bw(rejected,400,1)"},
          {19, make(RESVTEAR), "19: oper(up,down)"},
          {20, make(PATH), "20: bw(pending,800,1)"},
          {21, make(PATHTEAR), "21: oper(down,down)" + ended}});
}

TEST(Follower, ReservationOfNoBandwidth) {
    const Octets none = message(RESV, {p2p.sessionObject(1), shared, p2p.senderObject(10, 1)});
    play({{1, make(PATH), "1" + begun},
          {2, make(PATHERR, {error(1, 2)}), "2: error(1,2) bw(rejected,800,1)"},
          {3, none, "3: oper(up,up) bw(admitted,0,1)"},
          {4, make(RESVERR, {error(1, 2)}), "4: bw(rejected,0,1)"},
          {5, none, ""},
          {6, make(PATHTEAR), "6: oper(down,down)" + ended}});
}

/// The copies of a message on both sides of a node refresh one state, and do not contradict.
TEST(Follower, SeveralFeeds) {
    const Octets in = make(PATH, {recorded(7, 0)});
    const Octets out = make(PATH, {recorded(8, 2)});
    play({{1, in, "1" + begun},
          {1, out, "", 2, true},
          {31, in, ""},
          {31, out, "", 2, true},
          {100, out, "", 2, true}, // the first feed was silent for 69 s
          {189, out, "189: upstream+ bw(pending,800,2)", 2, true},
          {200, in, "200: upstream- bw(pending,800,1)"}, // rather what is received
          {210, out, "", 2, true},
          {367, hello, ""},
          {368, hello, "367.5: oper(down,unknown)" + ended}});
    // The longer life counts.
    play({{1, make(PATH, {times(1000)}), "1" + begun},
          {2, make(PATH, {times(10000)}), "", 2, false},
          {3, make(PATH, {times(1000)}), ""},
          {54, hello, ""},
          {56, hello, "54.5: oper(down,unknown)" + ended}});
}

TEST(Follower, RefreshByMessageId) {
    const Octets ids = other(SREFRESH, listOf({5, 7, 8}));
    play({{1, make(PATH, {hop(60), messageId(23, 7)}), "1" + begun},
          {100, ids, "", 1, false, 70, true}, // the neighbour's address of the other family
          {257, make(PATHTEAR), "257: oper(down,unknown)" + ended}});
    play({{1, make(PATH, {hop(60), messageId(23, 7)}), "1" + begun},
          {2, make(RESV, {hop(61), messageId(23, 8)}), "2" + reserved, 1, true, 61},
          {100, ids, "", 1, false, 60},                               // PATH
          {150, ids, "", 1, false, 61},                               // the other's number
          {151, ids, "", 2, false, 60},                               // elsewhere
          {152, ids, "", 1, true, 60},                                // the other way
          {153, make(PATHERR, {messageId(24, 8)}), "", 1, false, 60}, // RESV, acknowledged
          {154, other(ACK, messageId(24, 8)), "", 1, true, 60},       // the wrong way
          {155, other(ACK, messageId(24, 8, 2)), "", 1, false, 60},   // refused
          {257.6, hello, "257.5: oper(down,up)"},
          {300, ids, "", 1, false, 60}, // no longer known
          {310, ids, "", 1, true, 61},  // RESV
          {400, make(PATH), "400: oper(up,up)"},
          {500, hello, "467.5: oper(up,down) bw(pending,800,1)"},
          {501, make(PATHTEAR), "501: oper(down,down)" + ended}});
    // A number stands for what its last message told; without RSVP_HOP, the source gave it.
    const Octets one = p2p.senderObject(10, 1);
    const Octets two = p2p.senderObject(10, 2);
    const Octets number = concat({messageId(23, 7), p2p.sessionObject(1), shared, times(10000)});
    play({{1, message(RESV, {number, one, two}),
           "1: session+ member+1 oper(unknown,up) bw(admitted,0,1) "
           "member+2 oper(unknown,up) bw(admitted,0,1)"},
          {40, ids, ""},
          {80, message(RESV, {number, two, two}), ""},
          {100, ids, "92.5: oper(unknown,down) member-1"},
          {140, make(PATH, {messageId(23, 7)}, 2), "140: oper(up,up)"},
          {200, ids, "152.5: oper(up,down) bw(pending,800,1)"},
          {357, make(PATH, {messageId(23, 9)}, 2), ""}, // has a new number
          {358, ids, ""},
          {515, hello, "514.5: oper(down,down) member-2 session-"}});
}

TEST(Follower, MessageIdsAreBounded) {
    Log log;
    Follower follower(log);
    double time = 1;
    for (unsigned number = 1; number <= 1000; ++number) {
        const auto neighbour = static_cast<std::uint8_t>(number);
        const auto lsp = static_cast<std::uint8_t>(number / 256);
        hear(follower, {time, make(PATH, {hop(neighbour), messageId(23, number)}, lsp), ""});
        hear(follower, {time, make(RESV, {hop(neighbour), messageId(23, 7)}, neighbour), ""});
        time += 0.1;
    }
    EXPECT_EQ(follower.paths(), 256U);
    EXPECT_LE(follower.messageIds(), 4 * 2 + 64U); // two of each PATH, and of one number few
    EXPECT_GE(follower.messageIds(), 4 * 2 + 60U);
    for (unsigned lsp = 0; lsp < 256; ++lsp) {
        hear(follower, {time, make(PATHTEAR, {}, static_cast<std::uint8_t>(lsp)), ""});
    }
    EXPECT_EQ(follower.sessions() + follower.paths() + follower.messageIds(), 0U);
}

TEST(Follower, NumberThatMeansNoneIsLeftOut) {
    Log log;
    Follower follower(log);
    const Step begin{1, make(PATH), ""};
    const Step end{1, make(PATHTEAR), ""};
    std::string heard;
    for (std::uint32_t path = 1; path <= Rsvp::RsvpCliId::kNone; ++path) {
        hear(follower, begin);
        hear(follower, end);
        heard = log.take();
        log.sessions.clear();
        log.paths.clear();
    }
    EXPECT_NE(heard.find(fmt::format("member+{} ", Rsvp::RsvpCliId::kNone + 1)), std::string::npos);
}

TEST(Follower, FullTables) {
    Log log;
    Follower follower(log, {.sessions = 2, .paths = 4});
    const auto counts = [&] {
        return fmt::format("{} {} {} {}", follower.sessions(), follower.paths(),
                           follower.refusedSessions(), follower.refusedPaths());
    };
    for (const std::uint8_t session : Octets{1, 2, 3, 1}) {
        for (const std::uint8_t lsp : Octets{1, 2, 3}) {
            hear(follower, {1, make(PATH, {}, lsp, session), ""});
        }
    }
    EXPECT_EQ(counts(), "2 4 3 2");
    (void)log.take();
    hear(follower, {2, make(PATHTEAR, {}, 1, 1), ""});
    hear(follower, {2, make(PATH, {}, 7, 2), ""});
    EXPECT_EQ(counts(), "2 4 3 2");
    EXPECT_EQ(log.take(),
              "2: oper(down,unknown) member-1 member+5 oper(up,unknown) bw(pending,800,1)");
    hear(follower, {200, make(PATH, {}, 7, 7), ""});
    EXPECT_EQ(counts(), "1 1 3 2");
}

} // namespace State::Test
