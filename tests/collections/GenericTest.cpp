// What the library tells about its types, and what can be done with them without knowing them.

#include "Environment.h"
#include "Mox/GenericIf.h"
#include "MoxVesk/CollectionControl.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/Factories.h"
#include "Rsvp/MessageCounterColl.h"
#include "Rsvp/RsvpErrorType.h"
#include "Rsvp/RsvpSpHistory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Rsvp;
using namespace Rsvp::Vesk;
using Mox::AnyValue;
using Mox::MoxAttrBase;
using Mox::Ptr;
using Mox::PtrInterface;
using Mox::TypeDescriptor;
using Wirra::IntfId;

std::string textOf(std::span<const Mox::Parameter> parameters) {
    std::string text;
    for (const auto& [name, type] : parameters) {
        text += fmt::format("{}{} {}", text.empty() ? "(" : ", ", name, type);
    }
    return text.empty() ? text : text + ")";
}

/// One line for the type, and one for each of its attributes.
std::string textOf(const TypeDescriptor& type) {
    const char* const kinds[] = {"enumeration", "value", "entity"};
    const char* const attributeKinds[] = {"construction", "settable", "table",    "reference",
                                          "constant",     "method",   "readOnly", "static"};
    std::string text = fmt::format(
        "{} {} {} {}{}{}\n", type.handle.module, type.handle.typeNumber, type.name,
        kinds[static_cast<unsigned>(type.kind)], textOf(type.constructorParameters),
        type.kind == Mox::TypeKind::value && !type.plainlyCopyable ? " not plainly copyable" : "");
    for (const Mox::AttributeDescriptor& attribute : type.attributes) {
        text += fmt::format("  {:x} {} {}{}{}{}\n", attribute.number, attribute.name,
                            attributeKinds[static_cast<unsigned>(attribute.kind)],
                            textOf(attribute.parameters), attribute.type.empty() ? "" : " ",
                            attribute.type);
        if (!attribute.keyType.empty())
            text.insert(text.size() - 1, fmt::format(" by {}", attribute.keyType));
    }
    return text;
}

std::string textOf(const char* module) {
    std::string text;
    for (const TypeDescriptor& type : Mox::moduleNamed(module)->types) {
        text += textOf(type);
    }
    return text;
}

