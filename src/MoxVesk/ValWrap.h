#pragma once

#include "Vesk/Operations.h"

#include <fmt/format.h>

namespace MoxVesk {

/// A framework value as the tables store it: the bytes of `V` and nothing else, with the key under
/// the name that the tables use.
template <class V, class K, const K& (V::*KeyMember)() const, bool>
class ValWrap : public V {
  public:
    using FrameworkValue = V;

    ValWrap() = default;
    ValWrap(const V& value)
        : V(value) {} // a wrap is its value: conversions read as copies

    const K& fwkKey() const {
        const V& value = *this;
        return (value.*KeyMember)();
    }
};

/// The policy bundle of a table of `V` keyed by `K`.
template <class V, class K, bool Notifying>
using TableOps = Vesk::Ops<
    K, ValWrap<V, K, &V::key, false>,
    Vesk::KeyOps<K, ValWrap<V, K, &V::key, false>,
                 Vesk::KeyRetrieval<K, ValWrap<V, K, &V::key, false>,
                                    &ValWrap<V, K, &V::key, false>::fwkKey>,
                 Vesk::Hash<K, false>>,
    Vesk::ValueOps<K, ValWrap<V, K, &V::key, false>, Vesk::Marshall<ValWrap<V, K, &V::key, false>>,
                   Vesk::Allocator<ValWrap<V, K, &V::key, false>>>,
    Vesk::SlotAllocator<K, ValWrap<V, K, &V::key, false>>, Notifying, void>;

} // namespace MoxVesk
