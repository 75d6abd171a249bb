#include "vexinspect/text_table.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace vexinspect {

namespace {

constexpr const char* kNone = "-";
constexpr size_t kGap = 2;

}  // namespace

std::string number_text(std::optional<int64_t> number) {
    return number ? std::to_string(*number) : kNone;
}

std::string degrees_text(std::optional<int64_t> degrees) {
    return degrees ? std::to_string(*degrees) + " C" : kNone;
}

std::string hex_text(std::optional<int64_t> number, int digits) {
    char text[20];
    std::snprintf(text, sizeof(text), "%0*" PRIx64, digits,
                  static_cast<uint64_t>(number.value_or(0)));
    return number ? text : kNone;
}

std::string fitted(const std::string& text, size_t width) {
    return text.size() <= width ? text : text.substr(0, width - 1) + "~";
}

size_t TextTable::width(size_t column) const {
    size_t widest = std::string(columns_[column].title).size();
    for (const auto& row : rows_) {
        widest = std::max(widest, row[column].size());
    }
    return std::min(widest, columns_[column].max_width);
}

std::string TextTable::line(const std::vector<std::string>& cells) const {
    std::string out;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string cell = fitted(cells[i], columns_[i].max_width);
        const std::string fill(width(i) - std::min(width(i), cell.size()), ' ');
        out += std::string(kGap, ' ') + (columns_[i].right ? fill + cell : cell + fill);
    }
    out.erase(out.find_last_not_of(' ') + 1);
    return out + "\n";
}

std::string TextTable::text() const {
    std::vector<std::string> titles;
    for (const Column& column : columns_) {
        titles.push_back(column.title);
    }
    std::string out = line(titles);
    for (const auto& row : rows_) {
        out += line(row);
    }
    return out;
}

}  // namespace vexinspect
