// Full histories in shared memory, written and read by two processes.

#include "HistoryTables.h"

#include "Environment.h"
#include "Pello/Time.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <unistd.h>

namespace {

constexpr std::uint32_t kPaths = 30'000;
constexpr std::uint32_t kTooMany = 50'000; // entries beyond what a history holds

Rsvp::RsvpSessionId sessionOf(std::uint32_t number) {
    return {7, Wirra::IpGenAddr(), static_cast<std::uint16_t>(number), Wirra::IpGenAddr()};
}

/// Megabytes that the process has in memory.
double resident() {
    std::size_t pages = 0;
    std::ifstream statm("/proc/self/statm");
    statm >> pages >> pages;
    return static_cast<double>(pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) / 1e6;
}

TEST(History, IsFullAndDropsTheOldest) {
    const TestSupport::TempRoot root;
    const std::uint32_t sessions = Rsvp::RsvpSessionHistory::collectionSize;
    const std::uint32_t paths = Rsvp::RsvpSpHistory::collectionSize;
    const auto end = TestSupport::inChild([&] {
        HistoryTables tables(Vesk::VeskType::writer);
        const double begin = Pello::time();
        for (std::uint32_t i = 0; i < paths + kTooMany; ++i) {
            const std::int64_t time = std::int64_t{i} * 1'000'000'000;
            State::PathEvent event;
            event.path = Rsvp::RsvpSpId(sessionOf(i % kPaths), 1 + i % 3);
            event.time = time;
            event.type = Rsvp::rsvpSpBwStateHistoryEntry;
            event.state.bwState = {Rsvp::rsvpSpAdmittedBwAdmission, {}, i, {}};
            tables.path(event);
            if (i < sessions + kTooMany) {
                tables.session({sessionOf(i % kPaths), time, Rsvp::rsvpSessionMemberHistoryEntry,
                                Rsvp::RsvpCliId(i), i % 2 == 0});
            }
        }
        std::cerr << fmt::format("{:.1f} s, writer {:.0f} MB resident", Pello::time() - begin,
                                 resident());
    });
    ASSERT_TRUE(end.exited && end.code == 0) << end.errors;
    const HistoryTables reader(Vesk::VeskType::reader);
    for (const auto* front : reader.fronts())
        ASSERT_TRUE(front->ready());
    {
        const auto entries = reader.paths();
        ASSERT_EQ(entries.size(), paths);
        for (std::uint32_t i = 0; i < paths; ++i) {
            const std::uint32_t number = kTooMany + i;
            ASSERT_EQ(entries[i].bwState().bandwidth(), number);
            ASSERT_EQ(entries[i].timestamp().value(), number);
            ASSERT_EQ(entries[i].key().entryId(), 1 + number / kPaths);
        }
    }
    const auto entries = reader.sessions();
    ASSERT_EQ(entries.size(), sessions);
    for (std::uint32_t i = 0; i < sessions; ++i) {
        ASSERT_EQ(entries[i].spCliId().value(), kTooMany + i);
        ASSERT_EQ(entries[i].created(), (kTooMany + i) % 2 == 0);
    }
    std::cout << fmt::format("{} session and {} path entries of {} and {} that came: {}\n",
                             sessions, paths, sessions + kTooMany, paths + kTooMany, end.errors);
}

/// A writer that comes later goes on with the numbers.
TEST(History, GoesOnAfterARestart) {
    const TestSupport::TempRoot root;
    for (const std::uint32_t run : {0U, 1U}) {
        HistoryTables tables(Vesk::VeskType::writer);
        for (std::uint32_t i = 0; i < 10; ++i) {
            State::PathEvent event;
            event.path = Rsvp::RsvpSpId(sessionOf(i % 2), 1);
            event.time = 10 * run + i;
            tables.path(event);
        }
        const auto entries = tables.paths();
        ASSERT_EQ(entries.size(), 10U * (run + 1));
        EXPECT_EQ(entries.back().key().entryId(), 5 * (run + 1));
    }
    const HistoryTables fresh(Vesk::VeskType::writer, true);
    EXPECT_TRUE(fresh.paths().empty());
}

} // namespace
