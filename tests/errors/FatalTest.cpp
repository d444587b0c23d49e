// Misuse stops the process, with a line on the error stream that says who, where and what.

#include "TableFiles.h"

#include <gtest/gtest.h>

namespace ErrorsTest {
namespace {

using Shape = TestSupport::ErrorShape;

TEST(Fatal, MisuseOfATable) {
    const TestSupport::TempRoot root;
    TableFiles files(root.path() + "/t", sizeof(Shape::V));
    auto writer = TestSupport::openWriter<Shape>("t", TestSupport::growingTable());
    writer->write(Shape::value(1, 11), true); // slot 0
    writer->write(Shape::value(2, 22), true);
    const TableFiles::Image before = files.image();
    const Shape::V one = Shape::value(1, 33);
    const Shape::V three = Shape::value(3, 33);
    Shape::Ops::Value value;

    const std::string paired = "Make sure the DirectIs/Commit are properly paired!";
    const auto says = [](const char* operation, const std::string& text) {
        return fmt::format("VeskWriter Vesk/VeskWriter.{} {}", operation, text);
    };
    const auto unbalanced = [&](const char* operation, const std::string& open, const char* doing,
                                const std::string& what) {
        return says(operation, fmt::format("unbalanced directSlot:{} when {}:{} - {}", open, doing,
                                           what, paired));
    };
    // `directUpdate` does not fill the image: what it holds is that of the last change.
    const std::string existing = fmt::format("0 containing value:{}", Shape::value(1, 11));
    const std::string fresh = fmt::format("2 containing value:{}", three);
    const auto stops = [&](const std::string& text, const std::function<void()>& act) {
        EXPECT_EQ(fatalOf(act), text);
        files.imageIs(before); // the child has the files mapped, too
    };
    const auto text = [](const auto& object) { return fmt::format("{}", object); };
    stops(unbalanced("write", existing, "writing value", text(three)),
          [&] { writer->directUpdate(one.key()), writer->write(three, true); });
    stops(unbalanced("write", fresh, "writing value", text(one)),
          [&] { writer->directWrite(three), writer->write(one, false); });
    stops(unbalanced("remove", existing, "removing key", text(three.key())),
          [&] { writer->directUpdate(one.key()), writer->remove(three.key(), value); });
    stops(unbalanced("directWrite", existing, "modifying key", text(three.key())),
          [&] { writer->directUpdate(one.key()), writer->directWrite(three); });
    stops(unbalanced("directUpdate", fresh, "modifying key", text(one.key())),
          [&] { writer->directWrite(three), writer->directUpdate(one.key()); });
    stops(says("detach", fmt::format("unbalanced directSlot:{} - {}", fresh, paired)),
          [&] { writer->directWrite(three), writer->detach(true); });
    stops(says("detach", fmt::format("unbalanced directSlot:{} - {}", existing, paired)),
          [&] { writer->directUpdate(one.key()), writer.reset(); });
    stops(says("directCommit", "not in direct mode! " + paired), [&] { writer->directCommit(); });
    stops(says("directCommit", "not in direct mode! " + paired),
          [&] { writer->directWrite(three), writer->directCommit(), writer->directCommit(); });
    stops(says("directCommit", "key of directSlot:2 changed to " + text(Shape::key(4))),
          [&] { *writer->directWrite(three) = Shape::value(4, 1), writer->directCommit(); });

    const std::string slots = "SlotWriterTable Vesk/SlotWriter.";
    for (const std::function<void()>& change :
         {std::function<void()>([&] { writer->write(three, true); }),
          {[&] { writer->remove(one.key(), value); }},
          {[&] { writer->directWrite(three); }},
          {[&] { writer->directUpdate(one.key()); }}}) {
        files.headerIs(kRuntime, kCritical);
        stops(slots + "enterCriticalSection Vesk reentrancy detected: " + files.folder, change);
    }
    const auto format = [&](std::uint32_t start, std::uint32_t end) {
        return [&writer, start, end] { writer->slotTable().initializeSlots(start, end); };
    };
    stops(slots + "initializeSlots bad index range, start: 5 end: 5", format(5, 5));
    stops(slots + "initializeSlots bad index range, start: 0 end: 0", format(0, 0));
    stops(slots + "initializeSlots free-list is not empty", format(0, 1));
    stops("VersionAnchor SharedMem/VersionAnchor.validate should not be called on a "
          "default-constructed VersionAnchor",
          [&] { writer->validateVersionAnchor(); });
    files.headerIs(kRuntime, kCritical);
    EXPECT_FALSE(writer->remove(three.key(), value)); // nothing to change
}

} // namespace
} // namespace ErrorsTest
