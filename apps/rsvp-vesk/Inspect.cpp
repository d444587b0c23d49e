#include "Inspect.h"

#include "ExitCode.h"
#include "Tables.h"

#include "Mem/RootPath.h"
#include "Mem/WriterLock.h"
#include "Pello/TypeName.h"
#include "Rsvp/Tables.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/RavoFile.h"
#include "Zint/PloxetAcceptSm.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <thread>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

using Bytes = std::vector<std::byte>;

std::optional<Bytes> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const auto* const first = reinterpret_cast<const std::byte*>(text.data());
    return Bytes(first, first + text.size());
}

/// What the images of a table's files say; the verdict is empty for a sound table.
template <class Ops>
std::string examine(const std::string& table, const Bytes& slots, const Bytes& buckets,
                    SharedMem::RavoId id, Json& facts) {
    Vesk::MapDescriptor descriptor(1);
    Vesk::VeskWriter<Ops> writer(tableHandler(), table, descriptor, Ops(), "", Pello::noop);
    std::string verdict;
    const bool sound = writer.load(slots, buckets, id, verdict);
    if (writer.slotTable().attached()) facts["slotHeader"] = writer.slotTable().header().toString();
    if (!sound) return verdict;
    const std::uint32_t members = writer.members();
    const std::uint32_t capacity = writer.capacity();
    facts["bucketHeader"] = writer.hashMap().buckets().header().toString();
    facts["entries"] = members;
    facts["slots"] = capacity;
    facts["slotBytes"] = writer.slotTable().slotSize();
    facts["fillPercent"] = capacity == 0 ? 0.0 : 100.0 * members / capacity;
    facts["freeBytes"] = std::uint64_t{capacity - members} * writer.slotTable().slotSize();
    facts["buckets"] = writer.buckets();
    std::vector<std::uint32_t> chains(writer.buckets());
    typename Ops::Value value;
    Vesk::IterHint hint;
    for (bool more = writer.first(value, hint); more;
         more = writer.next(Ops::key(value), value, hint)) {
        ++chains.at(hint.bucket);
    }
    // chains of length 0, 1, 2, ...
    std::vector<std::uint32_t> lengths;
    for (const std::uint32_t length : chains) {
        if (lengths.size() <= length) lengths.resize(length + 1);
        ++lengths[length];
    }
    facts["longestChain"] = lengths.empty() ? 0 : lengths.size() - 1;
    facts["chainLengths"] = lengths;
    return {};
}

/// One look at a table; the verdict is empty for a sound one.
std::string look(const std::string& table, Json& facts) {
    const Mem::OruRootPath root(*tableHandler(), table, false);
    const std::optional<Bytes> slots = bytesOf(root.filePath("slots"));
    const std::optional<Bytes> buckets = bytesOf(root.filePath("buckets"));
    const SharedMem::RavoId id = SharedMem::RavoFile(*tableHandler(), root, false).read();
    facts["ravoId"] = fmt::format("{}", id);
    if (id == SharedMem::RavoId()) return "no identity in the file ravo";
    if (!slots) return "the file slots is missing";
    if (!buckets) return "the file buckets is missing";
    const std::string type = typeNameOf(*slots);
    facts["type"] = type;
    std::string verdict;
    const auto isOf = [&]<class Ops>(Ops) {
        if (type != Pello::typeName<typename Ops::Value::FrameworkValue>()) return false;
        verdict = examine<Ops>(table, *slots, *buckets, id, facts);
        return true;
    };
    if (isOf(Rsvp::Vesk::MessageCounterOps()) || isOf(Rsvp::Vesk::ErrorCounterOps()) ||
        isOf(Rsvp::RsvpSessionHistoryOps()) || isOf(Rsvp::RsvpSpHistoryOps())) {
        return verdict;
    }
    return "unknown type of values \"" + type + "\"";
}

Json inspect(const std::string& table) {
    constexpr int kTries = 50;
    const Mem::OruRootPath root(*tableHandler(), table, false);
    Json facts{{"table", table}, {"folder", root.path()}};
    std::string verdict;
    bool alive = false;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        const TableOwner owner = ownerOf(table);
        alive = owner.alive;
        verdict = owner.problem;
        facts["ownerFile"] = owner.header;
        if (verdict.empty()) {
            facts["owner"] = owner.text;
            verdict = look(table, facts);
        }
        // Files were copied while their writer changed them, or there is something wrong.
        if (verdict.empty() || !alive) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    facts["writerAlive"] = alive;
    facts["sound"] = verdict.empty();
    if (!verdict.empty()) facts["corruption"] = verdict;
    return facts;
}

void print(const Json& facts) {
    fmt::print(std::cout, "{}: {}\n", facts.at("table").get<std::string>(),
               facts.at("sound").get<bool>()
                   ? "sound"
                   : "CORRUPT: " + facts.at("corruption").get<std::string>());
    for (const auto& [name, fact] : facts.items()) {
        if (name == "table" || name == "sound" || name == "corruption") continue;
        fmt::print(std::cout, "  {:<13} {}\n", name,
                   fact.is_string() ? fact.get<std::string>() : fact.dump());
    }
}

/// The tables that were asked for; nothing, with a message, when one of them is not there.
std::optional<std::vector<std::string>> chosen(const TableOptions& options) {
    const std::vector<std::string> all = allTables();
    if (options.tables.empty()) return all;
    std::vector<std::string> result;
    for (const std::string& name : options.tables) {
        const std::string table = name.substr(std::min(name.find_first_not_of('/'), name.size()));
        if (!std::binary_search(all.begin(), all.end(), table)) {
            complain("no table " + table + " below " + Mem::RootPath::base());
            return std::nullopt;
        }
        result.push_back(table);
    }
    return result;
}

} // namespace

int runInspect(const TableOptions& options) {
    const auto tables = chosen(options);
    if (!tables) return exitNoTable;
    Pello::Platform::traceLevelsIs("inspect", 0); // what is wrong goes into the answer
    if (tables->empty()) complain("no tables below " + Mem::RootPath::base());
    Json all = Json::array();
    int code = exitDone;
    for (const std::string& table : *tables) {
        all.push_back(inspect(table));
        if (!all.back().at("sound").get<bool>()) code = exitCorrupt;
        if (!options.json) print(all.back());
    }
    if (options.json) {
        std::cout << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    }
    std::cout.flush();
    if (std::cout) return code;
    complain("cannot write the report to standard output");
    return exitFailed;
}

int runClean(const TableOptions& options) {
    const auto tables = chosen(options);
    if (!tables) return exitNoTable;
    int code = exitDone;
    for (const std::string& table : *tables) {
        try {
            // Any writer knows the files of all tables; this one has none of its own.
            Rsvp::Vesk::MessageCounterWriter writer(tableHandler(), table, Vesk::MapDescriptor(1),
                                                    Rsvp::Vesk::MessageCounterOps(), "",
                                                    Pello::noop);
            writer.cleanup();
            const Mem::OruRootPath root(*tableHandler(), table, false);
            root.removeEmptyFolders();
            if (root.exists()) {
                complain("not everything is ours to remove in " + root.path());
                code = exitFailed;
            } else {
                std::cerr << "removed " << root.path() << '\n';
            }
        } catch (const Pello::Exception& e) {
            complain(e.message());
            code = exitFailed;
        }
    }
    if (allTables().empty()) {
        std::error_code ignored;
        fs::remove(Mem::RootPath::base() + "/interfaces", ignored);
    }
    Zint::PloxetAcceptSm::removeDead();
    return code;
}
