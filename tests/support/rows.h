// Tables of inputs and expectations.
#ifndef TESTS_SUPPORT_ROWS_H
#define TESTS_SUPPORT_ROWS_H

#include <gtest/gtest.h>

#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

// Rows of columns of these types. A failure while a loop is at a row names the row's first column.
template <class... Columns>
class Rows {
    using Row = std::tuple<Columns...>;

  public:
    Rows(std::initializer_list<Row> rows) : rows_(rows) {}

    class Iterator {
      public:
        explicit Iterator(const Row* row) : row_(row) {}
        const Row& operator*() {
            trace_.emplace("row", 0, testing::PrintToString(std::get<0>(*row_)));
            return *row_;
        }
        Iterator& operator++() {
            trace_.reset();
            ++row_;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return row_ != other.row_; }

      private:
        const Row* row_;
        std::optional<testing::ScopedTrace> trace_;
    };
    Iterator begin() const { return Iterator{rows_.data()}; }
    Iterator end() const { return Iterator{rows_.data() + rows_.size()}; }

  private:
    std::vector<Row> rows_;
};

// The words of a text.
inline std::vector<std::string> words(const std::string& text) {
    std::istringstream stream{text};
    return {std::istream_iterator<std::string>{stream}, {}};
}

#endif  // TESTS_SUPPORT_ROWS_H