TEST(Registry, DescribesEveryTypeOfTheCounters) {
    EXPECT_EQ(textOf("RsvpCounters"),
              R"(RsvpCounters 0 Rsvp::RsvpErrorType enumeration
RsvpCounters 1 Rsvp::Vesk::MessageCounterKey value(intfId Wirra::IntfId, mType Rsvp::RsvpMsgType)
  2 intfId construction Wirra::IntfId
  3 mType construction Rsvp::RsvpMsgType
RsvpCounters 2 Rsvp::Vesk::MessageCounter value(key Rsvp::Vesk::MessageCounterKey, count U32)
  2 key construction Rsvp::Vesk::MessageCounterKey
  3 count settable U32
  4 veskString readOnly Mox::String
RsvpCounters 3 Rsvp::Vesk::MessageCounterColl entity(name Mox::String)
  102 rxIpv4Count table Rsvp::Vesk::MessageCounter by Rsvp::Vesk::MessageCounterKey
  103 rxIpv4CountControl reference MoxVesk::CollectionControl
  104 rxIpv6Count table Rsvp::Vesk::MessageCounter by Rsvp::Vesk::MessageCounterKey
  105 rxIpv6CountControl reference MoxVesk::CollectionControl
  106 txIpv4Count table Rsvp::Vesk::MessageCounter by Rsvp::Vesk::MessageCounterKey
  107 txIpv4CountControl reference MoxVesk::CollectionControl
  108 txIpv6Count table Rsvp::Vesk::MessageCounter by Rsvp::Vesk::MessageCounterKey
  109 txIpv6CountControl reference MoxVesk::CollectionControl
  10a incRxCount method(intfId Wirra::IntfId, mType Rsvp::RsvpMsgType, af Wirra::AddressFamily)
  10b incTxCount method(intfId Wirra::IntfId, mType Rsvp::RsvpMsgType, af Wirra::AddressFamily)
  10c incRxErr method(intfId Wirra::IntfId, af Wirra::AddressFamily)
  10d incTxErr method(intfId Wirra::IntfId, af Wirra::AddressFamily)
  10e rxAfCount readOnly(intfId Wirra::IntfId, mType Rsvp::RsvpMsgType, af Wirra::AddressFamily) Rsvp::Vesk::MessageCounter
  10f txAfCount readOnly(intfId Wirra::IntfId, mType Rsvp::RsvpMsgType, af Wirra::AddressFamily) Rsvp::Vesk::MessageCounter
  110 snapshotFrom method(originalCounterColl Rsvp::Vesk::MessageCounterColl)
  111 rxIpv4RelativeCount readOnly(key Rsvp::Vesk::MessageCounterKey, snapshotCounterColl Rsvp::Vesk::MessageCounterColl) U32
  112 rxIpv6RelativeCount readOnly(key Rsvp::Vesk::MessageCounterKey, snapshotCounterColl Rsvp::Vesk::MessageCounterColl) U32
  113 txIpv4RelativeCount readOnly(key Rsvp::Vesk::MessageCounterKey, snapshotCounterColl Rsvp::Vesk::MessageCounterColl) U32
  114 txIpv6RelativeCount readOnly(key Rsvp::Vesk::MessageCounterKey, snapshotCounterColl Rsvp::Vesk::MessageCounterColl) U32
  115 mountPath constant Mox::String
  116 snapshotMountPath constant Mox::String
  117 maxIntfs constant U32
  118 msgTypes constant U32
  119 collectionSize constant U32
  11a writerMountInfo static MoxVesk::MountInfo
RsvpCounters 4 Rsvp::Vesk::ErrorCounterKey value(errorType Rsvp::RsvpErrorType)
  2 errorType construction Rsvp::RsvpErrorType
RsvpCounters 5 Rsvp::Vesk::ErrorCounter value(key Rsvp::Vesk::ErrorCounterKey, count U32)
  2 key construction Rsvp::Vesk::ErrorCounterKey
  3 count settable U32
  4 veskString readOnly Mox::String
RsvpCounters 6 Rsvp::Vesk::ErrorCounterColl entity(name Mox::String)
  102 rxErrorCount table Rsvp::Vesk::ErrorCounter by Rsvp::Vesk::ErrorCounterKey
  103 rxErrorCountControl reference MoxVesk::CollectionControl
  104 txErrorCount table Rsvp::Vesk::ErrorCounter by Rsvp::Vesk::ErrorCounterKey
  105 txErrorCountControl reference MoxVesk::CollectionControl
  106 incRxCount method(errorType Rsvp::RsvpErrorType)
  107 incTxCount method(errorType Rsvp::RsvpErrorType)
  108 snapshotFrom method(originalCounterColl Rsvp::Vesk::ErrorCounterColl)
  109 rxErrorRelativeCount readOnly(key Rsvp::Vesk::ErrorCounterKey, snapshotCounterColl Rsvp::Vesk::ErrorCounterColl) U32
  10a txErrorRelativeCount readOnly(key Rsvp::Vesk::ErrorCounterKey, snapshotCounterColl Rsvp::Vesk::ErrorCounterColl) U32
  10b mountPath constant Mox::String
  10c snapshotMountPath constant Mox::String
  10d collectionSize constant U32
  10e writerMountInfo static MoxVesk::MountInfo
)");
}

