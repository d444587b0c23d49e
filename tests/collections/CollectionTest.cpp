// The counter collections: what they count, whom they tell, and how they end.

#include "Environment.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/ErrorCounterColl.h"
#include "Rsvp/MessageCounterColl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>
#include <tuple>

namespace {

using namespace Rsvp;
using namespace Rsvp::Vesk;
using Mox::Ptr;
using TestSupport::TempRoot;
using Wirra::AddressFamily;
using Wirra::IntfId;

constexpr AddressFamily kIpv4 = Wirra::ipv4AddressFamily;

MessageCounterKey keyOf(std::uint64_t interface, unsigned type = rsvpPathMsg) {
    return {IntfId(interface), static_cast<RsvpMsgType>(type)};
}

/// Runs `act` for every change that it is told.
struct Observer : Mox::PtrInterface::NotifieeConst {
    using Act = std::function<void(Mox::AttributeId, const void*)>;
    explicit Observer(Act theAct)
        : act(std::move(theAct)) {
        hasNotificationActiveIs(true);
    }
    void onAttribute(Mox::AttributeId attribute, const void* key) override { act(attribute, key); }
    Act act;
};

Ptr<Observer> observe(MessageCounterColl& coll, Observer::Act act) {
    Ptr<Observer> observer(new Observer(std::move(act)));
    coll.notifieeList()->newMember(&coll, Ptr<Mox::PtrInterface::NotifieeConst>(observer), true);
    return observer;
}

std::uint64_t registered(const std::string& name) { return *Vintu::writer().registerCounter(name); }

std::int64_t liveObjects() {
    return Mox::AllocTrackTypeInfo::of<MessageCounterColl>().objects() +
           Mox::AllocTrackTypeInfo::of<MoxVesk::CollectionControl>().objects() +
           Mox::AllocTrackTypeInfo::of<
               MessageCounterColl::MessageCounterCollZeroReferencesNotifiee>()
               .objects();
}

TEST(MessageCounters, CountLikeAModel) {
    const TempRoot root;
    MoxVesk::Mounter mounter;
    const auto coll = MessageCounterColl::MessageCounterCollIs("m");
    const auto snapshot = MessageCounterColl::MessageCounterCollIs("s");
    mounter.mount(coll, MessageCounterColl::mountPath, MessageCounterColl::writerMountInfo(),
                  ::Vesk::VeskType::writer);
    using Row = std::tuple<bool, bool, std::uint64_t, unsigned>; // received, IPv4, interface, type
    std::map<Row, std::uint32_t> model;
    std::map<Row, std::uint32_t> taken;
    std::mt19937 random(TestSupport::seedFor("counts", 99));
    for (int step = 0; step < 20000; ++step) {
        const bool rx = random() % 2 == 0;
        const auto family = static_cast<AddressFamily>(random() % 4); // 1 is IPv4, all else IPv6
        const std::uint64_t interface = random() % 40;
        const auto type = static_cast<unsigned>(random() % 12);
        ++model[{rx, family == kIpv4, interface, type}];
        if (rx && type == 0) {
            coll->incRxErr(IntfId(interface), family);
        } else if (rx) {
            coll->incRxCount(IntfId(interface), static_cast<RsvpMsgType>(type), family);
        } else if (type == 0) {
            coll->incTxErr(IntfId(interface), family);
        } else {
            coll->incTxCount(IntfId(interface), static_cast<RsvpMsgType>(type), family);
        }
        if (step == 10000) {
            snapshot->snapshotFrom(coll);
            taken = model;
        }
    }
    for (const auto& [row, count] : model) {
        const auto& [rx, ipv4, interface, type] = row;
        const MessageCounterKey key = keyOf(interface, type);
        const auto family = ipv4 ? kIpv4 : Wirra::ipv6AddressFamily;
        const MessageCounter found = rx ? coll->rxAfCount(key.intfId(), key.mType(), family)
                                        : coll->txAfCount(key.intfId(), key.mType(), family);
        EXPECT_EQ(found, MessageCounter(key, count));
        const std::uint32_t relative = rx ? (ipv4 ? coll->rxIpv4RelativeCount(key, snapshot)
                                                  : coll->rxIpv6RelativeCount(key, snapshot))
                                          : (ipv4 ? coll->txIpv4RelativeCount(key, snapshot)
                                                  : coll->txIpv6RelativeCount(key, snapshot));
        EXPECT_EQ(relative, count - taken[row]);
    }
    const std::uint64_t entries =
        coll->rxIpv4CountMap().members() + coll->rxIpv6CountMap().members() +
        coll->txIpv4CountMap().members() + coll->txIpv6CountMap().members();
    EXPECT_EQ(entries, model.size());
    EXPECT_EQ(coll->rxAfCount(IntfId(77), rsvpHelloMsg, kIpv4),
              MessageCounter(keyOf(77, rsvpHelloMsg), 0));
    EXPECT_EQ(coll->rxIpv4Count(keyOf(77)), MessageCounter()); // the table's default

    // A snapshot over a copy of another time, and of itself.
    snapshot->snapshotFrom(coll);
    EXPECT_EQ(snapshot->txIpv6CountMap().members(), coll->txIpv6CountMap().members());
    coll->snapshotFrom(coll);
    EXPECT_EQ(coll->rxIpv4CountMap().members() + coll->txIpv6CountMap().members(), 0U);
    EXPECT_EQ(coll->rxIpv4RelativeCount(keyOf(1, 1), snapshot), 0U);
}

TEST(ErrorCounters, CountEveryKind) {
    const auto coll = ErrorCounterColl::ErrorCounterCollIs("e");
    const auto snapshot = ErrorCounterColl::ErrorCounterCollIs("s");
    for (unsigned kind = 0; kind < 16; ++kind) {
        const auto error = static_cast<RsvpErrorType>(kind);
        for (unsigned i = 0; i <= kind; ++i) {
            coll->incRxCount(error);
        }
        coll->incTxCount(error);
    }
    snapshot->snapshotFrom(coll);
    coll->incTxCount(unknownErrorType);
    for (unsigned kind = 0; kind < 16; ++kind) {
        const ErrorCounterKey key(static_cast<RsvpErrorType>(kind));
        EXPECT_EQ(coll->rxErrorCount(key), ErrorCounter(key, kind + 1));
        EXPECT_EQ(coll->rxErrorRelativeCount(key, snapshot), 0U);
        EXPECT_EQ(coll->txErrorRelativeCount(key, snapshot), kind == 0 ? 1U : 0U);
    }
    EXPECT_EQ(coll->rxErrorCountMap().members(), 16U); // more than the table's size
}

TEST(Notifications, NameTheAttributeAndAreCounted) {
    const auto coll = MessageCounterColl::MessageCounterCollIs("m");
    std::vector<std::string> heard;
    const auto observer = observe(*coll, [&](Mox::AttributeId attribute, const void* key) {
        heard.push_back(fmt::format("{:x}", attribute));
        if (key != nullptr) {
            heard.back() += fmt::format(" {}", *static_cast<const MessageCounterKey*>(key));
        }
    });
    const auto counts = [] {
        return std::array{registered("txIpv6CountIs"), registered("txIpv6CountDel"),
                          registered("txIpv6CountNotify")};
    };
    const auto before = counts();
    const MessageCounter value(keyOf(3), 9);
    coll->txIpv6CountIs(value);
    coll->txIpv6CountIs(value); // unchanged, and told all the same
    coll->txIpv6CountDel(keyOf(4));
    EXPECT_EQ(coll->txIpv6CountDel(keyOf(3)), value);
    MessageCounter* const direct = coll->txIpv6CountMap().directWrite(value);
    direct->countIs(10);
    coll->txIpv6CountCommit(direct);
    const auto control = coll->txIpv6CountControl();
    coll->txIpv6CountControlIs(control);
    coll->txIpv6CountControlIs(nullptr);
    coll->txIpv6CountControlIs(control);
    const std::string key = fmt::format("108 {}", keyOf(3));
    EXPECT_THAT(heard, testing::ElementsAre(key, key, key, key, "109", "109"));
    const auto after = counts();
    EXPECT_EQ(after[0] - before[0], 3U);
    EXPECT_EQ(after[1] - before[1], 2U);
    EXPECT_EQ(after[2] - before[2], 4U);
    EXPECT_EQ(coll->txIpv6Count(keyOf(3)).count(), 10U);
}

TEST(Notifications, MayChangeTheCollection) {
    const auto coll = MessageCounterColl::MessageCounterCollIs("m");
    for (std::uint64_t i = 0; i < 5; ++i) {
        coll->rxIpv4CountIs(MessageCounter(keyOf(i), 100 + static_cast<std::uint32_t>(i)));
    }
    int depth = 0;
    const auto observer = observe(*coll, [&](Mox::AttributeId attribute, const void* key) {
        if (attribute != 0x102 || depth != 0) return;
        ++depth;
        EXPECT_EQ(static_cast<const MessageCounterKey*>(key)->intfId(), IntfId(2));
        EXPECT_EQ(coll->rxIpv4CountDel(keyOf(4)).count(), 104U);
        coll->incTxCount(IntfId(2), rsvpPathMsg, kIpv4);
        --depth;
    });
    // What the observer removes does not show in what this removal returns.
    EXPECT_EQ(coll->rxIpv4CountDel(keyOf(2)), MessageCounter(keyOf(2), 102));
    EXPECT_EQ(coll->rxIpv4CountMap().members(), 3U);
    EXPECT_EQ(coll->txIpv4Count(keyOf(2)).count(), 1U);
}

class DeleteAll : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Observed, DeleteAll, testing::Bool());

