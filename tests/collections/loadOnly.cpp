// A program that knows the library by its file name alone: it is not linked with it.
//
//   loadOnly LIBRARY
//
// Prints a line for each type that the library has registered by being loaded.

#include "Mox/Module.h"

#include <dlfcn.h>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << dlerror() << '\n';
        return 1;
    }
    using Modules = std::vector<const Mox::ModuleDescriptor*>();
    auto* const modules = reinterpret_cast<Modules*>(dlsym(library, "_ZN3Mox7modulesEv"));
    if (modules == nullptr) {
        std::cerr << dlerror() << '\n';
        return 1;
    }
    dlclose(library); // changes nothing: what is registered stays
    for (const Mox::ModuleDescriptor* const module : modules()) {
        for (const Mox::TypeDescriptor& type : module->types) {
            std::cout << module->name << ' ' << type.handle.typeNumber << ' ' << type.name << '\n';
        }
    }
    return 0;
}
