// Tables for a terminal of 80 columns.
#ifndef TOOLS_VEXINSPECT_TEXT_TABLE_H
#define TOOLS_VEXINSPECT_TEXT_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vexinspect {

inline constexpr size_t kTerminalColumns = 80;

// "-" for none.
std::string number_text(std::optional<int64_t> number);
std::string degrees_text(std::optional<int64_t> degrees);
std::string hex_text(std::optional<int64_t> number, int digits);

// Text that fits a width: its end is cut and marked.
std::string fitted(const std::string& text, size_t width);

struct Column {
    const char* title;
    size_t max_width;
    bool right = false;
};

// Prints rows under their titles, each column as wide as its content needs.
class TextTable {
  public:
    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    std::string text() const;

  private:
    size_t width(size_t column) const;
    std::string line(const std::vector<std::string>& cells) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_TEXT_TABLE_H
