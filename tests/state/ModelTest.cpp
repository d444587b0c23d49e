// Random messages, and a model that keeps everything in lists and walks them all each time.

#include "Messages.h"

#include <algorithm>
#include <memory>
#include <random>
#include <tuple>

namespace State::Test {

using Feed2 = std::pair<unsigned, bool>;              // interface, sent
using Number = std::tuple<Feed2, unsigned, unsigned>; // neighbour, number
using Protection = std::tuple<bool, unsigned, bool>;
using Bandwidth = std::tuple<unsigned, unsigned, unsigned>; // admission, rate, interface

struct Said {
    unsigned lsp, rate, flags, hop; ///< hop 0: no RECORD_ROUTE
};

struct Heard {
    unsigned type, session, interface, source, hop, period, id;
    bool sent, isWildcard;
    std::int64_t time; ///< milliseconds
    std::vector<Said> said;
    std::vector<std::uint32_t> listed;
    unsigned code;

    [[nodiscard]] Octets octets() const {
        const bool isOfReservation = type == RESV || type == RESVERR || type == RESVTEAR;
        std::vector<Octets> parts;
        if (id != 0 && type != ACK && type != SREFRESH) parts.push_back(messageId(23, id));
        if (type == ACK) {
            for (const std::uint32_t each : listed) {
                parts.push_back(messageId(24, each));
            }
            return message(ACK, parts);
        }
        if (type == SREFRESH) return message(SREFRESH, {listOf(listed)});
        parts.push_back(p2p.sessionObject(static_cast<std::uint8_t>(session)));
        if (hop != 0) parts.push_back(Test::hop(static_cast<std::uint8_t>(hop)));
        if (period != 0) parts.push_back(times(period));
        if (code != 0) parts.push_back(error(static_cast<std::uint8_t>(code), 1));
        if (isOfReservation) parts.push_back(isWildcard ? wildcard : fixed);
        for (const Said& each : said) {
            parts.push_back(traffic(isOfReservation ? 9 : 12, static_cast<float>(each.rate)));
            if (!isWildcard) {
                parts.push_back(p2p.senderObject(isOfReservation ? 10 : 11,
                                                 static_cast<std::uint8_t>(each.lsp)));
            }
            if (each.hop != 0) {
                parts.push_back(recorded(static_cast<std::uint8_t>(each.hop),
                                         static_cast<std::uint8_t>(each.flags)));
            }
        }
        return message(type_(), parts);
    }

  private:
    [[nodiscard]] std::uint8_t type_() const { return static_cast<std::uint8_t>(type); }
};

class Model {
  public:
    [[nodiscard]] std::string hear(const Heard& heard) {
        text_.clear();
        last_ = -1;
        now_ = std::max(now_, heard.time);
        runOut();
        const Feed2 feed{heard.interface, heard.sent};
        if (heard.type == ACK || heard.type == SREFRESH) {
            for (const unsigned number : heard.listed) {
                refreshAll(heard, number);
            }
        } else if (heard.type == PATH || heard.type == RESV) {
            tell(heard, feed, heard.type - PATH);
        } else {
            for (const auto& [path, said] : named(heard)) {
                other(heard, path);
            }
        }
        return text_;
    }
    std::size_t paths() const { return paths_.size(); }

  private:
    struct Half {
        bool isUp = false;
        Feed2 feed;
        std::int64_t byFeed = 0, byOthers = 0;
        unsigned rate = 0;
        std::vector<std::pair<Number, unsigned>> ids; // with the period
    };
    struct Path {
        unsigned session, lsp, number;
        Half halves[2];
        const char* oper[2] = {"unknown", "unknown"};
        Protection available{}, downstream{};
        bool upstream = false;
        unsigned error = 0;
        Bandwidth bandwidth{};
    };

