// Lists of observers that change while they are walked, against a simple model.

#include "Environment.h"
#include "Mox/Ptr.h"
#include "Pemble/Slab.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <random>
#include <set>

namespace {

struct Harness;

struct Member : Mox::PtrInterface::NotifieeConst {
    Member(Harness& theHarness, int theNumber);
    ~Member() override;
    void onAttribute(Mox::AttributeId attribute, const void* key) override;

    Harness& harness;
    int number;
};

/// Does at random what callbacks may do to the list, and keeps the numbers that must be in it.
struct Harness {
    explicit Harness(std::uint32_t seed)
        : random(seed) {}

    void add() {
        Mox::Ptr<Mox::PtrInterface::NotifieeConst> member(new Member(*this, next));
        member->hasNotificationActiveIs(true);
        list.newMember(nullptr, member, true);
        members[next++] = member.get();
    }
    void remove() {
        if (members.empty()) return;
        auto victim = members.begin();
        std::advance(victim, random() % members.size());
        const auto* const notifiee = victim->second;
        members.erase(victim);
        list.deleteMember(nullptr, notifiee);
    }
    void act() {
        switch (random() % 6) {
        case 0:
            add();
            break;
        case 1:
        case 2:
            remove();
            break;
        case 3:
            if (depth < 3) visit();
            break;
        default:
            break;
        }
        if (random() % 400 == 0) {
            members.clear();
            list.deleteAll();
        }
    }
    void visit() {
        ++depth;
        const int newest = next;
        std::set<int> outer = std::exchange(told, {});
        std::set<int> due;
        for (const auto& [number, member] : members) {
            due.insert(number);
        }
        list.visit(7);
        for (const int number : told) {
            EXPECT_LT(number, newest) << "added during the visit";
            EXPECT_TRUE(due.contains(number)) << "removed before the visit";
        }
        for (const int number : due) {
            EXPECT_TRUE(!members.contains(number) || told.contains(number)) << "left out";
        }
        told = std::move(outer);
        --depth;
    }

    std::mt19937 random;
    Mox::NotifieeList list;
    std::map<int, const Mox::PtrInterface::NotifieeConst*> members;
    std::set<int> told;
    int next = 0;
    int live = 0;
    int depth = 0;
};

Member::Member(Harness& theHarness, int theNumber)
    : harness(theHarness)
    , number(theNumber) {
    ++harness.live;
}
Member::~Member() { --harness.live; }
void Member::onAttribute(Mox::AttributeId attribute, const void* key) {
    EXPECT_EQ(attribute, 7U);
    EXPECT_EQ(key, nullptr);
    EXPECT_TRUE(harness.members.contains(number)) << "told after its removal";
    EXPECT_TRUE(harness.told.insert(number).second) << "told twice";
    harness.act();
}

TEST(NotifieeList, MayChangeWhileItIsVisited) {
    Harness harness(TestSupport::seedFor("observers", 12));
    for (int step = 0; step < 4000; ++step) {
        harness.add();
        harness.visit();
        EXPECT_EQ(harness.live, static_cast<int>(harness.members.size()));
        EXPECT_EQ(harness.list.empty(), harness.members.empty());
        while (harness.members.size() > 12) {
            harness.remove();
        }
    }
    harness.list.deleteAll();
    EXPECT_EQ(harness.live, 0);
}

TEST(Slab, HandsOutEveryPieceOnceAndAgain) {
    std::mt19937 random(5);
    std::map<std::byte*, std::size_t> held;
    for (int step = 0; step < 20000; ++step) {
        if (random() % 2 == 0 || held.empty()) {
            const std::size_t size = 1 + random() % 700;
            auto* const piece = static_cast<std::byte*>(Pemble::slabAlloc(size));
            const auto after = held.lower_bound(piece);
            EXPECT_TRUE(after == held.end() || piece + size <= after->first);
            EXPECT_TRUE(after == held.begin() ||
                        std::prev(after)->first + std::prev(after)->second <= piece);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(piece) % alignof(std::max_align_t), 0U);
            std::fill_n(piece, size, std::byte{0xAA});
            held[piece] = size;
        } else {
            auto victim = held.begin();
            std::advance(victim, random() % held.size());
            Pemble::slabFree(victim->first, victim->second);
            held.erase(victim);
        }
    }
    for (const auto& [piece, size] : held) {
        Pemble::slabFree(piece, size);
    }
}

} // namespace
