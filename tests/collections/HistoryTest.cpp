// The history collections: what a table of them holds and tells, here and in other processes.

#include "Environment.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/RsvpSessionHistory.h"
#include "Rsvp/RsvpSpHistory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

namespace {

using namespace Rsvp;
using Mox::Ptr;
using Mox::Seconds;

/// The members of one collection under common names.
struct Sessions {
    using Coll = RsvpSessionHistory;
    using Entry = RsvpSessionHistoryEntry;
    using Key = RsvpSessionHistoryKey;

    static constexpr const char* kFacts = "mpls/rsvp/sessionHistory sessionHistory 500000 4";
    static Ptr<Coll> make() { return Coll::RsvpSessionHistoryIs("h"); }
    static Key key(std::uint32_t number) {
        return {{7, Wirra::IpGenAddr(), static_cast<std::uint16_t>(number % 50), {}}, number};
    }
    static Entry entry(std::uint32_t number, double time) {
        Entry entry(key(number), Seconds(time), rsvpSessionMemberHistoryEntry);
        entry.spCliIdIs(RsvpCliId(number));
        return entry;
    }
    static Entry get(Coll& coll, const Key& key) { return coll.sessionHistory(key); }
    static void is(Coll& coll, const Entry& entry) { coll.sessionHistoryIs(entry); }
    static Entry del(Coll& coll, const Key& key) { return coll.sessionHistoryDel(key); }
    static void delAll(Coll& coll) { coll.sessionHistoryDelAll(); }
    static void commit(Coll& coll, const Entry* entry) { coll.sessionHistoryCommit(entry); }
    static auto& map(Coll& coll) { return coll.sessionHistoryMap(); }
};

struct Paths {
    using Coll = RsvpSpHistory;
    using Entry = RsvpSpHistoryEntry;
    using Key = RsvpSpHistoryKey;

    static constexpr const char* kFacts = "mpls/rsvp/spHistory spHistory 1000000 7";
    static Ptr<Coll> make() { return Coll::RsvpSpHistoryIs("h"); }
    static Key key(std::uint32_t number) {
        const RsvpSessionId session(13, Wirra::IpGenAddr(), 5, {});
        const P2mpSubGroupId group({}, static_cast<std::uint16_t>(number));
        return number % 2 == 0 ? Key({session, number % 100}, number)
                               : Key({session, number % 100, group}, number);
    }
    static Entry entry(std::uint32_t number, double time) {
        Entry entry(key(number), Seconds(time), rsvpSpBwStateHistoryEntry);
        entry.bwStateIs(RsvpSpBwState(rsvpSpAdmittedBwAdmission, {}, number, {}));
        return entry;
    }
    static Entry get(Coll& coll, const Key& key) { return coll.spHistory(key); }
    static void is(Coll& coll, const Entry& entry) { coll.spHistoryIs(entry); }
    static Entry del(Coll& coll, const Key& key) { return coll.spHistoryDel(key); }
    static void delAll(Coll& coll) { coll.spHistoryDelAll(); }
    static void commit(Coll& coll, const Entry* entry) { coll.spHistoryCommit(entry); }
    static auto& map(Coll& coll) { return coll.spHistoryMap(); }
};

/// Keeps the text of every key that it is told of.
struct Observer : Mox::PtrInterface::NotifieeConst {
    using Tell = std::function<void(Mox::AttributeId, const void*)>;
    explicit Observer(Tell theTell)
        : tell(std::move(theTell)) {
        hasNotificationActiveIs(true);
    }
    void onAttribute(Mox::AttributeId attribute, const void* key) override { tell(attribute, key); }
    Tell tell;
};

template <class H>
struct Histories : testing::Test {
    using Coll = typename H::Coll;
    using Entry = typename H::Entry;

    void mountAs(::Vesk::VeskType mode) {
        mounter.mount(coll, Coll::mountPath, Coll::writerMountInfo(), mode);
    }
    static std::vector<Entry> entriesOf(Coll& coll) {
        std::vector<Entry> entries;
        using Map = std::remove_reference_t<decltype(H::map(coll))>;
        for (typename Map::IteratorConst each(&H::map(coll)); each.valid(); each.advance()) {
            entries.push_back(*each);
        }
        return entries;
    }

