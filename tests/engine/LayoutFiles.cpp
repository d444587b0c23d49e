// Makes the files of a scripted table, for layout_reference.py to compare.
//
//   layoutFiles ROOT < script
//   open SHAPE TABLESIZE fixed|growing | write KEY COUNT | direct KEY COUNT | remove KEY | attach

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
    if (what == "write") {
        writer.write(Shape::value(number, count), true);
    } else if (what == "direct") {
        writer.directWrite(Shape::value(number, count));
        writer.directCommit();
    } else {
        typename Shape::Ops::Value out;
        writer.remove(Shape::key(number), out);
    }
}

template <class Shape>
void replay(std::uint32_t tableSize, bool fixed) {
    Vesk::MapDescriptor descriptor(tableSize, Vesk::VeskType::writer);
    descriptor.fixedSize = fixed;
    descriptor.shrinkBuckets = true;
    dirtyStack();
    auto writer = TestSupport::openWriter<Shape>("table", descriptor);
    std::string what;
    std::uint32_t number = 0;
    while (std::cin >> what) {
        std::uint32_t count = 0;
        if (what == "attach") {
            writer.reset();
            writer = TestSupport::openWriter<Shape>("table", descriptor);
            continue;
        }
        std::cin >> number;
        if (what != "remove") std::cin >> count;
        dirtyStack();
        change<Shape>(*writer, what, number, count);
    }
}

} // namespace

int main(int argc, char** argv) {
    std::string open;
    std::string shape;
    std::string growth;
    std::uint32_t tableSize = 0;
    if (argc != 2 || !(std::cin >> open >> shape >> tableSize >> growth) || open != "open") {
        std::fprintf(stderr, "wanted: layoutFiles ROOT < script\n");
        return 2;
    }
    Mem::RootPath::baseIs(argv[1]);
    const bool fixed = growth == "fixed";
    if (shape == "ErrorCounter") {
        replay<TestSupport::ErrorShape>(tableSize, fixed);
    } else if (shape == "MessageCounter") {
        replay<TestSupport::MessageShape>(tableSize, fixed);
    } else if (shape == "SessionStandIn") {
        replay<TestSupport::SessionShape>(tableSize, fixed);
    } else {
        replay<TestSupport::SpShape>(tableSize, fixed);
    }
    return 0;
}