TEST(Registry, DescribesEveryTypeOfTheHistory) {
    EXPECT_EQ(textOf("RsvpHistory"),
              R"(RsvpHistory 0 Rsvp::RsvpSessionHistoryEntryType enumeration
RsvpHistory 1 Rsvp::RsvpSpHistoryEntryType enumeration
RsvpHistory 2 Rsvp::RsvpSessionHistoryKey value(sessionId Rsvp::RsvpSessionId, entryId U32)
  2 sessionId construction Rsvp::RsvpSessionId
  3 entryId construction U32
RsvpHistory 3 Rsvp::RsvpSessionHistoryEntry value(key Rsvp::RsvpSessionHistoryKey, timestamp Mox::Seconds, entryType Rsvp::RsvpSessionHistoryEntryType)
  2 key construction Rsvp::RsvpSessionHistoryKey
  3 timestamp construction Mox::Seconds
  4 entryType construction Rsvp::RsvpSessionHistoryEntryType
  5 spCliId settable Rsvp::RsvpCliId
  6 created settable bool
  7 veskString readOnly Mox::String
  8 timestampLesser static(e1 Rsvp::RsvpSessionHistoryEntry, e2 Rsvp::RsvpSessionHistoryEntry) bool
RsvpHistory 4 Rsvp::RsvpSessionHistory entity(name Mox::String)
  102 sessionHistory table Rsvp::RsvpSessionHistoryEntry by Rsvp::RsvpSessionHistoryKey
  103 sessionHistoryControl reference MoxVesk::CollectionControl
  104 mountPath constant Mox::String
  105 collectionSize constant U32
  106 writerMountInfo static MoxVesk::MountInfo
RsvpHistory 5 Rsvp::RsvpSpHistoryKey value(spId Rsvp::RsvpSpId, entryId U32) not plainly copyable
  2 spId construction Rsvp::RsvpSpId
  3 entryId construction U32
RsvpHistory 6 Rsvp::RsvpSpHistoryEntry value(key Rsvp::RsvpSpHistoryKey, timestamp Mox::Seconds, entryType Rsvp::RsvpSpHistoryEntryType) not plainly copyable
  2 key construction Rsvp::RsvpSpHistoryKey
  3 timestamp construction Mox::Seconds
  4 entryType construction Rsvp::RsvpSpHistoryEntryType
  5 spOperPathState settable Rsvp::RsvpSpOperState
  6 spOperResvState settable Rsvp::RsvpSpOperState
  7 bypassAvailable settable bool
  8 bypassNextHop settable Wirra::IpGenAddr
  9 bypassNodeProtected settable bool
  a dsFrrInUse settable bool
  b dsNextHop settable Wirra::IpGenAddr
  c dsNodeProtected settable bool
  d usFrrInUse settable bool
  e error settable Rsvp::RsvpError
  f bwState settable Rsvp::RsvpSpBwState
  10 veskString readOnly Mox::String
  11 timestampLesser static(e1 Rsvp::RsvpSpHistoryEntry, e2 Rsvp::RsvpSpHistoryEntry) bool
RsvpHistory 7 Rsvp::RsvpSpHistory entity(name Mox::String)
  102 spHistory table Rsvp::RsvpSpHistoryEntry by Rsvp::RsvpSpHistoryKey
  103 spHistoryControl reference MoxVesk::CollectionControl
  104 mountPath constant Mox::String
  105 collectionSize constant U32
  106 writerMountInfo static MoxVesk::MountInfo
)");
}

TEST(Registry, EveryNamedTypeIsThere) {
    std::string foreign;
    for (const char* const name : {"RsvpCounters", "RsvpHistory"}) {
        const Mox::ModuleDescriptor& module = *Mox::moduleNamed(name);
        const auto check = [&module](std::string_view type) {
            ASSERT_NE(Mox::typeIn(module, type), nullptr) << type;
            EXPECT_EQ(Mox::typeIn(module, type)->name, type);
        };
        for (const TypeDescriptor& type : module.types) {
            for (const auto& parameter : type.constructorParameters) {
                check(parameter.type);
            }
            for (const Mox::AttributeDescriptor& attribute : type.attributes) {
                if (!attribute.type.empty()) check(attribute.type);
                if (!attribute.keyType.empty()) check(attribute.keyType);
                for (const auto& parameter : attribute.parameters) {
                    check(parameter.type);
                }
            }
        }
        for (const auto& [type, handle] : module.foreignTypes) {
            check(type);
            foreign += fmt::format("{} {} {}\n", type, handle.module, handle.typeNumber);
        }
    }
    EXPECT_EQ(foreign, "Wirra::IntfId IntfId 0\nRsvp::RsvpMsgType RsvpMsg 0\n"
                       "MoxVesk::CollectionControl CollectionControl 0\nMoxVesk::Entity Entity 0\n"
                       "MoxVesk::MountInfo MountInfo 1\n"
                       "MoxVesk::CollectionControl CollectionControl 0\nMoxVesk::Entity Entity 0\n"
                       "MoxVesk::MountInfo MountInfo 1\nWirra::IpGenAddr IpGenAddr 0\n"
                       "Rsvp::RsvpCliId MplsRsvpTypes 0\nRsvp::RsvpError RsvpError 6\n"
                       "Rsvp::RsvpSessionId RsvpSessionId 2\nRsvp::RsvpSpBwState RsvpBwState 1\n"
                       "Rsvp::RsvpSpId RsvpSpId 0\nRsvp::RsvpSpOperState RsvpSpOperState 0\n");
    EXPECT_EQ(Mox::typeNamed("MessageCounterColl"), Mox::typeDescriptor({"RsvpCounters", 3}));
    EXPECT_EQ(Mox::typeNamed("CounterColl"), nullptr);
    EXPECT_EQ(Mox::typeNamed(""), nullptr);
}

