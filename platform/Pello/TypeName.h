#pragma once

#include "Pello/String.h"

#include <typeinfo>

namespace Pello {

/// A type's name as its author writes it.
String typeNameOf(const std::type_info& type);

template <class T>
String typeName() {
    return typeNameOf(typeid(T));
}

} // namespace Pello
