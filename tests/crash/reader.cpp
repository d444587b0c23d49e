// A process that reads a table on command: a line in, a line out.
//
//   crashReader SHAPE ROOT KEYS
//
//   attach TABLE   "ok", or "no" when there is nothing that a reader takes
//   look           for each of the keys the generation of its value, "-" when it is absent, "x"
//   when
//                  the table is corrupt; then the same by iteration

#include "engine/Support.h"

#include "Vesk/VeskReader.h"

#include <iostream>

namespace {

using Words = std::vector<std::string>;

template <class Shape>
class Reader {
  public:
    explicit Reader(std::uint32_t keys) {
        for (std::uint32_t number = 0; number < keys; ++number) {
            numbers_[Shape::key(number)] = number;
        }
    }

    std::string attach(const std::string& table) {
        reader_ = std::make_unique<Vesk::VeskReader<typename Shape::Ops>>(
            Pello::Platform::getDebugHandler("reader", false), table, typename Shape::Ops(),
            nullptr);
        return reader_->initialize("crash") ? "ok" : "no";
    }

    std::string look() {
        Words words(2 * numbers_.size(), "-");
        EngineTest::ValueOf<Shape> value;
        const auto take = [&](std::string& word) {
            if (!Shape::whole(value)) throw std::runtime_error("a torn value");
            if (word != "-") throw std::runtime_error("a key twice");
            word = std::to_string(Shape::generation(value));
        };
        for (const auto& [key, number] : numbers_) {
            try {
                bool found = false;
                reader_->lookup(key, found, &value);
                if (found) take(words[number]);
            } catch (const Pello::CorruptionDetectedException&) {
                words[number] = "x";
            }
        }
        try {
            Vesk::IterHint hint;
            for (bool more = reader_->first(value, hint); more;
                 more = reader_->next(value.key(), value, hint)) {
                take(words[numbers_.size() + numbers_.at(value.key())]);
            }
        } catch (const Pello::CorruptionDetectedException&) {
            std::fill(words.begin() + static_cast<std::ptrdiff_t>(numbers_.size()), words.end(),
                      "x");
        }
        return fmt::format("{}", fmt::join(words, " "));
    }

  private:
    std::map<typename Shape::Key, std::uint32_t> numbers_;
    std::unique_ptr<Vesk::VeskReader<typename Shape::Ops>> reader_;
};

template <class Shape>
bool serve(const std::string& shape, std::uint32_t keys) {
    if (shape != Shape::name) return false;
    Reader<Shape> reader(keys);
    for (std::string command; std::getline(std::cin, command);) {
        std::cout << (command == "look" ? reader.look()
                                        : reader.attach(command.substr(command.find(' ') + 1)))
                  << std::endl;
    }
    return true;
}

template <class... Shapes>
bool serveAny(testing::Types<Shapes...> /*all*/, const std::string& shape, std::uint32_t keys) {
    return (serve<Shapes>(shape, keys) || ...);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    Pello::Platform::traceLevelsIs("", 0);
    Mem::RootPath::baseIs(argv[2]);
    return serveAny(EngineTest::Shapes(), argv[1], static_cast<std::uint32_t>(std::stoul(argv[3])))
               ? 0
               : 2;
}