unsigned operate(const TypeDescriptor& type, void* out, void* instance, Mox::AttributeId attribute,
                 unsigned op, std::vector<void*> args = {}) {
    const MoxAttrBase handle{type.handle, attribute};
    return Mox::genericIfAttributeOp(type, out, instance, &handle, op, nullptr, args.data());
}

/// Values with something in every attribute.
const std::array kValues = {
    "Value('Rsvp::Vesk::MessageCounterKey', ** {'intfId': Intf(0x100000007), 'mType': rsvpAckMsg})",
    "Value('Rsvp::Vesk::MessageCounter', ** {'key': Value('Rsvp::Vesk::MessageCounterKey', ** "
    "{'intfId': Intf(0x100000007), 'mType': rsvpAckMsg}), 'count': 4294967295})",
    "arpErrorType",
    "Value('Rsvp::Vesk::ErrorCounter', ** {'key': arpErrorType, 'count': 5})",
};

TEST(GenericValues, DoWhatTheirTypesDo) {
    std::vector<std::pair<const TypeDescriptor*, std::string>> values;
    for (const char* const text : kValues) {
        const std::string quoted = text;
        const std::size_t begin = quoted.find('\'') + 1;
        const std::string name = begin == 0
                                     ? "Rsvp::Vesk::ErrorCounterKey"
                                     : quoted.substr(begin, quoted.find('\'', begin) - begin);
        values.emplace_back(Mox::typeNamed(name), text);
    }
    RsvpSpHistoryEntry path({RsvpSpId({7, {}, 5, {}}, 3), 7}, Mox::Seconds(0.1),
                            rsvpSpErrorHistoryEntry);
    path.usFrrInUseIs(true);
    const RsvpSessionHistoryEntry session({{7, {}, 5, {}}, 9}, Mox::Seconds(1e300),
                                          rsvpSessionMemberHistoryEntry);
    values.emplace_back(Mox::typeNamed("RsvpSpHistoryEntry"), valueToStrep(path));
    values.emplace_back(Mox::typeNamed("RsvpSpHistoryKey"), valueToStrep(path.key()));
    values.emplace_back(Mox::typeNamed("RsvpSessionHistoryEntry"), valueToStrep(session));
    values.emplace_back(Mox::typeNamed("RsvpSessionHistoryKey"), valueToStrep(session.key()));
    for (const auto& [type, text] : values) {
        const AnyValue byDefault(*type);
        const AnyValue value(*type);
        Mox::genericIfStrepToValue(*type, text, value.get());
        const AnyValue copy(*type, value.get());
        EXPECT_EQ(copy.text(), text);
        const auto whole = [&type = *type](unsigned op, const AnyValue& left,
                                           const AnyValue& right) {
            bool result = false;
            const unsigned code = Mox::genericIfAttributeOp(type, &result, left.get(), nullptr, op,
                                                            right.get(), nullptr);
            return code == Mox::resultDone ? int{result} : -1;
        };
        EXPECT_EQ(whole(11, value, value), 1);
        EXPECT_EQ(whole(11, byDefault, value), 0);
        EXPECT_EQ(whole(12, value, copy), 1);
        EXPECT_EQ(whole(12, value, byDefault), 0);
        EXPECT_EQ(whole(10, value, value), -1);
        const bool isKey = text.starts_with("arp") || text.find("Key'") < 40;
        EXPECT_EQ(whole(13, byDefault, value), isKey ? 1 : -1) << text;
        EXPECT_EQ(whole(13, value, byDefault), isKey ? 0 : -1) << text;
        if (isKey) {
            EXPECT_NE(Mox::genericIfHash(*type, value.get()),
                      Mox::genericIfHash(*type, byDefault.get()));
        } else {
            EXPECT_THROW(Mox::genericIfHash(*type, value.get()), Mox::UnhashableException);
        }
        // Made of its constructor's parameters and written attribute by attribute, it is the same.
        const Mox::ModuleDescriptor& module = *Mox::moduleNamed(type->handle.module);
        const AnyValue again(*type);
        std::vector<std::unique_ptr<AnyValue>> parts;
        std::vector<void*> args;
        for (std::size_t i = 0; i < type->constructorParameters.size(); ++i) {
            const Mox::AttributeDescriptor& attribute = type->attributes[i];
            EXPECT_EQ(attribute.name, type->constructorParameters[i].name);
            parts.push_back(std::make_unique<AnyValue>(*Mox::typeIn(module, attribute.type)));
            args.push_back(parts.back()->get());
            EXPECT_EQ(operate(*type, args.back(), value.get(), attribute.number, 0), 0U);
        }
        Mox::genericIfConstructFromCtorArgs(*type, again.get(), args.data());
        for (const Mox::AttributeDescriptor& attribute : type->attributes) {
            if (attribute.kind == Mox::AttributeKind::readOnlyMethod ||
                attribute.kind == Mox::AttributeKind::staticFunction) {
                EXPECT_EQ(operate(*type, nullptr, value.get(), attribute.number, 0), 1U);
                continue;
            }
            const AnyValue part(*Mox::typeIn(module, attribute.type));
            EXPECT_EQ(operate(*type, part.get(), value.get(), attribute.number, 0), 0U);
            const bool settable = attribute.kind == Mox::AttributeKind::settable;
            EXPECT_EQ(operate(*type, nullptr, again.get(), attribute.number, 1, {part.get()}),
                      settable ? 0U : 1U)
                << attribute.name;
            EXPECT_EQ(operate(*type, part.get(), value.get(), attribute.number, 10), 1U);
        }
        EXPECT_EQ(again.text(), text);
        EXPECT_EQ(operate(*type, nullptr, value.get(), 18, 0), 2U);
        const MoxAttrBase another{{"RsvpMsg", 0}, 2};
        EXPECT_EQ(
            Mox::genericIfAttributeOp(*type, nullptr, value.get(), &another, 0, nullptr, nullptr),
            2U);
        EXPECT_EQ(Mox::genericIfVoidPtrIs(*type, value.get(), type->handle, type->handle),
                  value.get());
        EXPECT_THROW(Mox::genericIfVoidPtrIs(*type, value.get(), {"IntfId", 0}, type->handle),
                     Mox::TypeException);
    }
    EXPECT_EQ(Mox::genericIfHash(*Mox::typeNamed("RsvpSessionHistoryKey"), &session.key()),
              session.key().hash(0));
    bool lesser = false;
    RsvpSessionHistoryEntry earlier(session.key(), Mox::Seconds(1), rsvpSessionUnknownEntry);
    RsvpSessionHistoryEntry later = session;
    EXPECT_EQ(operate(*Mox::typeNamed("RsvpSessionHistoryEntry"), &lesser, nullptr, 8, 10,
                      {&earlier, &later}),
              0U);
    EXPECT_TRUE(lesser);
}

