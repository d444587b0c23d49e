#include "Show.h"

#include "ExitCode.h"
#include "Report.h"
#include "StopSignal.h"
#include "Tables.h"

#include "Mem/RootPath.h"
#include "Pello/Loop.h"
#include "Pello/Time.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <sys/epoll.h>

namespace {

using Fronts = std::vector<Vesk::VeskMapBase*>;

bool allReady(const Fronts& fronts) {
    return std::all_of(fronts.begin(), fronts.end(),
                       [](const Vesk::VeskMapBase* front) { return front->ready(); });
}

/// False when a signal has ended the wait.
bool waitFor(const Fronts& fronts) {
    StopSignal stop;
    const Pello::Loop::Ptr loop = Pello::Loop::ofThisThread();
    const Pello::Loop::Handle watch =
        loop->watchFd(stop.fd(), EPOLLIN, [&stop](auto) { stop.requested(); });
    while (!allReady(fronts) && !stop.requested()) {
        loop->runOnce(-1);
    }
    return allReady(fronts);
}

template <class Rows>
void answer(bool json, const Rows& rows) {
    if (json) {
        print(std::cout, jsonOf(rows));
    } else {
        print(std::cout, rows);
    }
}

/// The snapshot to compare with, if one is asked for. An incomplete one counts as none.
std::unique_ptr<CounterTables> snapshotFor(const ShowOptions& options, bool messages, int& code) {
    if (!options.relative) return nullptr;
    auto snapshot =
        std::make_unique<CounterTables>(CounterTables::Which::snapshot, Vesk::VeskType::reader);
    const TableState state =
        stateOf(messages ? snapshot->messageFronts() : snapshot->errorFronts());
    if (state != TableState::complete) complain("take a snapshot first: rsvp-vesk snapshot");
    code = codeOf(state);
    return snapshot;
}

int showMessages(const ShowOptions& options, const CounterTables& tables,
                 const CounterTables* since) {
    InterfaceNames names(Mem::RootPath::base());
    auto rows = namedRows(tables.messages(since), names);
    if (!names.problem().empty()) complain(names.problem());
    if (options.interface) {
        const auto other = [&](const NamedMessageRow& row) {
            return row.interface != *options.interface;
        };
        if (!names.isName(*options.interface) && std::all_of(rows.begin(), rows.end(), other)) {
            complain(fmt::format("no interface \"{}\" has counters", *options.interface));
            return exitFailed;
        }
        std::erase_if(rows, other);
    }
    answer(options.json, rows);
    return exitDone;
}

} // namespace

int flushed(int code) {
    std::cout.flush();
    if (std::cout) return code;
    complain("cannot write the report to standard output");
    return exitFailed;
}

int codeOf(TableState state) {
    switch (state) {
    case TableState::complete:
        break;
    case TableState::corrupt:
        return exitCorrupt;
    case TableState::incomplete:
        return exitNoTable;
    }
    return exitDone;
}

bool sawCorruption(const Fronts& fronts) {
    bool saw = false;
    for (const Vesk::VeskMapBase* const front : fronts) {
        if (front->corruptions() == 0) continue;
        complain(
            fmt::format("{} is corrupt: {}", front->rootPath().dirName(), front->lastCorruption()));
        saw = true;
    }
    return saw;
}

TableState stateOf(const Fronts& fronts) {
    constexpr double kMoment = 0.5; // seconds
    const auto half = [](const Vesk::VeskMapBase* front) {
        return !front->ready() && front->exists();
    };
    // Somebody may be about to write them.
    const double end = Pello::time() + kMoment;
    while (std::any_of(fronts.begin(), fronts.end(), half) && Pello::time() < end) {
        Pello::Loop::ofThisThread()->runOnce(20);
    }
    TableState state = TableState::complete;
    std::size_t missing = 0;
    for (const Vesk::VeskMapBase* const front : fronts) {
        const std::string name = front->rootPath().dirName();
        if (half(front)) {
            complain(fmt::format("{0} is corrupt: see rsvp-vesk inspect {0}", name));
            state = TableState::corrupt;
        } else if (front->corruptions() != 0) {
            complain(fmt::format("{} is corrupt: {}", name, front->lastCorruption()));
            state = TableState::corrupt;
        } else if (!front->ready()) {
            ++missing;
        }
    }
    if (missing == 0) return state;
    for (const Vesk::VeskMapBase* const front : fronts) {
        if (!front->ready() && !front->exists()) {
            complain(fmt::format("no table {}", front->rootPath().path()));
        }
    }
    return state == TableState::corrupt ? state : TableState::incomplete;
}