    void say(const std::string& what, std::int64_t time) {
        if (!text_.empty()) text_ += ' ';
        if (time != last_) text_ += fmt::format("{}: ", static_cast<double>(time) / 1e3);
        last_ = time;
        text_ += what;
    }
    void sayBandwidth(Path& path, const Bandwidth& is, std::int64_t time) {
        if (path.bandwidth == is) return;
        path.bandwidth = is;
        const char* const names[] = {"unknown", "pending", "admitted", "rejected"};
        const auto [admission, rate, interface] = is;
        say(fmt::format("bw({},{},{})", names[admission], 8 * rate, interface), time);
    }
    void sayProtection(const char* what, Protection& was, const Protection& is) {
        if (was == is) return;
        was = is;
        const auto [on, next, node] = is;
        say(fmt::format("{}{}({}{})", what, on ? '+' : '-',
                        on ? fmt::format("10.0.0.{}", next) : "none", node ? ",node" : ""),
            now_);
    }
    void sayOper(Path& path, std::int64_t time) {
        say(fmt::format("oper({},{})", path.oper[0], path.oper[1]), time);
    }
    static std::int64_t endOf(const Half& half) { return std::max(half.byFeed, half.byOthers); }

    void end(Path* path, bool ofPath, bool ofResv, std::int64_t time) {
        const bool hadResv = path->halves[1].isUp;
        const bool ends[] = {ofPath && path->halves[0].isUp, ofResv && hadResv};
        for (const int half : {0, 1}) {
            if (!ends[half]) continue;
            path->halves[half] = {};
            path->oper[half] = "down";
        }
        if (ends[0] || ends[1]) sayOper(*path, time);
        const Half& request = path->halves[0];
        if (ends[1] && request.isUp && std::get<0>(path->bandwidth) == 2) {
            sayBandwidth(*path, {1, request.rate, request.feed.first}, time);
        }
        if (request.isUp || path->halves[1].isUp) return;
        say(fmt::format("member-{}", path->number), time);
        const unsigned session = path->session;
        std::erase_if(paths_, [&](const auto& each) { return each.get() == path; });
        if (!has(session)) say("session-", time);
    }
    bool has(unsigned session) const {
        return std::any_of(paths_.begin(), paths_.end(),
                           [&](const auto& each) { return each->session == session; });
    }
    void runOut() {
        for (;;) {
            std::int64_t first = now_ + 1;
            Path* next = nullptr;
            for (const auto& path : paths_) {
                for (const Half& half : path->halves) {
                    if (!half.isUp || endOf(half) >= first) continue;
                    first = endOf(half);
                    next = path.get();
                }
            }
            if (next == nullptr) return;
            end(next, endOf(next->halves[0]) <= first, endOf(next->halves[1]) <= first, first);
        }
    }
    bool refresh(Half& half, const Feed2& feed, unsigned period) {
        const std::int64_t until = now_ + (period == 0 ? 30000 : period) * 21 / 4;
        if (half.isUp && half.feed != feed) {
            const bool takesOver = half.byFeed <= now_ || (half.feed.second && !feed.second);
            half.byOthers = std::max(half.byOthers, takesOver ? half.byFeed : until);
            if (!takesOver) return false;
        }
        half.isUp = true;
        half.feed = feed;
        half.byFeed = until;
        return true;
    }
    void refreshAll(const Heard& heard, unsigned number) {
        for (const auto& path : paths_) {
            for (Half& half : path->halves) {
                for (const auto& [id, period] : half.ids) {
                    const auto& [feed, neighbour, known] = id;
                    if (known != number || feed.first != heard.interface) continue;
                    if (feed.second != (heard.sent ^ (heard.type == ACK))) continue;
                    if (heard.type == SREFRESH && neighbour != heard.source) continue;
                    refresh(half, feed, period);
                }
            }
        }
    }
    std::vector<std::pair<Path*, Said>> named(const Heard& heard) {
        std::vector<std::pair<Path*, Said>> all;
        for (const Said& said : heard.said) {
            // Those of a wildcard message in the order in which the follower has them.
            for (auto path = paths_.rbegin(); path != paths_.rend(); ++path) {
                const bool isMeant = heard.isWildcard || (*path)->lsp == said.lsp;
                const bool isKnown = std::any_of(all.begin(), all.end(), [&](const auto& each) {
                    return each.first == path->get();
                });
                if ((*path)->session == heard.session && isMeant && !isKnown) {
                    all.emplace_back(path->get(), said);
                }
            }
        }
        return all;
    }
    void tell(const Heard& heard, const Feed2& feed, unsigned which) {
        const Number id{feed, heard.hop != 0 ? heard.hop : heard.source, heard.id};
        std::vector<Path*> told;
        const auto one = [&](Path* path, const Said& said) {
            if (std::find(told.begin(), told.end(), path) != told.end()) return;
            told.push_back(path);
            tellHalf(*path, which, said, feed, heard.period);
        };
        if (heard.isWildcard) {
            for (const auto& [path, said] : named(heard)) {
                one(path, said);
            }
        } else {
            for (const Said& said : heard.said) {
                Path* known = nullptr;
                for (const auto& path : paths_) {
                    if (path->session == heard.session && path->lsp == said.lsp) known = path.get();
                }
                if (known == nullptr) {
                    if (!has(heard.session)) say("session+", now_);
                    paths_.push_back(std::make_unique<Path>(Path{.session = heard.session,
                                                                 .lsp = said.lsp,
                                                                 .number = ++begun_,
                                                                 .halves = {}}));
                    known = paths_.back().get();
                    say(fmt::format("member+{}", begun_), now_);
                }
                one(known, said);
            }
        }
        if (heard.id == 0) return;
        for (const auto& path : paths_) {
            for (Half& half : path->halves) {
                const bool isTold = &half == &path->halves[which] &&
                                    std::find(told.begin(), told.end(), path.get()) != told.end();
                const auto same = [&](const auto& each) { return each.first == id; };
                const auto at = std::find_if(half.ids.begin(), half.ids.end(), same);
                if (!isTold) {
                    if (at != half.ids.end()) half.ids.erase(at);
                    continue;
                }
                if (at != half.ids.end()) {
                    at->second = heard.period;
                    continue;
                }
                const auto before = half.ids.size();
                std::erase_if(half.ids,
                              [&](const auto& each) { return std::get<0>(each.first) == feed; });
                if (half.ids.size() == before && before == 2) half.ids.erase(half.ids.begin());
                half.ids.emplace_back(id, heard.period);
            }
        }
    }
    void tellHalf(Path& path, unsigned which, const Said& said, const Feed2& feed,
                  unsigned period) {
        Half& half = path.halves[which];
        const bool isNew = !half.isUp;
        const bool tells = refresh(half, feed, period);
        if (isNew) {
            path.oper[which] = "up";
            sayOper(path, now_);
        }
        if (!tells) return;
        const unsigned flags = said.hop != 0 ? said.flags : 0;
        const bool node = (flags & 8U) != 0;
        if (which == 1) {
            const auto of = [&](unsigned flag) {
                return (flags & flag) != 0 ? Protection{true, said.hop, node} : Protection{};
            };
            sayProtection("available", path.available, of(1));
            sayProtection("downstream", path.downstream, of(2));
        } else if (path.upstream != ((flags & 2U) != 0)) {
            path.upstream = !path.upstream;
            say(path.upstream ? "upstream+" : "upstream-", now_);
        }
        const bool isOther = half.rate != said.rate;
        half.rate = said.rate;
        const unsigned admission = std::get<0>(path.bandwidth);
        const bool asks = admission < 2 || (isOther && !isNew);
        const bool answers = admission != 3 || isOther || isNew;
        if (which == 0 ? asks : answers)
            sayBandwidth(path, {which + 1, said.rate, feed.first}, now_);
    }
    void other(const Heard& heard, Path* path) {
        if (heard.type == PATHTEAR) end(path, true, true, now_);
        if (heard.type == RESVTEAR) end(path, false, true, now_);
        if (heard.type != PATHERR && heard.type != RESVERR) return;
        if (heard.code == 0) return;
        if (path->error != heard.code) say(fmt::format("error({},1)", heard.code), now_);
        path->error = heard.code;
        const auto [admission, rate, interface] = path->bandwidth;
        if (heard.code == 1) sayBandwidth(*path, {3, rate, interface}, now_);
    }