TEST(GenericEnums, AreReadAndWrittenByName) {
    AnyValue type(*Mox::typeNamed("RsvpErrorType"));
    type.textIs("arpErrorType");
    EXPECT_EQ(*static_cast<const std::uint8_t*>(type.get()), 4);
    EXPECT_THROW(type.textIs("arpErrorTypes"), Mox::RangeException);
    EXPECT_NE(Mox::genericIfHash(type.type(), type.get()), 4U);
    AnyValue entry(*Mox::typeNamed("RsvpSpHistoryEntryType"));
    entry.textIs("77");
    EXPECT_EQ(entry.text(), "77");
}

TEST(GenericEntities, AreMadeByName) {
    const TypeDescriptor& type = *Mox::typeNamed("RsvpSpHistory");
    const Ptr<PtrInterface> made = Mox::newEntityForDir(type, "x", nullptr);
    EXPECT_TRUE(made->hasNotificationActive());
    EXPECT_EQ(made->fwkType(), type.handle);
    auto* const entity = dynamic_cast<MoxVesk::Entity*>(made.get());
    EXPECT_EQ(entity->nameString(), "x");
    const Mox::MoxTypeBase base{"Entity", 0};
    void* const coll = Mox::genericIfVoidPtrIs(type, entity, base, type.handle);
    EXPECT_EQ(coll, dynamic_cast<RsvpSpHistory*>(made.get()));
    EXPECT_EQ(Mox::genericIfVoidPtrIs(type, coll, type.handle, base), entity);
    EXPECT_EQ(Mox::genericIfStrRep(type, coll), "x");
    std::uint32_t size = 0;
    EXPECT_EQ(operate(type, &size, nullptr, 0x105, 0), 0U);
    EXPECT_EQ(size, 1000000U);

    int argument = 0;
    EXPECT_THROW(Mox::newEntityForDir(type, "x", &argument), Mox::NewEntityArgsException);
    EXPECT_THROW(Mox::newEntityForDir(*Mox::typeNamed("RsvpSpId"), "x", nullptr),
                 Mox::TypeException);
    EXPECT_THROW(Mox::genericIfConstruct(type, nullptr, nullptr), Mox::TypeException);
    Pello::String name = "y";
    void* args[] = {&name};
    Ptr<PtrInterface> other;
    Mox::genericIfConstructFromCtorArgs(*Mox::typeNamed("ErrorCounterColl"), &other, args);
    EXPECT_EQ(other->fwkType(), (Mox::MoxTypeBase{"RsvpCounters", 6}));
    EXPECT_TRUE(messageCounterCollFactory("m")->hasNotificationActive());
    EXPECT_TRUE(rsvpSpHistoryFactory("p")->hasNotificationActive());
}

