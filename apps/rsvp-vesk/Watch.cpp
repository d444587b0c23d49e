#include "Watch.h"

#include "CounterTables.h"
#include "ExitCode.h"
#include "StopSignal.h"
#include "Tables.h"
#include "WatchView.h"

#include "Mem/RootPath.h"
#include "Pello/Loop.h"
#include "Pello/Time.h"

#define NCURSES_NOMACROS // macros that are named like members of classes
#include <ncurses.h>

#include <clocale>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

/// The whole terminal, given back as it was whatever way this ends.
class Screen {
  public:
    Screen() {
        initscr();
        cbreak();
        noecho();
        keypad(stdscr, TRUE);
        nodelay(stdscr, TRUE);
        set_escdelay(25);
        curs_set(0);
    }
    ~Screen() { endwin(); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// Takes the terminal's size; whether it is another than before. Asking finds also a change
    /// whose signal came before anybody listened.
    static bool resized() {
        winsize size{};
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
            return false;
        }
        if (!is_term_resized(size.ws_row, size.ws_col)) return false;
        resizeterm(size.ws_row, size.ws_col);
        return true;
    }

    static void show(const std::vector<std::string>& lines) {
        erase();
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (i == 2) attron(A_REVERSE);
            mvaddstr(static_cast<int>(i), 0, lines[i].c_str());
            if (i == 2) attroff(A_REVERSE);
        }
        refresh();
    }
};

class Watch {
  public:
    explicit Watch(double interval)
        : tables_(CounterTables::Which::current, Vesk::VeskType::reader)
        , names_(Mem::RootPath::base())
        , interval_(interval) {}

    void run() {
        StopSignal stop;
        const Screen screen;
        const Pello::Loop::Ptr loop = Pello::Loop::ofThisThread();
        const auto stopping =
            loop->watchFd(stop.fd(), EPOLLIN, [&](auto) { ended_ = stop.requested(); });
        const auto keys = loop->watchFd(STDIN_FILENO, EPOLLIN, [this](std::uint32_t events) {
            if ((events & (EPOLLHUP | EPOLLERR)) != 0) ended_ = true; // the terminal is gone
            for (int key = 0; !ended_ && (key = getch()) != ERR;) {
                press(key);
            }
            draw();
        });
        const auto looking = loop->repeatingTimer(std::chrono::duration_cast<Pello::Loop::Delay>(
                                                      std::chrono::duration<double>(interval_)),
                                                  [this] { look(); });
        const auto sizes = loop->repeatingTimer(std::chrono::milliseconds(100), [this] {
            if (Screen::resized()) draw();
        });
        look();
        while (!ended_) {
            loop->runOnce(-1);
        }
    }

  private:
    void look() {
        std::string identity;
        bool ready = true;
        bool alive = true;
        std::string owner;
        std::uint64_t corruptions = 0;
        std::string corruption;
        const auto messages = namedRows(tables_.messages(), names_);
        const auto errors = namedRows(tables_.errors());
        for (const auto& fronts : {tables_.messageFronts(), tables_.errorFronts()}) {
            for (const Vesk::VeskMapBase* const front : fronts) {
                identity += fmt::format("{} ", front->ravoId());
                ready = ready && front->ready();
                owner = front->owner();
                alive = alive && !owner.ends_with(":0");
                corruptions += front->corruptions();
                if (front->corruptions() != 0) corruption = front->lastCorruption();
            }
        }
        view_.take(messages, errors, identity, Pello::time());
        // Met by this look, not by one long ago.
        const bool corrupt = corruptions > std::exchange(corruptions_, corruptions);
        view_.statusIs(!ready   ? "waiting for the tables of an agent"
                       : !alive ? "the agent has ended; these are its last counts"
                                : "agent " + owner);
        if (corrupt) view_.statusIs("corrupt: " + corruption);
        draw();
    }

    void draw() {
        const auto height = static_cast<std::size_t>(LINES);
        std::vector<std::string> lines = view_.lines(static_cast<std::size_t>(COLS), height);
        if (typing_ && !lines.empty()) {
            lines.back() =
                WatchView::fit("filter: " + view_.filter() + "_", static_cast<std::size_t>(COLS));
        }
        Screen::show(lines);
    }

    void press(int key) {
        if (typing_) {
            type(key);
            return;
        }
        switch (key) {
        case 'q':
            ended_ = true;
            break;
        case 's':
            view_.nextOrder();
            break;
        case 'r':
            view_.reverse();
            break;
        case 'e':
            view_.otherPage();
            break;
        case '/':
            typing_ = true;
            break;
        case KEY_UP:
            view_.scroll(-1);
            break;
        case KEY_DOWN:
            view_.scroll(1);
            break;
        case KEY_PPAGE:
            view_.scroll(-static_cast<std::ptrdiff_t>(LINES));
            break;
        case KEY_NPAGE:
            view_.scroll(LINES);
            break;
        default:
            break;
        }
    }

    /// Enter ends the filter, escape takes it away.
    void type(int key) {
        constexpr int kEscape = 27;
        std::string filter = view_.filter();
        if (key == '\n' || key == KEY_ENTER) {
            typing_ = false;
        } else if (key == kEscape) {
            typing_ = false;
            view_.filterIs("");
        } else if (key == KEY_BACKSPACE || key == 127 || key == '\b') {
            if (!filter.empty()) filter.pop_back();
            view_.filterIs(filter);
        } else if (key >= ' ' && key < 256) {
            view_.filterIs(filter + static_cast<char>(key));
        }
    }

    CounterTables tables_;
    InterfaceNames names_;
    double interval_;
    WatchView view_;
    std::uint64_t corruptions_ = 0;
    bool typing_ = false;
    bool ended_ = false;
};

} // namespace

int runWatch(double interval) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        complain("watch needs a terminal; show messages prints once");
        return exitUsage;
    }
    std::setlocale(LC_ALL, "");
    // Traces would run across the screen; what they say stands on it.
    Pello::Platform::traceLevelsIs("", 0);
    Watch(interval).run();
    return exitDone;
}
