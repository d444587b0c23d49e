#include "WatchView.h"

#include "Mem/RootPath.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <tuple>
#include <utility>

namespace {

constexpr std::size_t kNumberWidth = 12;
constexpr std::size_t kFrame = 4; ///< lines that are no rows: status, sums, heading, keys

/// Octets and columns of the character at `at`.
std::pair<std::size_t, std::size_t> characterAt(const std::string& text, std::size_t at) {
    std::mbstate_t state{};
    wchar_t character = 0;
    const std::size_t octets = std::mbrtowc(&character, &text[at], text.size() - at, &state);
    if (octets == 0 || octets > text.size() - at) return {1, 1};
    const int columns = wcwidth(character);
    return {octets, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

std::size_t columnsOf(const std::string& text) {
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto [octets, width] = characterAt(text, at);
        at += octets;
        columns += width;
    }
    return columns;
}

} // namespace

std::string WatchView::fit(const std::string& text, std::size_t width) {
    if (columnsOf(text) <= width) return text;
    std::string cut;
    std::size_t columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto [octets, more] = characterAt(text, at);
        if (columns + more + 1 > width) break;
        cut.append(text, at, octets);
        at += octets;
        columns += more;
    }
    return width == 0 ? "" : cut + "~";
}

void WatchView::take(const std::vector<NamedMessageRow>& messages,
                     const std::vector<NamedErrorRow>& errors, const std::string& identity,
                     double now) {
    messages_.clear();
    for (const NamedMessageRow& row : messages) {
        messages_.push_back({row.interface,
                             fmt::format("{:<2} {:<4} {:<8}", row.direction, row.family, row.type),
                             row.typeNumber, row.count, 0});
    }
    errors_.clear();
    for (const NamedErrorRow& row : errors) {
        errors_.push_back({row.error, row.direction, row.errorNumber, row.count, 0});
    }
    if (identity != std::exchange(identity_, identity)) taken_ = 0;
    const double seconds = taken_ == 0 ? 0 : now - taken_;
    ratesFor(messages_, messageTotals_, seconds);
    ratesFor(errors_, errorTotals_, seconds);
    taken_ = now;
}

/// A count that is smaller than it was has begun anew, and one that is new began at 0.
void WatchView::ratesFor(Rows& rows, Totals& totals, double seconds) const {
    Totals now;
    for (Row& row : rows) {
        const std::string key = row.name + '\n' + row.rest;
        now[key] = row.total;
        const auto before = totals.find(key);
        const std::uint64_t then = before == totals.end() ? 0 : before->second;
        if (seconds > 0 && row.total >= then) {
            row.rate = static_cast<double>(row.total - then) / seconds;
        }
    }
    totals = std::move(now);
}

void WatchView::nextOrder() {
    order_ = order_ == Order::name    ? Order::total
             : order_ == Order::total ? Order::rate
                                      : Order::name;
    first_ = 0;
}

void WatchView::otherPage() {
    page_ = page_ == Page::messages ? Page::errors : Page::messages;
    first_ = 0;
}

void WatchView::filterIs(std::string filter) {
    filter_ = std::move(filter);
    first_ = 0;
}

void WatchView::scroll(std::ptrdiff_t rows) {
    const auto back = static_cast<std::size_t>(-rows);
    first_ = rows >= 0 ? first_ + static_cast<std::size_t>(rows) : first_ - std::min(first_, back);
}

WatchView::Rows WatchView::shown() const {
    Rows rows = page_ == Page::messages ? messages_ : errors_;
    std::erase_if(rows, [this](const Row& row) {
        return (row.name + ' ' + row.rest).find(filter_) == std::string::npos;
    });
    // The largest first, and by name where two are equal.
    std::stable_sort(rows.begin(), rows.end(), [this](const Row& a, const Row& b) {
        if (order_ == Order::total) return a.total > b.total;
        return order_ == Order::rate && a.rate > b.rate;
    });
    if (reversed_) std::reverse(rows.begin(), rows.end());
    return rows;
}

std::string WatchView::number(double value) {
    if (value == 0) return "-";
    return value < 100 ? fmt::format("{:.1f}", value) : fmt::format("{:.0f}", value);
}

std::vector<std::string> WatchView::lines(std::size_t width, std::size_t height) {
    const auto sum = [](const Rows& rows) {
        std::pair<std::uint64_t, double> both{0, 0};
        for (const Row& row : rows) {
            both.first += row.total;
            both.second += row.rate;
        }
        return both;
    };
    const auto [messages, messageRate] = sum(messages_);
    const auto [errors, errorRate] = sum(errors_);
    const Rows rows = shown();
    const bool onMessages = page_ == Page::messages;
    const std::size_t restWidth = onMessages ? 16 : 2;
    const std::size_t fixed = restWidth + 2 * kNumberWidth + 3;
    const std::size_t nameWidth = width > fixed + 4 ? width - fixed : 4;
    const auto line = [&](const std::string& name, const std::string& rest,
                          const std::string& total, const std::string& rate) {
        const std::string cut = fit(name, nameWidth);
        return fit(fmt::format("{}{} {:<{}} {:>{}} {:>{}}", cut,
                               std::string(nameWidth - columnsOf(cut), ' '), rest, restWidth, total,
                               kNumberWidth, rate, kNumberWidth),
                   width);
    };
    const std::size_t room = height > kFrame ? height - kFrame : 0;
    first_ = std::min(first_, rows.size() - std::min(rows.size(), room));
    std::vector<std::string> lines;
    lines.push_back(fit(fmt::format("{}  {}", Mem::RootPath::base(), status_), width));
    lines.push_back(fit(fmt::format("messages {} ({}/s)  errors {} ({}/s)  {} of {} rows", messages,
                                    number(messageRate), errors, number(errorRate), rows.size(),
                                    onMessages ? messages_.size() : errors_.size()),
                        width));
    lines.push_back(line(onMessages ? "interface" : "error", onMessages ? "   type" : "", "total",
                         "per second"));
    for (std::size_t i = first_; i < rows.size() && i < first_ + room; ++i) {
        const Row& row = rows[i];
        lines.push_back(line(row.name, row.rest, std::to_string(row.total), number(row.rate)));
    }
    lines.resize(height > 1 ? height - 1 : 0);
    static constexpr const char* kOrders[] = {"name", "total", "rate"};
    if (height > 0) {
        lines.push_back(fit(fmt::format("q quit  s sorted by {}  r reverse{}  e {}  / filter{}",
                                        kOrders[static_cast<std::size_t>(order_)],
                                        reversed_ ? "d" : "", onMessages ? "errors" : "messages",
                                        filter_.empty() ? "" : " \"" + filter_ + '"'),
                            width));
    }
    return lines;
}