TEST(GenericTables, ReadWriteCountAndIterate) {
    const TypeDescriptor& type = *Mox::typeNamed("MessageCounterColl");
    const auto coll = messageCounterCollFactory("m");
    const auto count = [&] {
        std::uint32_t members = 99;
        EXPECT_EQ(operate(type, &members, coll.get(), 0x104, 3), 0U);
        return members;
    };
    for (std::uint32_t i = 1; i <= 20; ++i) {
        MessageCounter counter({IntfId(i), rsvpPathMsg}, i);
        EXPECT_EQ(operate(type, nullptr, coll.get(), 0x104, 1, {&counter}), 0U);
    }
    EXPECT_EQ(count(), 20U);
    MessageCounterKey key(IntfId(7), rsvpPathMsg);
    MessageCounterKey absent(IntfId(7), rsvpAckMsg);
    MessageCounter found;
    EXPECT_EQ(operate(type, &found, coll.get(), 0x104, 0, {&key}), 0U);
    EXPECT_EQ(found.count(), 7U);
    EXPECT_EQ(operate(type, &found, coll.get(), 0x104, 0, {&absent}), 0U);
    EXPECT_EQ(found, MessageCounter());
    std::uint32_t reserved = 99;
    EXPECT_EQ(operate(type, &reserved, coll.get(), 0x104, 4), 0U);
    EXPECT_EQ(reserved, 0U);
    for (auto* const each : {&key, &absent}) {
        bool has = each != &key;
        EXPECT_EQ(operate(type, &has, coll.get(), 0x104, 5, {each}), 0U);
        EXPECT_EQ(has, each == &key);
    }
    EXPECT_EQ(operate(type, &found, coll.get(), 0x104, 2, {&key}), 0U);
    EXPECT_EQ(found.count(), 7U);
    EXPECT_EQ(count(), 19U);
    EXPECT_EQ(operate(type, nullptr, coll.get(), 0x104, 6), 1U);
    EXPECT_EQ(operate(type, nullptr, coll.get(), 0x104, 10), 1U);

    const Mox::IteratorOps* ops = nullptr;
    EXPECT_EQ(Mox::genericIfIterator(type, coll.get(), nullptr, {type.handle, 0x111}, &ops),
              nullptr);
    std::vector<std::uint32_t> counts;
    const auto walk = [&](const MessageCounterKey* from) {
        counts.clear();
        void* const each =
            Mox::genericIfIterator(type, coll.get(), from, {type.handle, 0x104}, &ops);
        for (; ops->iterNonnull(each); ops->iterInc(each)) {
            MessageCounter element;
            MessageCounterKey elementKey;
            ops->iterObj(each, &element);
            ops->iterKey(each, &elementKey);
            EXPECT_EQ(element.key(), elementKey);
            counts.push_back(element.count());
        }
        ops->iterDel(each);
    };
    walk(nullptr);
    ASSERT_EQ(counts.size(), 19U);
    const std::vector<std::uint32_t> all = counts;
    const MessageCounterKey third(IntfId(all[2]), rsvpPathMsg);
    walk(&third);
    EXPECT_EQ(counts, std::vector<std::uint32_t>(all.begin() + 2, all.end()));
    coll->rxIpv6CountDel(third);
    walk(&third);
    EXPECT_EQ(counts, std::vector<std::uint32_t>(all.begin() + 3, all.end()));
}

