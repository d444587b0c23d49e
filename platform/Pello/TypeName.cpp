#include "Pello/TypeName.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace Pello {

String typeNameOf(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return name ? name.get() : type.name();
}

} // namespace Pello