TEST_P(DeleteAll, RemovesEveryEntryAndTellsObserversOfEach) {
    const TempRoot root;
    MoxVesk::Mounter mounter;
    const auto coll = MessageCounterColl::MessageCounterCollIs("m");
    mounter.mount(coll, "m", MessageCounterColl::writerMountInfo(), ::Vesk::VeskType::writer,
                  [](const Pello::String&, ::Vesk::MapDescriptor& descriptor) {
                      descriptor.shrinkSlots = true;
                      descriptor.shrinkBuckets = true;
                  });
    for (std::uint64_t i = 0; i < 5000; ++i) {
        coll->rxIpv6CountIs(MessageCounter(keyOf(i * 7), 1));
    }
    std::map<MessageCounterKey, int> told;
    Ptr<Observer> observer;
    if (GetParam()) {
        observer = observe(*coll, [&](Mox::AttributeId, const void* key) {
            ++told[*static_cast<const MessageCounterKey*>(key)];
        });
    }
    const std::uint64_t dels = registered("rxIpv6CountDel");
    coll->rxIpv6CountDelAll();
    EXPECT_EQ(coll->rxIpv6CountMap().members(), 0U);
    EXPECT_EQ(told.size(), GetParam() ? 5000U : 0U);
    EXPECT_TRUE(std::all_of(told.begin(), told.end(), [](auto& each) { return each.second == 1; }));
    EXPECT_EQ(registered("rxIpv6CountDel") - dels, GetParam() ? 5000U : 0U);
    EXPECT_TRUE(coll->rxIpv6CountMap().validate());
}