TEST(GenericEntities, TakeReferencesOfTheRightType) {
    const TypeDescriptor& type = *Mox::typeNamed("MessageCounterColl");
    const auto coll = messageCounterCollFactory("m");
    IntfId interface(3);
    RsvpMsgType message = rsvpHelloMsg;
    Wirra::AddressFamily family = Wirra::ipv6AddressFamily;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(operate(type, nullptr, coll.get(), 0x10a, 10, {&interface, &message, &family}),
                  0U);
    }
    const auto snapshot = messageCounterCollFactory("s");
    Ptr<PtrInterface> original = coll;
    Ptr<PtrInterface> taken = snapshot;
    EXPECT_EQ(operate(type, nullptr, snapshot.get(), 0x110, 10, {&original}), 0U);
    coll->incRxCount(interface, message, family);
    MessageCounterKey key(interface, message);
    std::uint32_t since = 0;
    EXPECT_EQ(operate(type, &since, coll.get(), 0x112, 10, {&key, &taken}), 0U);
    EXPECT_EQ(since, 1U);
    MessageCounter counter;
    EXPECT_EQ(operate(type, &counter, coll.get(), 0x10e, 10, {&interface, &message, &family}), 0U);
    EXPECT_EQ(counter.count(), 4U);
    Ptr<PtrInterface> none;
    Ptr<PtrInterface> wrong = rsvpSpHistoryFactory("p");
    for (auto* const bad : {&none, &wrong}) {
        EXPECT_THROW(operate(type, nullptr, snapshot.get(), 0x110, 10, {bad}), Mox::TypeException);
    }

    Ptr<PtrInterface> control;
    EXPECT_EQ(operate(type, &control, coll.get(), 0x103, 0), 0U);
    EXPECT_EQ(control, Ptr<PtrInterface>(coll->rxIpv4CountControl()));
    EXPECT_EQ(operate(type, nullptr, coll.get(), 0x103, 1, {&none}), 0U);
    EXPECT_FALSE(coll->rxIpv4CountControl());
    EXPECT_EQ(operate(type, nullptr, coll.get(), 0x103, 1, {&control}), 0U);
    EXPECT_TRUE(coll->rxIpv4CountControl());
    EXPECT_THROW(operate(type, nullptr, coll.get(), 0x103, 1, {&wrong}), Mox::TypeException);
    EXPECT_EQ(operate(type, nullptr, coll.get(), 0x103, 10), 1U);
    MoxVesk::MountInfo info;
    EXPECT_EQ(operate(type, &info, nullptr, 0x11a, 10), 0U);
    EXPECT_EQ(info.collections().size(), 4U);
    Pello::String path;
    EXPECT_EQ(operate(type, &path, nullptr, 0x116, 0), 0U);
    EXPECT_EQ(path, "mpls/rsvp/messageCountersSnapshot");
}

} // namespace
