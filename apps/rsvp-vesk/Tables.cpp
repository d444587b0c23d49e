#include "Tables.h"

#include "ExitCode.h"
#include "Report.h"

#include "Mem/OwnFile.h"
#include "Mem/RootPath.h"
#include "Mem/WriterLock.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/RavoFile.h"
#include "Vesk/SlotHeaderCommon.h"
#include "VeskCore/BucketWriter.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

/// The first bytes of a file, fewer when it has fewer, and its size.
struct Beginning {
    Beginning(const std::string& path, std::size_t bytes) {
        const int fd = open(path.c_str(), Mem::OwnFile::kReadFlags);
        if (fd < 0) return;
        struct stat status {};
        if (fstat(fd, &status) == 0) size = static_cast<std::uint64_t>(status.st_size);
        content.resize(bytes);
        const ssize_t n = pread(fd, content.data(), bytes, 0);
        content.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
        close(fd);
    }

    std::vector<std::byte> content;
    std::uint64_t size = 0;
};

/// A copy of a slot file's header, from at least as many bytes.
class SlotHeader {
  public:
    explicit SlotHeader(const std::vector<std::byte>& bytes) {
        std::copy_n(bytes.begin(), image_.size(), image_.begin());
    }
    const Vesk::SlotHeaderCommon* operator->() {
        return &Vesk::SlotHeaderCommon::at(image_.data());
    }

  private:
    alignas(Vesk::SlotHeaderCommon) std::array<std::byte, Vesk::SlotHeaderCommon::kSize> image_{};
};

Json rowOf(const std::string& table, std::string& problem) {
    using Buckets = VeskCore::BucketTable::Header;
    const Mem::OruRootPath root(*tableHandler(), table, false);
    const Beginning slots(root.filePath("slots"), Vesk::SlotHeaderCommon::kSize);
    const Beginning buckets(root.filePath("buckets"), sizeof(Buckets));
    const SharedMem::RavoId id = SharedMem::RavoFile(*tableHandler(), root, false).read();
    Json row{
        {"table", table}, {"type", typeNameOf(slots.content)}, {"ravoId", fmt::format("{}", id)}};
    if (slots.content.size() < Vesk::SlotHeaderCommon::kSize ||
        buckets.content.size() < sizeof(Buckets)) {
        problem = "files are missing or too short";
    } else {
        SlotHeader header(slots.content);
        Buckets bucketHeader{};
        std::copy_n(buckets.content.begin(), sizeof bucketHeader,
                    reinterpret_cast<std::byte*>(&bucketHeader));
        row["entries"] = header->occupiedSlots();
        row["slots"] = header->numSlots().value;
        row["buckets"] = bucketHeader.numBuckets >> 32U;
        if (header->ravoId() != id || SharedMem::RavoId(bucketHeader.ravoId) != id) {
            problem = "its files are of several identities";
        }
    }
    row["bytes"] = slots.size + buckets.size;
    const TableOwner owner = ownerOf(table);
    row["owner"] = owner.text;
    row["writerAlive"] = owner.alive;
    return row;
}

} // namespace

void complain(const std::string& text) { std::cerr << "rsvp-vesk: " << text << '\n'; }

std::shared_ptr<Pello::Platform::DebugHandler> tableHandler() {
    return Pello::Platform::getDebugHandler("inspect", true);
}

std::vector<std::string> allTables() {
    const fs::path root = Mem::RootPath::base();
    std::vector<std::string> tables;
    // Folders may vanish meanwhile.
    std::error_code ignored;
    fs::recursive_directory_iterator at(root, fs::directory_options::skip_permission_denied,
                                        ignored);
    for (; at != fs::recursive_directory_iterator(); at.increment(ignored)) {
        const fs::path& path = at->path();
        const std::string name = path.filename();
        const std::string table = path.parent_path().lexically_relative(root).string();
        const bool isPart = name == "slots" || name == "buckets" ||
                            name == SharedMem::OwnerFile::FILENAME ||
                            name == SharedMem::RavoFile::RAVO_NAME;
        if (isPart && table != "." && !table.starts_with('.')) tables.push_back(table);
    }
    std::sort(tables.begin(), tables.end());
    tables.erase(std::unique(tables.begin(), tables.end()), tables.end());
    return tables;
}

std::string typeNameOf(const std::vector<std::byte>& slots) {
    if (slots.size() < Vesk::SlotHeaderCommon::kSize) return {};
    return SlotHeader(slots)->typeName();
}

TableOwner ownerOf(const std::string& table) {
    const Mem::OruRootPath root(*tableHandler(), table, false);
    const SharedMem::OwnerFile file(tableHandler(), root, false);
    TableOwner owner;
    owner.text = "none";
    std::string why;
    if (!file.validate(why)) owner.problem = "owner file: " + why;
    owner.header = file.headerToString();
    if (!owner.problem.empty()) return owner;
    const Pello::String socketName = file.ploxetInfo().socketName;
    std::string command;
    owner.alive = Mem::WriterLock::ownerIsAlive(*tableHandler(), socketName, command);
    if (owner.alive) owner.text = fmt::format("{} {}", command, socketName);
    return owner;
}

int showTables(bool json) {
    const std::vector<std::string> tables = allTables();
    if (tables.empty()) {
        complain("no tables below " + Mem::RootPath::base());
        return exitNoTable;
    }
    int code = exitDone;
    Json rows = Json::array();
    std::size_t width = std::string_view("table").size();
    for (const std::string& table : tables) {
        std::string problem;
        rows.push_back(rowOf(table, problem));
        width = std::max(width, table.size());
        if (problem.empty()) continue;
        complain(fmt::format("{}: {}", table, problem));
        code = exitCorrupt;
    }
    if (json) {
        print(std::cout, rows);
        return code;
    }
    fmt::print(std::cout, "{:<{}}  {:>10}  {:>10}  {:>10}  {:>12}  writer\n", "table", width,
               "entries", "slots", "buckets", "bytes");
    for (const Json& row : rows) {
        const auto number = [&row](const char* name) {
            return row.contains(name) ? row[name].get<std::uint64_t>() : 0;
        };
        fmt::print(std::cout, "{:<{}}  {:>10}  {:>10}  {:>10}  {:>12}  {}\n",
                   row["table"].get<std::string>(), width, number("entries"), number("slots"),
                   number("buckets"), number("bytes"), row["owner"].get<std::string>());
    }
    return code;
}