void complainOfEndedWriter(const Fronts& fronts) {
    const auto ended = [](const Vesk::VeskMapBase* front) {
        return front->ready() && front->owner().ends_with(":0");
    };
    if (std::any_of(fronts.begin(), fronts.end(), ended)) {
        complain("the writer of these tables has ended; this is what it left");
    }
}

static int showHistory(const ShowOptions& options) {
    const HistoryTables tables(Vesk::VeskType::reader);
    const bool sessions = options.what == "sessions";
    const Fronts fronts{tables.fronts()[sessions ? 0 : 1]};
    if (options.wait && !waitFor(fronts)) return exitFailed;
    if (const int code = codeOf(stateOf(fronts)); code != exitDone) return code;
    if (sessions) {
        answer(options.json, rowsOf(tables.sessions(), options.history));
    } else {
        InterfaceNames names(Mem::RootPath::base());
        answer(options.json, rowsOf(tables.paths(), options.history, names));
    }
    complainOfEndedWriter(fronts);
    return flushed(sawCorruption(fronts) ? exitCorrupt : exitDone);
}

int runShow(const ShowOptions& options) {
    if (options.what == "tables") return flushed(showTables(options.json));
    if (options.what == "sessions" || options.what == "paths") return showHistory(options);
    const bool messages = options.what == "messages";
    const CounterTables tables(CounterTables::Which::current, Vesk::VeskType::reader);
    const Fronts fronts = messages ? tables.messageFronts() : tables.errorFronts();
    if (options.wait && !waitFor(fronts)) return exitFailed;
    // What is there is shown, whatever is missing beside it.
    int code = codeOf(stateOf(fronts));
    const bool none = std::none_of(fronts.begin(), fronts.end(),
                                   [](const Vesk::VeskMapBase* front) { return front->ready(); });
    if (none) return code;
    int snapshotCode = exitDone;
    const std::unique_ptr<CounterTables> snapshot = snapshotFor(options, messages, snapshotCode);
    if (snapshotCode != exitDone) return snapshotCode;
    const CounterTables* const since = snapshot.get();
    if (messages) {
        if (const int shown = showMessages(options, tables, since); shown != exitDone) return shown;
    } else {
        answer(options.json, namedRows(tables.errors(since)));
    }
    complainOfEndedWriter(fronts);
    Fronts read = fronts;
    if (since != nullptr) {
        const Fronts old = messages ? since->messageFronts() : since->errorFronts();
        read.insert(read.end(), old.begin(), old.end());
    }
    if (code != exitCorrupt && sawCorruption(read)) code = exitCorrupt;
    return flushed(code);
}

int runSnapshot(bool json) {
    const CounterTables tables(CounterTables::Which::current, Vesk::VeskType::reader);
    Fronts fronts = tables.messageFronts();
    const Fronts errorFronts = tables.errorFronts();
    fronts.insert(fronts.end(), errorFronts.begin(), errorFronts.end());
    if (const TableState state = stateOf(fronts); state != TableState::complete) {
        return codeOf(state);
    }
    try {
        // Before the old snapshot goes.
        static_cast<void>(tables.messages());
        static_cast<void>(tables.errors());
        if (sawCorruption(fronts)) return exitCorrupt;
        CounterTables snapshot(CounterTables::Which::snapshot, Vesk::VeskType::writer);
        snapshot.copyFrom(tables);
        if (sawCorruption(fronts)) return exitCorrupt;
        const std::size_t messages = snapshot.messages().size();
        const std::size_t errors = snapshot.errors().size();
        if (json) {
            print(std::cout, nlohmann::ordered_json{{"messages", messages}, {"errors", errors}});
        } else {
            std::cout << fmt::format("snapshot of {} message counters and {} error counters\n",
                                     messages, errors);
        }
    } catch (const Pello::CorruptionDetectedException& e) {
        complain(e.message());
        return exitCorrupt;
    } catch (const Pello::Exception& e) {
        complain(e.message());
        return exitFailed;
    }
    return flushed(exitDone);
}
