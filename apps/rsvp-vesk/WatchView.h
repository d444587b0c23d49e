#pragma once

// What `rsvp-vesk watch` shows: rows with totals and rates, in the order and with the filter that
// the keys ask for, as lines of text of a given width. Knows no terminal.

#include "Report.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class WatchView {
  public:
    enum class Page : std::uint8_t {
        messages,
        errors
    };
    enum class Order : std::uint8_t {
        name,
        total,
        rate
    };

    /// What the tables hold at a time, in seconds of the monotonic clock. `identity` tells one
    /// life of the tables from another: over its change there is no rate.
    void take(const std::vector<NamedMessageRow>& messages,
              const std::vector<NamedErrorRow>& errors, const std::string& identity, double now);

    void nextOrder();
    void reverse() { reversed_ = !reversed_; }
    void otherPage();
    void filterIs(std::string filter);
    const std::string& filter() const { return filter_; }
    void scroll(std::ptrdiff_t rows);

    /// The state of the tables, for the first line.
    void statusIs(std::string status) { status_ = std::move(status); }

    /// `height` lines of at most `width` columns each; the third is the heading.
    std::vector<std::string> lines(std::size_t width, std::size_t height);

    /// The text cut to that many columns, with "~" where something is missing. Characters that take
    /// two columns count as such.
    static std::string fit(const std::string& text, std::size_t width);

  private:
    struct Row {
        std::string name; ///< interface or error, what the filter is compared with first
        std::string rest; ///< the other words
        std::uint64_t number;
        std::uint64_t total;
        double rate;
    };
    using Rows = std::vector<Row>;
    using Totals = std::map<std::string, std::uint64_t>;

    void ratesFor(Rows& rows, Totals& totals, double seconds) const;
    Rows shown() const;
    static std::string number(double value);

    Rows messages_;
    Rows errors_;
    Totals messageTotals_;
    Totals errorTotals_;
    std::string identity_;
    double taken_ = 0;
    Page page_ = Page::messages;
    Order order_ = Order::name;
    bool reversed_ = false;
    std::string filter_;
    std::size_t first_ = 0;
    std::string status_;
};
