// rsvp-vesk: publishes and shows the state of an RSVP agent. All messages go to stderr; stdout has
// the answer alone.

#include "Agent.h"
#include "ExitCode.h"
#include "Generic.h"
#include "Inspect.h"
#include "Show.h"
#include "Watch.h"

#include "Mem/RootPath.h"
#include "Pello/Debug.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// HANDLE=LEVELS, with levels from 0 to 15 separated by commas, or "all", or "none". The handle
/// "*" stands for every one.
void applyTrace(const std::string& text) {
    const auto bad = [&text](const char* why) -> CLI::ValidationError {
        return CLI::ValidationError("--trace", fmt::format("\"{}\": {}", text, why));
    };
    const std::size_t equals = text.rfind('=');
    if (equals == std::string::npos || equals == 0) throw bad("HANDLE=LEVELS expected");
    const std::string handle = text.substr(0, equals);
    std::string levels = text.substr(equals + 1);
    unsigned mask = 0;
    if (levels == "all") {
        mask = 0xFFFF;
    } else if (levels != "none") {
        const char* at = levels.data();
        const char* const end = at + levels.size();
        while (true) {
            unsigned level = 0;
            const auto [after, error] = std::from_chars(at, end, level);
            if (error != std::errc() || level > 15) throw bad("levels are numbers from 0 to 15");
            mask |= 1U << level;
            if (after == end) break;
            if (*after != ',') throw bad("levels are separated by commas");
            at = after + 1;
        }
    }
    Pello::Platform::traceLevelsIs(handle == "*" ? "" : handle, static_cast<std::uint16_t>(mask));
}

