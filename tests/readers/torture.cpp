// One writer at full speed and several readers, each a process of its own, on one table.
//
//   torture SHAPE [SECONDS] [READERS]     SHAPE: error, message, session, sp, hot
//
// Every value says which change made it and carries a checksum over itself. The writer overwrites,
// inserts, removes, grows, doubles and halves; it and the readers are stopped and continued at
// random, and in the end the writer is killed, and the readers must go on answering. A fault is a
// torn value, a value older than one that was seen before, a key that stays and is not found or
// not met once in an iteration, an exception, a signal or a hang. With `hot` ten large values are
// all that there is.
//
// Beside them runs a control: a reader that takes a value without looking at the sequence word
// again. In the shapes whose values are large enough it must tear some, or the test tests nothing.

#include "Environment.h"
#include "Process.h"
#include "Vesk/VeskReader.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kStaying = 10; ///< keys that are never removed

/// How many keys there are, beside which the shape tells how a value looks.
struct Plan {
    std::uint32_t keys = kStaying;
    bool mustTear = false;
};

Plan planOf(const std::string& shape) {
    if (shape == "error") return {200, false};
    if (shape == "message") return {100'000, false};
    if (shape == "session") return {100'000, true};
    if (shape == "sp") return {100'000, true};
    return {kStaying, true};
}

/// Standard input is a pipe of the parent's: its end says that it is time to end.
std::atomic<bool> ended{false};
void endWithTheParent() {
    std::thread([] {
        char octet = 0;
        while (read(STDIN_FILENO, &octet, 1) > 0) {
        }
        ended = true;
    }).detach();
}

template <class Shape>
int write(const Plan& plan) {
    Vesk::MapDescriptor descriptor(plan.keys, Vesk::VeskType::writer);
    descriptor.shrinkBuckets = true;
    descriptor.shrinkSlots = true;
    const auto writer = TestSupport::openWriter<Shape>("t", descriptor);
    std::vector<std::uint32_t> generations(plan.keys);
    std::mt19937 random(5);
    const auto below = [&random](std::uint32_t n) {
        return static_cast<std::uint32_t>(random() % n);
    };
    std::uint64_t changes = 0;
    const auto put = [&](std::uint32_t number) {
        const auto value = Shape::value(number, ++generations[number]);
        if (below(8) == 0) {
            *writer->directWrite(value) = value;
            writer->directCommit();
        } else {
            writer->write(value, true);
        }
        if (++changes % 256 == 0) writer->scratchpadIs(changes);
    };
    for (std::uint32_t number = 0; number < kStaying; ++number) {
        put(number);
    }
    std::cout << "ready" << std::endl;
    typename Shape::Ops::Value out;
    while (true) {
        // Few or many entries, both ways; most changes hit the keys that stay.
        const std::uint32_t most = std::min(plan.keys, below(3) == 0 ? plan.keys : 2000U);
        for (std::uint32_t number = kStaying; number < most; ++number) {
            put(number);
            if (below(4) == 0) put(below(kStaying));
        }
        for (std::uint32_t i = 0; i < 20'000; ++i) {
            put(below(kStaying));
        }
        for (std::uint32_t number = most; number > std::min(most, kStaying + 90);) {
            writer->remove(Shape::key(--number), out);
            if (below(4) == 0) put(below(kStaying));
        }
    }
}

template <class Shape>
std::unique_ptr<Vesk::VeskReader<typename Shape::Ops>> attached() {
    auto reader = std::make_unique<Vesk::VeskReader<typename Shape::Ops>>(
        Pello::Platform::getDebugHandler("test.reader", false), "t", typename Shape::Ops(),
        nullptr);
    if (!reader->initialize("torture")) throw std::runtime_error("cannot attach");
    return reader;
}

template <class Shape>
int readBesideTheWriter(const Plan& plan, std::uint32_t seed) {
    const auto reader = attached<Shape>();
    std::vector<std::uint32_t> generations(plan.keys);
    std::mt19937 random(seed);
    typename Shape::Ops::Value value;
    std::uint64_t reads = 0;
    std::uint64_t iterations = 0;
    const auto check = [&](std::uint32_t number) {
        ++reads;
        if (!Shape::whole(value)) throw std::runtime_error("torn value");
        if (Shape::generation(value) < generations[number]) {
            throw std::runtime_error("an older value");
        }
        generations[number] = Shape::generation(value);
    };
    endWithTheParent();
    while (!ended) {
        for (std::uint32_t i = 0; i < 3000; ++i) {
            const std::uint32_t number =
                static_cast<std::uint32_t>(random() % (i % 2 == 0 ? kStaying : plan.keys));
            bool found = false;
            reader->lookup(Shape::key(number), found, &value);
            if (found) check(number);
            if (!found && number < kStaying) throw std::runtime_error("a key that stays is absent");
        }
        std::array<unsigned, kStaying> met{};
        Vesk::IterHint hint;
        for (bool more = reader->first(value, hint); more;
             more = reader->next(value.key(), value, hint)) {
            ++reads;
            if (!Shape::whole(value)) throw std::runtime_error("torn value in an iteration");
            for (std::uint32_t number = 0; number < kStaying; ++number) {
                if (value.key() == Shape::key(number)) {
                    ++met[number];
                    check(number);
                }
            }
        }
        if (std::any_of(met.begin(), met.end(), [](unsigned times) { return times != 1; })) {
            throw std::runtime_error("a key that stays is not met once");
        }
        ++iterations;
    }
    const auto counters = reader->readerCounters();
    std::cout << fmt::format("{} {} {} {} {} {} {}", reads, iterations, counters.retries,
                             counters.lookasideReads, counters.buckets.resizes,
                             counters.slotResizes, reader->slotTable().header().scratchpad())
              << std::endl;
    return 0;
}

/// The control.
template <class Shape>
int readWithoutASecondLook() {
    const auto reader = attached<Shape>();
    typename Shape::Ops::Value value;
    std::uint64_t torn = 0;
    endWithTheParent();
    bool found = false;
    reader->lookup(Shape::key(0), found, nullptr); // maps the slots
    while (!ended) {
        for (std::uint32_t slot = 0; slot < kStaying; ++slot) {
            const Vesk::SlotWords& words = reader->slotTable().words(slot);
            if (!words.occupied()) continue;
            Shape::Ops::Marshall::fromSlot(value, words.value());
            torn += Shape::whole(value) ? 0U : 1U;
        }
    }
    std::cout << torn << std::endl;
    return 0;
}

template <class Shape>
int play(const std::string& role, const Plan& plan) {
    if (role == "writer") return write<Shape>(plan);
    if (role == "control") return readWithoutASecondLook<Shape>();
    return readBesideTheWriter<Shape>(plan, static_cast<std::uint32_t>(std::stoul(role)));
}

int play(const std::string& shape, const std::string& role) {
    const Plan plan = planOf(shape);
    try {
        if (shape == "error") return play<TestSupport::ErrorShape>(role, plan);
        if (shape == "message") return play<TestSupport::MessageShape>(role, plan);
        if (shape == "session") return play<TestSupport::SessionShape>(role, plan);
        return play<TestSupport::SpShape>(role, plan);
    } catch (const std::exception& e) {
        std::cerr << "torture: " << role << ": " << e.what() << std::endl;
        return 1;
    }
}

/// A process with this program in another role.
struct Player : TestSupport::Process {
    Player(const char* program, const std::string& shape, const std::string& role)
        : Process({program, "--role", Mem::RootPath::base(), shape, role}) {}
};

int direct(const char* program, const std::string& shape, double seconds, unsigned readers) {
    const TestSupport::TempRoot root;
    const auto begin = Clock::now();
    Player writer(program, shape, "writer");
    if (writer.line() != "ready") return 1;
    std::vector<std::unique_ptr<Player>> players;
    for (unsigned i = 1; i <= readers; ++i) {
        players.push_back(std::make_unique<Player>(program, shape, std::to_string(i)));
    }
    Player control(program, shape, "control");
    std::mt19937 random(3);
    while (Clock::now() - begin < std::chrono::duration<double>(seconds)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
        const std::size_t which = random() % (players.size() + 3);
        const Player& stopped = which < players.size() ? *players[which] : writer;
        stopped.signal(SIGSTOP);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 25));
        stopped.signal(SIGCONT);
    }
    writer.signal(SIGKILL);
    // What a dead writer left is still read, for a while.
    std::this_thread::sleep_for(300ms);
    bool sound = true;
    std::array<std::uint64_t, 7> sums{};
    for (const auto& player : players) {
        player->end();
        std::istringstream figures(player->line());
        for (std::size_t i = 0; i < sums.size(); ++i) {
            std::uint64_t figure = 0;
            figures >> figure;
            sums[i] = i + 1 < sums.size() ? sums[i] + figure : std::max(sums[i], figure);
        }
        if (const int code = player->code(10); code != 0) {
            std::cerr << "a reader ended with " << code << '\n';
            sound = false;
        }
    }
    control.end();
    const std::string torn = control.line();
    if (control.code(10) != 0 || (planOf(shape).mustTear && (torn.empty() || torn == "0"))) {
        std::cerr << "the control tore nothing\n";
        sound = false;
    }
    const auto& [reads, iterations, retries, lookasides, buckets, slots, changes] = sums;
    std::cout << fmt::format(
                     "{}: {} reads by {} processes in {:.1f} s, {} iterations, {} retries, {} from "
                     "the lookaside slot, {} bucket and {} slot resizes followed; {} changes; "
                     "control tore {}",
                     shape, reads, readers,
                     std::chrono::duration<double>(Clock::now() - begin).count(), iterations,
                     retries, lookasides, buckets, slots, changes, torn)
              << std::endl;
    return sound && reads > 0 && iterations > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 4 && arguments[0] == "--role") {
        Mem::RootPath::baseIs(arguments[1]);
        return play(arguments[2], arguments[3]);
    }
    if (arguments.empty() || arguments.size() > 3) {
        std::cerr << "usage: torture SHAPE [SECONDS] [READERS]\n";
        return 2;
    }
    return direct(argv[0], arguments[0], arguments.size() > 1 ? std::stod(arguments[1]) : 5,
                  arguments.size() > 2 ? static_cast<unsigned>(std::stoul(arguments[2])) : 3);
}