TEST(Iterator, StandsOnAKeyOrBehindIt) {
    const auto coll = MessageCounterColl::MessageCounterCollIs("m");
    using Map = std::remove_reference_t<decltype(coll->rxIpv4CountMap())>;
    const Map& map = coll->rxIpv4CountMap();
    EXPECT_FALSE(Map::IteratorConst(&map).valid());
    EXPECT_FALSE(Map::IteratorConst(nullptr).valid());
    for (std::uint64_t i = 0; i < 50; ++i) {
        coll->rxIpv4CountIs(MessageCounter(keyOf(i), 1));
    }
    std::vector<MessageCounterKey> order;
    for (Map::IteratorConst each(&map); each.valid(); each.advance()) {
        order.push_back(each->key());
    }
    ASSERT_EQ(order.size(), 50U);
    for (std::size_t i = 0; i + 1 < order.size(); ++i) {
        EXPECT_EQ(Map::IteratorConst(&map, order[i])->key(), order[i]);
        const MessageCounter removed = coll->rxIpv4CountDel(order[i]);
        EXPECT_EQ(Map::IteratorConst(&map, order[i])->key(), order[i + 1]);
        coll->rxIpv4CountIs(removed);
    }
}

/// Everything that happens to all tables happens in the reverse of the order in which they are
/// counted and copied.
TEST(Tree, GoesThroughTheTablesInOneOrder) {
    const TempRoot root;
    const TestSupport::TraceCapture capture(1U << 5U | 1U << 2U);
    {
        const Ptr<MoxVesk::Directory> top(new MoxVesk::Directory(""));
        top->entityIs("c", MessageCounterColl::MessageCounterCollIs("mine"));
    }
    std::string texts;
    for (const auto& line : capture.lines()) {
        if (line.className != "MoxVeskMap") continue;
        texts += fmt::format("{} {} {}\n", line.level, line.operation, line.text);
    }
    std::string wanted;
    for (const char* const step :
         {"5 entity creating local VeskWriter mine/{0}\n",
          "5 handleParent old:mine/{0} new:c/{0}\n", "5 handleParent mine/{0} is now an orphan\n",
          "2 ~MoxVeskMap deleting state\n"}) {
        for (const char* const table :
             {"txIpv6Count", "txIpv4Count", "rxIpv6Count", "rxIpv4Count"}) {
            wanted += fmt::format(fmt::runtime(step), table);
        }
    }
    EXPECT_EQ(texts, wanted);
}