int run(int argc, char** argv) {
    CLI::App app("Publishes the live state of an RSVP-TE agent in shared memory.", "rsvp-vesk");
    app.footer("Examples:\n"
               "  rsvp-vesk agent --pcap trace.pcap\n"
               "      count the RSVP messages of a capture\n"
               "  rsvp-vesk --root /tmp/rsvp agent --pcap a.pcap --pcap b.pcap "
               "--local 192.0.2.1 --json\n"
               "      count two captures of the node 192.0.2.1 and print JSON\n"
               "  rsvp-vesk agent --pcap trace.pcapng --key a1=secret\n"
               "      check the digests of messages that are signed with key a1\n"
               "  rsvp-vesk agent --pcap trace.pcap --trace '*=1,2'\n"
               "      show how the tables are attached and how they grow\n"
               "  rsvp-vesk show messages --interface et1\n"
               "      what an agent has counted on an interface, read beside it\n"
               "  rsvp-vesk watch\n"
               "      totals and rates, live\n"
               "  rsvp-vesk snapshot && sleep 60 && rsvp-vesk show errors --relative\n"
               "      the errors of a minute\n"
               "  rsvp-vesk show paths --session 10.0.0.1\n"
               "      what has happened to the tunnels to 10.0.0.1, the oldest first\n"
               "  rsvp-vesk get ErrorCounterColl rxErrorCount\n"
               "      every element of a table, by the names of its type and attribute\n"
               "  rsvp-vesk inspect mpls/rsvp/errorCounters/rxErrorCount\n"
               "      headers, owner, fill and soundness of a table\n"
               "  rsvp-vesk clean\n"
               "      remove what a writer that is gone has left\n"
               "\n"
               "Exit codes: 0 done, 1 it failed and said why, 2 wrong usage, 3 no such table, "
               "4 corruption found.");
    app.require_subcommand(1);

    std::string root = Mem::RootPath::base();
    std::vector<std::string> traces;
    AgentOptions agentOptions;
    app.add_option("--root", root, "Folder of all tables")->capture_default_str();
    app.add_flag("--json", agentOptions.json, "JSON on standard output");
    app.add_option("--trace", traces,
                   "HANDLE=LEVELS: print these trace levels (0 to 15, comma-separated, \"all\" or "
                   "\"none\") of a table, or of all with the handle \"*\"")
        ->allow_extra_args(false);

    CLI::App* const agent =
        app.add_subcommand("agent", "Count RSVP messages into the tables, as their one writer");
    agent->fallthrough();
    agent->add_option("--pcap", agentOptions.captures, "Capture file to read (repeatable)")
        ->required()
        ->allow_extra_args(false)
        ->type_name("FILE");
    agent
        ->add_option("--local", agentOptions.locals,
                     "Address of the node itself: IPv4, IPv6, MAC, or the first octets of a MAC "
                     "(repeatable); what comes from it was sent, all else received")
        ->allow_extra_args(false)
        ->type_name("ADDR");
    agent
        ->add_option("--key", agentOptions.keys,
                     "Key of INTEGRITY objects, with its identifier in hexadecimal (repeatable); "
                     "messages whose digest under a given key is wrong are errors")
        ->allow_extra_args(false)
        ->type_name("ID=TEXT");
    agent->add_flag("--fresh", agentOptions.fresh, "Remove what the tables hold first");
    agent->add_flag("--stay", agentOptions.stay,
                    "Stay the tables' writer after the last capture, until SIGTERM or SIGINT");

    ShowOptions showOptions;
    CLI::App* const show = app.add_subcommand("show", "Print what another process publishes");
    show->require_subcommand(1);
    show->fallthrough();
    const auto showCommand = [&](const char* name, const char* what) {
        CLI::App* const command = show->add_subcommand(name, what);
        command->fallthrough();
        command->callback([&showOptions, name] { showOptions.what = name; });
        return command;
    };
    CLI::App* const showMessages =
        showCommand("messages", "The message counters: rows as in the agent's report");
    CLI::App* const showErrors =
        showCommand("errors", "The error counters: rows as in the agent's report");
    CLI::App* const showSessions =
        showCommand("sessions", "What has happened to sessions, the oldest first");
    CLI::App* const showPaths =
        showCommand("paths", "What has happened to state paths, the oldest first");
    showCommand("tables", "Every table below the root: entries, sizes, and who writes it");
    for (CLI::App* const counters : {showMessages, showErrors}) {
        counters->add_flag("--relative", showOptions.relative,
                           "What the counts have grown by since the snapshot");
    }
    for (CLI::App* const published : {showMessages, showErrors, showSessions, showPaths}) {
        published->add_flag("--wait", showOptions.wait,
                            "Wait for the tables to appear, until SIGTERM or SIGINT");
    }
    for (CLI::App* const history : {showSessions, showPaths}) {
        history
            ->add_option("--session", showOptions.history.session,
                         "That session alone: destination, or destination/tunnel, or "
                         "destination/tunnel/extended tunnel")
            ->type_name("SESSION");
        history
            ->add_option("--since", showOptions.history.since,
                         "Not before that time, in seconds since 1970")
            ->type_name("TIME");
        history
            ->add_option("--until", showOptions.history.until,
                         "Not after that time, in seconds since 1970")
            ->type_name("TIME");
    }
    showPaths
        ->add_option("--sender", showOptions.history.sender,
                     "That sender alone: address, or address/LSP ID")
        ->type_name("SENDER");
    showMessages
        ->add_option("--interface", showOptions.interface, "The counters of that interface alone")
        ->type_name("IF");
    double interval = 1;
    CLI::App* const watch = app.add_subcommand("watch", "Live view of totals and rates");
    watch->fallthrough();
    watch->add_option("--interval", interval, "Seconds from one look to the next")
        ->capture_default_str()
        ->check(CLI::Range(0.05, 3600.0));
    CLI::App* const snapshot = app.add_subcommand(
        "snapshot", "Copy the counters into the snapshot that --relative compares with");
    snapshot->fallthrough();

    GenericOptions genericOptions;
    const auto genericCommand = [&](const char* name, const char* what, const char* arguments) {
        CLI::App* const command = app.add_subcommand(name, what);
        command->fallthrough();
        command->add_option("TYPE", genericOptions.type, "Type, such as MessageCounterColl")
            ->required();
        command->add_option("ATTRIBUTE", genericOptions.attribute, "Attribute of the type")
            ->required();
        command->add_option("ARGUMENT", genericOptions.arguments, arguments);
        return command;
    };
    const CLI::App* const get =
        genericCommand("get", "Print an attribute of any registered type",
                       "Of a table: the text form of a key; of a value type: that of a value");
    const CLI::App* const call =
        genericCommand("call", "Call a method of any registered type that changes nothing",
                       "Text forms of the arguments; a collection by the path where it is "
                       "published; for a value type that of the value first");

    TableOptions tableOptions;
    const auto tableCommand = [&](const char* name, const char* what) {
        CLI::App* const command = app.add_subcommand(name, what);
        command->fallthrough();
        command->add_option("TABLE", tableOptions.tables,
                            "Name below the root, such as mpls/rsvp/errorCounters/rxErrorCount; "
                            "all tables when none is given");
        return command;
    };
    const CLI::App* const inspect = tableCommand(
        "inspect", "Show what the files of tables say, and check them without changing a byte");
    const CLI::App* const clean =
        tableCommand("clean", "Remove the files of tables whose writer is gone");

    try {
        app.parse(argc, argv);
        for (const std::string& trace : traces) {
            applyTrace(trace);
        }
    } catch (const CLI::ParseError& e) {
        return app.exit(e, std::cout, std::cerr) == 0 ? exitDone : exitUsage;
    }
    if (root.empty()) {
        std::cerr << "rsvp-vesk: --root needs a folder\n";
        return exitUsage;
    }
    Mem::RootPath::baseIs(std::filesystem::absolute(root).lexically_normal().string());
    tableOptions.json = agentOptions.json;
    showOptions.json = agentOptions.json;
    genericOptions.json = agentOptions.json;
    if (get->parsed()) return runGet(genericOptions);
    if (call->parsed()) return runCall(genericOptions);
    if (watch->parsed()) return runWatch(interval);
    if (show->parsed()) return runShow(showOptions);
    if (snapshot->parsed()) return runSnapshot(agentOptions.json);
    if (inspect->parsed()) return runInspect(tableOptions);
    if (clean->parsed()) return runClean(tableOptions);
    return runAgent(agentOptions);
}

} // namespace

int main(int argc, char** argv) {
    // A full disk or a closed pipe is an error of the write that met it, with its message.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "rsvp-vesk: " << e.what() << '\n';
        return exitFailed;
    }
}
