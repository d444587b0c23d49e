// Makes the files of a scripted table, for layout_reference.py to compare:
//
//   layoutFiles ROOT SHAPE TABLESIZE fixed|growing < script
//
// with lines "write KEY COUNT", "direct KEY COUNT", "remove KEY 0" and "attach 0 0".

#include "Environment.h"
#include "Mem/RootPath.h"

#include <cstdio>
#include <iostream>

namespace {

/// Leaves nothing of what the stack held before: what a value does not set shows as 0xAA.
[[gnu::noinline]] void dirtyStack() {
    volatile unsigned char room[8192];
    for (volatile unsigned char& byte : room) {
        byte = 0xAA;
    }
}

template <class Shape>
[[gnu::noinline]] void change(TestSupport::WriterOf<Shape>& writer, const std::string& what,
                              std::uint32_t number, std::uint32_t count) {
    typename Shape::Ops::Value out;
    if (what == "write") writer.write(Shape::value(number, count), true);
    if (what == "direct") writer.directWrite(Shape::value(number, count));
    if (what == "direct") writer.directCommit();
    if (what == "remove") writer.remove(Shape::key(number), out);
}

template <class Shape>
void replay(const Vesk::MapDescriptor& descriptor) {
    dirtyStack();
    auto writer = TestSupport::openWriter<Shape>("table", descriptor);
    std::string what;
    std::uint32_t number = 0;
    std::uint32_t count = 0;
    while (std::cin >> what >> number >> count) {
        if (what == "attach") writer.reset();
        if (what == "attach") writer = TestSupport::openWriter<Shape>("table", descriptor);
        dirtyStack();
        change<Shape>(*writer, what, number, count);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "wanted: ROOT SHAPE TABLESIZE fixed|growing\n");
        return 2;
    }
    Mem::RootPath::baseIs(argv[1]);
    const std::string shape = argv[2];
    Vesk::MapDescriptor descriptor(static_cast<std::uint32_t>(std::stoul(argv[3])),
                                   Vesk::VeskType::writer);
    descriptor.fixedSize = argv[4] == std::string("fixed");
    descriptor.shrinkBuckets = true;
    if (shape == "ErrorCounter") replay<TestSupport::ErrorShape>(descriptor);
    if (shape == "MessageCounter") replay<TestSupport::MessageShape>(descriptor);
    if (shape == "SessionStandIn") replay<TestSupport::SessionShape>(descriptor);
    if (shape == "SpStandIn") replay<TestSupport::SpShape>(descriptor);
    return 0;
}