    std::vector<std::unique_ptr<Path>> paths_; // in the order in which they began
    std::string text_;
    std::int64_t now_ = 0, last_ = -1;
    unsigned begun_ = 0;
};

TEST(Model, RandomMessages) {
    std::size_t events = 0;
    std::size_t most = 0; // paths
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        const auto pick = [&](std::initializer_list<unsigned> values) {
            return values.begin()[random() % values.size()];
        };
        Log log;
        Follower follower(log);
        Model model;
        // Few paths that have much to do with each other, or many.
        const unsigned lsps = seed % 3 == 0 ? 200 : 3;
        std::int64_t time = 1000;
        for (int step = 0; step < 5000; ++step) {
            time +=
                pick({0, 0, 100, 1000, 1000, 5000, 20000, 70000}) / (lsps > 3 ? 40 : seed % 4 + 1);
            Heard heard{.type = pick({PATH, PATH, PATH, RESV, RESV, RESV, PATHERR, RESVERR,
                                      PATHTEAR, RESVTEAR, ACK, SREFRESH, SREFRESH}),
                        .session = pick({1, 2, 3}),
                        .interface = pick({1, 1, 2}),
                        .source = pick({50, 51}),
                        .hop = pick({0, 50, 51}),
                        .period = pick({0, 1000, 5000, 5000, 30000}),
                        .id = static_cast<unsigned>(random() % (2 * lsps)),
                        .sent = pick({0, 1}) != 0,
                        .isWildcard = false,
                        .time = pick({1, 1, 1, 0}) != 0 ? time : time - 30000,
                        .said = {},
                        .listed = {},
                        .code = pick({0, 1, 1, 24})};
            const bool isOfReservation = heard.type % 2 == 0;
            heard.isWildcard = isOfReservation && pick({0, 0, 0, 1}) != 0;
            // A number stands for so many halves at most.
            if (heard.isWildcard && lsps > MessageIds::kMost) heard.id = 0;
            while (heard.listed.size() < lsps / 2 + 1) {
                heard.listed.push_back(static_cast<unsigned>(random() % (2 * lsps)));
            }
            const unsigned senders = isOfReservation && !heard.isWildcard ? pick({0, 1, 2, 3}) : 1;
            for (unsigned sender = 0; sender < senders; ++sender) {
                heard.said.push_back({.lsp = static_cast<unsigned>(1 + random() % lsps),
                                      .rate = pick({100, 100, 100, 200}),
                                      .flags = pick({0, 1, 1, 2, 3, 9, 11}),
                                      .hop = pick({0, 7, 7, 8})});
            }
            const Octets octets = heard.octets();
            follower.message({.interface = Wirra::IntfId(heard.interface),
                              .sent = heard.sent,
                              .source = ip(false, static_cast<std::uint8_t>(heard.source)),
                              .time = heard.time * 1'000'000,
                              .message = octets});
            const std::string expected = model.hear(heard);
            ASSERT_EQ(log.take(), expected)
                << "seed " << seed << ", step " << step << ", type " << heard.type;
            ASSERT_EQ(follower.paths(), model.paths());
            most = std::max(most, model.paths());
            events += static_cast<std::size_t>(std::count(expected.begin(), expected.end(), ' '));
        }
    }
    EXPECT_GT(events, 100'000U);
    EXPECT_GT(most, 250U);
}

} // namespace State::Test
