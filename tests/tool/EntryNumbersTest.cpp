// Numbers of history entries against a list of all entries.

#include "EntryNumbers.h"

#include "Environment.h"

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <random>
#include <set>

namespace {

struct Id {
    std::uint32_t number;

    std::uint32_t hash() const { return number % 7; } // many alike
    friend bool operator==(const Id&, const Id&) = default;
};

using Entry = std::pair<std::uint32_t, std::uint32_t>; // object and number

TEST(EntryNumbers, CountUpAndDropTheOldest) {
    constexpr std::size_t kLimit = 50;
    std::mt19937 random(TestSupport::seedFor("entry numbers", 3));
    // What an earlier run has left: numbers that grow with age, some missing.
    std::list<Entry> model;
    std::map<std::uint32_t, std::uint32_t> last;
    EntryNumbers<Id> numbers(kLimit);
    for (int i = 0; i < 70; ++i) {
        const auto object = static_cast<std::uint32_t>(random() % 10);
        const std::uint32_t number = last[object] += 1 + static_cast<std::uint32_t>(random() % 3);
        model.emplace_back(object, number);
        numbers.resume({object}, number);
    }
    std::set<Entry> stored(model.begin(), model.end());
    for (int i = 0; i < 5000; ++i) {
        const auto object = static_cast<std::uint32_t>(random() % (i < 2000 ? 10 : 200));
        const std::uint32_t number = numbers.next({object}, [&](const Id& id, std::uint32_t old) {
            stored.erase({id.number, old});
        });
        // Begun anew only when nothing of it was left.
        const bool isNew = stored.lower_bound({object, 0}) == stored.lower_bound({object + 1, 0});
        EXPECT_TRUE(number == last[object] + 1 || (isNew && number == 1));
        last[object] = number;
        EXPECT_TRUE(stored.emplace(object, number).second);
        model.emplace_back(object, number);
        while (model.size() > kLimit)
            model.pop_front();
        EXPECT_EQ(numbers.entries(), kLimit);
        EXPECT_EQ(stored, std::set<Entry>(model.begin(), model.end()));
    }
    std::set<std::uint32_t> objects;
    for (const Entry& entry : model) {
        objects.insert(entry.first);
    }
    EXPECT_EQ(numbers.objects(), objects.size());
}

} // namespace