TEST(Tree, NamesTheTablesAndMakesOrphans) {
    const TempRoot root;
    const Ptr<MoxVesk::Directory> top(new MoxVesk::Directory(""));
    const auto coll = MessageCounterColl::MessageCounterCollIs("mine");
    EXPECT_EQ(coll->rxIpv4CountMap().collName(), "mine/rxIpv4Count");
    coll->incRxCount(IntfId(1), rsvpPathMsg, kIpv4); // in process memory
    const auto folder = top->directory("mpls/rsvp");
    folder->entityIs("counters", coll);
    EXPECT_EQ(coll->txIpv6CountMap().collName(), "mpls/rsvp/counters/txIpv6Count");
    EXPECT_EQ(coll->rxIpv4CountMap().members(), 0U); // a fresh local writer
    EXPECT_THROW(top->directory("mpls/rsvp/counters"), Pello::InvalidInitializeException);
    EXPECT_THROW(folder->entityIs("again", coll), Pello::InvalidInitializeException);

    ::Vesk::MapDescriptor descriptor(100, ::Vesk::VeskType::writer);
    descriptor.assertOnOrphanAccess = true;
    coll->rxIpv4CountMap().init(descriptor);
    const auto control = coll->rxIpv4CountControl();
    EXPECT_EQ(control->mountStatus(), MoxSharedMem::MountStatus::mounted);
    EXPECT_TRUE(control->quiesced());
    folder->entityDel("counters");
    EXPECT_EQ(control->mountStatus(), MoxSharedMem::MountStatus::notMounted);
    EXPECT_FALSE(control->quiesced());
    EXPECT_EQ(coll->rxIpv4CountMap().mountStatus(), MoxSharedMem::MountStatus::notMounted);
    EXPECT_EQ(coll->txIpv6CountMap().members(), 0U); // an ordinary placeholder
    const TestSupport::ChildEnd strict = TestSupport::inChild([&] { coll->rxIpv4Count(keyOf(1)); });
    EXPECT_THAT(strict.errors,
                testing::AllOf(testing::HasSubstr("VeskStrictDummy Vesk/VeskInterface.lookup"),
                               testing::HasSubstr(fmt::format("key:{}. If you're seeing this, "
                                                              "you're trying to operate on an "
                                                              "orphan vesk entity",
                                                              keyOf(1)))));
    try {
        folder->entityIs("counters", coll);
        ADD_FAILURE() << "an orphan got a parent";
    } catch (const Pello::InvalidInitializeException& e) {
        EXPECT_EQ(e.message(), "Entity mine already initialized");
    }
    EXPECT_EQ(folder->entity("counters"), nullptr);
}

/// Who holds what when the host lets its collection go.
TEST(ZeroReferences, LeaveTheCollectionToItsControls) {
    const TempRoot root;
    const std::int64_t before = liveObjects();
    for (unsigned held = 0; held < 16; ++held) {
        for (const bool mounted : {false, true}) {
            for (const bool replaced : {false, true}) {
                auto coll = MessageCounterColl::MessageCounterCollIs("m");
                MoxVesk::Mounter mounter;
                if (mounted) {
                    mounter.mount(coll, "m", MessageCounterColl::writerMountInfo(),
                                  ::Vesk::VeskType::writer);
                }
                std::vector<Ptr<MoxVesk::CollectionControl>> controls;
                if ((held & 1U) != 0) controls.push_back(coll->rxIpv4CountControl());
                if ((held & 2U) != 0) controls.push_back(coll->rxIpv6CountControl());
                if ((held & 4U) != 0) controls.push_back(coll->txIpv4CountControl());
                if ((held & 8U) != 0) controls.push_back(coll->txIpv6CountControl());
                if (replaced) coll->txIpv4CountControlIs(nullptr);
                MessageCounterColl* const plain = coll.get();
                coll = nullptr;
                if (mounted) mounter.unmount("m");
                const bool kept = !controls.empty() && !(replaced && held == 4);
                if (kept) {
                    if (!mounted) plain->incRxCount(IntfId(1), rsvpPathMsg, kIpv4);
                    EXPECT_EQ(controls.back()->front().collName().substr(0, 2), "m/");
                    plain->rxIpv4CountNotifyMountStatus();
                    plain->txIpv6CountNotifyQuiesced(true);
                }
                while (!controls.empty()) {
                    controls.erase(controls.begin());
                }
                EXPECT_EQ(liveObjects(), before) << held << mounted << replaced;
            }
        }
    }
}

