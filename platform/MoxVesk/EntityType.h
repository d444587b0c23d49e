#pragma once

// The generic functions of collections (Mox/GenericIf.h).

#include "Mox/GenericIf.h"
#include "MoxVesk/Entity.h"

namespace MoxVesk {

/// There are no operations on a whole entity.
inline unsigned unsupportedOp(void* /*out*/, const void* /*entity*/, unsigned /*op*/,
                              const void* /*other*/) {
    return Mox::resultUnsupported;
}

/// Of a collection `Coll`, which `Is` makes.
template <class Coll, Mox::Ptr<Coll> (*Is)(const Pello::String&)>
struct EntityMethods {
    static Pello::String strRep(const Mox::TypeDescriptor& /*type*/, const void* coll) {
        return static_cast<const Coll*>(coll)->nameString();
    }
    static void fromCtorArgs(void* out, void* const* args) {
        Mox::GenericIfImpl::give(out, Is(Mox::GenericIfImpl::take<Pello::String>(args[0])));
    }
    static void* toEntity(void* coll) { return static_cast<Entity*>(static_cast<Coll*>(coll)); }
    static void* fromEntity(void* entity) {
        return static_cast<Coll*>(static_cast<Entity*>(entity));
    }
    static Mox::Ptr<Mox::PtrInterface> newEntity(const Pello::String& name) { return Is(name); }

    static constexpr Mox::GenericFunctions kFunctions = {
        nullptr,      nullptr,       nullptr,  strRep,     nullptr,
        fromCtorArgs, unsupportedOp, toEntity, fromEntity, Mox::MoxTypeBase{"Entity", 0},
        newEntity};
};

inline constexpr Mox::Parameter kEntityParameters[] = {{"name", "Mox::String"}};

template <class Coll, Mox::Ptr<Coll> (*Is)(const Pello::String&)>
constexpr Mox::TypeDescriptor entityType(const Mox::MoxTypeBase& handle, std::string_view name,
                                         std::span<const Mox::AttributeDescriptor> attributes) {
    return {.handle = handle,
            .name = name,
            .bytes = sizeof(Coll),
            .kind = Mox::TypeKind::entity,
            .alignment = alignof(Coll),
            .plainlyCopyable = false,
            .constructorParameters = kEntityParameters,
            .attributes = attributes,
            .functions = &EntityMethods<Coll, Is>::kFunctions};
}

/// The members of a collection for its table `t`, for `Mox::table`.
#define MOXVESK_TABLE_TYPE(Coll, t, V, K)                                                          \
    struct Coll##_##t {                                                                            \
        using Owner = Coll;                                                                        \
        using Key = K;                                                                             \
        using Element = V;                                                                         \
        static V get(const Coll& coll, const K& key) { return coll.t(key); }                       \
        static void is(Coll& coll, const V& value) { coll.t##Is(value); }                          \
        static V del(Coll& coll, const K& key) { return coll.t##Del(key); }                        \
        static const auto& map(const Coll& coll) { return coll.t##Map(); }                         \
    }

/// The two attributes of the table `t`: itself and its control.
#define MOXVESK_TABLE_ATTRIBUTES(Coll, t, number, type, keyType)                                   \
    Mox::table<Coll##_##t>(number, #t, type, keyType),                                             \
        Mox::reference<Coll, &Coll::t##Control, &Coll::t##ControlIs>((number) + 1, #t "Control",   \
                                                                     "MoxVesk::CollectionControl")

} // namespace MoxVesk
