// Misuse stops the process, with a line on the error stream that says who, where and what.

#include "TableFiles.h"

namespace ErrorsTest {
namespace {

using Fatal = Table<TestSupport::ErrorShape>;

TEST_F(Fatal, MisuseOfATable) {
    open();
    writer->write(Shape::value(1, 11), true); // slot 0
    writer->write(Shape::value(2, 22), true);
    const TableFiles::Image before = files.image();
    const Shape::V one = Shape::value(1, 33);
    const Shape::V three = Shape::value(3, 33);
    Value value;

    const std::string paired = "Make sure the DirectIs/Commit are properly paired!";
    const std::string says = "VeskWriter Vesk/VeskWriter.";
    // `directUpdate` does not fill the image: what it holds is that of the last change.
    const std::string existing =
        fmt::format(" unbalanced directSlot:0 containing value:{} ", Shape::value(1, 11));
    const std::string fresh = fmt::format(" unbalanced directSlot:2 containing value:{} ", three);
    const auto stops = [&](const std::string& text, const std::function<void()>& act) {
        EXPECT_EQ(fatalOf(act), text);
        files.imageIs(before); // the child has the files mapped, too
    };
    stops(fmt::format("{}write{}when writing value:{} - {}", says, existing, three, paired),
          [&] { writer->directUpdate(one.key()), writer->write(three, true); });
    stops(fmt::format("{}write{}when writing value:{} - {}", says, fresh, one, paired),
          [&] { writer->directWrite(three), writer->write(one, false); });
    stops(fmt::format("{}remove{}when removing key:{} - {}", says, existing, three.key(), paired),
          [&] { writer->directUpdate(one.key()), writer->remove(three.key(), value); });
    stops(fmt::format("{}directWrite{}when modifying key:{} - {}", says, existing, three.key(),
                      paired),
          [&] { writer->directUpdate(one.key()), writer->directWrite(three); });
    stops(fmt::format("{}directUpdate{}when modifying key:{} - {}", says, fresh, one.key(), paired),
          [&] { writer->directWrite(three), writer->directUpdate(one.key()); });
    stops(says + "detach" + fresh + "- " + paired,
          [&] { writer->directWrite(three), writer->detach(true); });
    stops(says + "detach" + existing + "- " + paired,
          [&] { writer->directUpdate(one.key()), writer.reset(); });
    stops(says + "directCommit not in direct mode! " + paired,
          [&] { writer->directWrite(three), writer->directCommit(), writer->directCommit(); });
    stops(fmt::format("{}directCommit key of directSlot:2 changed to {}", says, Shape::key(4)),
          [&] { *writer->directWrite(three) = Shape::value(4, 1), writer->directCommit(); });

    const std::string slots = "SlotWriterTable Vesk/SlotWriter.";
    const std::function<void()> changes[] = {
        [&] { writer->write(three, true); }, [&] { writer->remove(one.key(), value); },
        [&] { writer->directWrite(three); }, [&] { writer->directUpdate(one.key()); }};
    for (const auto& change : changes) {
        files.headerIs(kRuntime, kCritical);
        stops(slots + "enterCriticalSection Vesk reentrancy detected: " + files.folder, change);
    }
    stops(slots + "initializeSlots bad index range, start: 5 end: 5",
          [&] { writer->slotTable().initializeSlots(5, 5); });
    stops(slots + "initializeSlots free-list is not empty",
          [&] { writer->slotTable().initializeSlots(0, 1); });
    stops("VersionAnchor SharedMem/VersionAnchor.validate should not be called on a "
          "default-constructed VersionAnchor",
          [&] { writer->validateVersionAnchor(); });
    files.headerIs(kRuntime, kCritical);
    EXPECT_FALSE(writer->remove(three.key(), value)); // nothing to change
}

} // namespace
} // namespace ErrorsTest