    TestSupport::TempRoot root;
    Ptr<Coll> coll = H::make();
    MoxVesk::Mounter mounter;
};

using Kinds = testing::Types<Sessions, Paths>;
TYPED_TEST_SUITE(Histories, Kinds, );

TYPED_TEST(Histories, HaveTheirNamesAndSizes) {
    using H = TypeParam;
    using Of = typename H::Coll;
    const MoxVesk::MountInfo info = Of::writerMountInfo();
    ASSERT_EQ(info.collections().size(), 1U);
    EXPECT_EQ(fmt::format("{} {} {} {}", Of::mountPath, info.collections()[0].name,
                          info.collections()[0].size, this->coll->fwkType().typeNumber),
              H::kFacts);
    EXPECT_EQ(this->coll->fwkType().module, "RsvpHistory");
    EXPECT_EQ(info.type(), 0U);
    EXPECT_FALSE(info.collections()[0].flag);
    EXPECT_EQ(info.collections()[0].size, Of::collectionSize);
}

TYPED_TEST(Histories, TellOfEveryChangeOnce) {
    using H = TypeParam;
    auto& mine = *this->coll;
    std::vector<std::uint32_t> told;
    const Ptr<Mox::PtrInterface::NotifieeConst> observer(
        new Observer([&told](Mox::AttributeId attribute, const void* key) {
            EXPECT_EQ(attribute, 0x102U);
            told.push_back(static_cast<const typename H::Key*>(key)->entryId());
        }));
    mine.notifieeList()->newMember(&mine, observer, true);
    H::is(mine, H::entry(3, 1));
    H::is(mine, H::entry(3, 2)); // replaces it
    EXPECT_EQ(H::get(mine, H::key(3)), H::entry(3, 2));
    EXPECT_EQ(H::get(mine, H::key(4)), typename H::Entry());
    EXPECT_EQ(H::del(mine, H::key(4)), typename H::Entry());
    *H::map(mine).directWrite(H::entry(3, 2)) = H::entry(3, 9);
    const auto changed = H::entry(3, 9);
    H::commit(mine, &changed);
    EXPECT_EQ(H::del(mine, H::key(3)), H::entry(3, 9));
    EXPECT_EQ(told, (std::vector<std::uint32_t>{3, 3, 3, 3}));
    H::is(mine, H::entry(5, 1));
    H::is(mine, H::entry(6, 1));
    told.clear();
    H::delAll(mine);
    std::sort(told.begin(), told.end());
    EXPECT_EQ(told, (std::vector<std::uint32_t>{5, 6}));
    EXPECT_EQ(H::map(mine).members(), 0U);
}

TYPED_TEST(Histories, AreReadByOtherProcessesInTheirOwnOrder) {
    using H = TypeParam;
    this->mountAs(::Vesk::VeskType::writer);
    std::map<std::uint32_t, typename H::Entry> model;
    std::mt19937 random(TestSupport::seedFor("history", 4));
    for (int step = 0; step < 3000; ++step) {
        const auto number = static_cast<std::uint32_t>(random() % 1000);
        if (random() % 3 == 0) {
            const auto removed = H::del(*this->coll, H::key(number));
            EXPECT_EQ(removed, model.contains(number) ? model[number] : typename H::Entry());
            model.erase(number);
        } else {
            model[number] = H::entry(number, static_cast<double>(random() % 500) / 4);
            H::is(*this->coll, model[number]);
        }
    }
    const auto end = TestSupport::inChild([&] {
        const auto reader = H::make();
        MoxVesk::Mounter others;
        others.mount(reader, TestFixture::Coll::mountPath, TestFixture::Coll::writerMountInfo(),
                     ::Vesk::VeskType::reader);
        std::vector<typename H::Entry> entries = TestFixture::entriesOf(*reader);
        if (entries.size() != model.size()) throw std::runtime_error("another number");
        for (const auto& entry : entries) {
            if (!(model.at(entry.key().entryId()) == entry)) throw std::runtime_error("another");
        }
        std::stable_sort(entries.begin(), entries.end(), H::Entry::timestampLesser);
        const auto descends = [](const auto& a, const auto& b) {
            return b.timestamp().value() < a.timestamp().value();
        };
        if (std::adjacent_find(entries.begin(), entries.end(), descends) != entries.end()) {
            throw std::runtime_error("not in the order of time");
        }
    });
    EXPECT_TRUE(end.exited && end.code == 0) << end.code << end.errors;
}

} // namespace