TEST(ZeroReferences, InTheMidstOfANotification) {
    const std::int64_t before = liveObjects();
    auto coll = MessageCounterColl::MessageCounterCollIs("m");
    MessageCounterColl* const plain = coll.get();
    observe(*coll, [&](Mox::AttributeId, const void*) { coll = nullptr; });
    plain->incRxCount(IntfId(1), rsvpPathMsg, kIpv4);
    EXPECT_EQ(liveObjects(), before);

    coll = MessageCounterColl::MessageCounterCollIs("m");
    MessageCounterColl* const second = coll.get();
    for (std::uint64_t i = 0; i < 20; ++i) {
        second->rxIpv4CountIs(MessageCounter(keyOf(i), 1));
    }
    observe(*coll, [&](Mox::AttributeId, const void*) { coll = nullptr; });
    second->rxIpv4CountDelAll();
    EXPECT_EQ(liveObjects(), before);
}

TEST(Controls, OutliveTheirTables) {
    Ptr<MoxVesk::CollectionControl> control;
    {
        MessageCounterColl onStack("m");
        control = onStack.rxIpv4CountControl();
        EXPECT_EQ(&control->front(), &onStack.rxIpv4CountMap());
    }
    EXPECT_THROW(control->front(), Pello::RuntimeException);
}

TEST(Controls, MayBeReplacedInAnyOrderOfTheirEnds) {
    for (const bool secondFirst : {false, true}) {
        auto coll = MessageCounterColl::MessageCounterCollIs("m");
        Ptr<MoxVesk::CollectionControl> first = coll->rxIpv4CountControl();
        Ptr<MoxVesk::CollectionControl> second =
            new MoxVesk::CollectionControl(coll->rxIpv4CountMap());
        coll->rxIpv4CountControlIs(second);
        if (secondFirst) {
            coll->rxIpv4CountControlIs(nullptr);
            second = nullptr;
        }
        EXPECT_EQ(&first->front(), &coll->rxIpv4CountMap());
        coll = nullptr; // the control of construction keeps nothing once it is replaced
        EXPECT_EQ(second != nullptr, !secondFirst);
        if (!secondFirst) {
            EXPECT_EQ(second->front().collName(), "m/rxIpv4Count");
        }
        second = nullptr;
        EXPECT_THROW(first->front(), Pello::RuntimeException);
    }
}

/// An observer of a control that lets go of what keeps the collection, at every moment at which
/// it is told.
TEST(Controls, MayEndEverythingFromANotification) {
    const TempRoot root;
    const std::int64_t before = liveObjects();
    using Call = std::function<void(::Vesk::ControlBase&)>;
    const auto init = [](::Vesk::ControlBase& front) {
        front.init(::Vesk::VeskType::writer, false, 10);
    };
    const std::vector<std::pair<bool, Call>> calls = {
        {false, init},
        {true, [](auto& front) { front.controlDetach(); }},
        // The files of the writers before it are there.
        {false, [](auto& front) { front.init(::Vesk::VeskType::reader, false, 10); }},
        {true, [](auto& front) { front.cleanupAndDetach(); }},
    };
    for (const auto& [initialized, call] : calls) {
        for (const Mox::AttributeId told : {0x102U, 0x103U}) {
            for (const bool byControl : {false, true}) {
                auto coll = MessageCounterColl::MessageCounterCollIs("m");
                Ptr<MoxVesk::CollectionControl> control = coll->rxIpv4CountControl();
                ::Vesk::ControlBase& front = control->front();
                if (initialized) init(front);
                bool ended = false;
                Ptr<Observer> observer(new Observer([&](Mox::AttributeId attribute, const void*) {
                    if (attribute != told) return;
                    coll = nullptr;
                    control = nullptr;
                    ended = true;
                }));
                control->notifieeList()->newMember(
                    control.get(), Ptr<Mox::PtrInterface::NotifieeConst>(observer), true);
                (byControl ? static_cast<void>(coll = nullptr)
                           : static_cast<void>(control = nullptr));
                call(front);
                EXPECT_TRUE(ended);
                EXPECT_EQ(liveObjects(), before);
            }
        }
    }
}

TEST(MountInfo, ListsTheTablesInOrder) {
    const auto text = [](const MoxVesk::MountInfo& info) {
        std::string all = std::to_string(info.type());
        for (const auto& each : info.collections()) {
            all += fmt::format(" {}:{}:{}", each.name, each.size, each.flag);
        }
        return all;
    };
    EXPECT_EQ(text(MessageCounterColl::writerMountInfo()),
              "0 rxIpv4Count:5632:false rxIpv6Count:5632:false txIpv4Count:5632:false "
              "txIpv6Count:5632:false");
    EXPECT_EQ(text(ErrorCounterColl::writerMountInfo()),
              "0 rxErrorCount:10:false txErrorCount:10:false");
}

} // namespace
