#include "tools/vantroctl/output/table.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

constexpr int gap_columns = 2;
constexpr std::string_view gap = "  ";
// Columns that a name should have at least.
constexpr int name_columns_min = 16;

std::string padded(const std::string &cell, int width, bool right) {
    const std::string blanks(static_cast<size_t>(std::max(width - display_width(cell), 0)), ' ');
    return right ? blanks + cell : cell + blanks;
}

} // namespace

Table::Table(std::vector<Column> columns, std::optional<int> width)
    : columns_(std::move(columns)), width_(width) {}

bool Table::fits(const std::vector<bool> &shown, bool stacked, int name_width) const {
    int used = std::min(name_width, name_columns_min);
    for (size_t i = 0; i + 1 < columns_.size(); ++i) {
        if (shown[i] && !(stacked && columns_[i].pasted)) {
            used += widths_[i] + gap_columns;
        }
    }
    return used <= *width_;
}

void Table::settle(const std::vector<Row> &rows) {
    settled_ = true;
    for (const Column &column : columns_) {
        widths_.push_back(display_width(column.head));
    }
    for (const Row &row : rows) {
        for (size_t i = 0; i < columns_.size(); ++i) {
            widths_[i] = std::max(widths_[i], display_width(row[i]));
        }
    }
    int spares = 0;
    for (const Column &column : columns_) {
        spares = std::max(spares, column.spare);
    }
    for (const bool stacked : {false, true}) {
        for (int gone = 0; gone <= spares; ++gone) {
            stacked_ = stacked;
            shown_.clear();
            for (const Column &column : columns_) {
                shown_.push_back(column.spare == 0 || column.spare > gone);
            }
            if (fits(shown_, stacked, widths_.back())) {
                return;
            }
        }
    }
}

std::string Table::line(const Row &row, bool head) const {
    std::string text;
    std::string below;
    for (size_t i = 0; i + 1 < columns_.size(); ++i) {
        if (!shown_[i]) {
            continue;
        }
        if (stacked_ && columns_[i].pasted) {
            below = head || row[i].empty() ? "" : std::string(gap).append(row[i]) + '\n';
            continue;
        }
        text += padded(row[i], widths_[i], columns_[i].right).append(gap);
    }
    const int room = *width_ - display_width(text);
    const int wanted = std::min(display_width(row.back()), name_columns_min);
    if (!head && room < wanted && !stacked_) { // This cell is wider than all before it.
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n' + std::string(gap) + clip_text(row.back(), *width_ - gap_columns);
    } else {
        text += clip_text(row.back(), room);
    }
    return text + '\n' + below;
}

std::string Table::tabbed(const Row &row) {
    std::string text;
    for (size_t i = 0; i < row.size(); ++i) {
        text += (i > 0 ? "\t" : "") + row[i];
    }
    return text + '\n';
}

std::string Table::lines(const std::vector<Row> &rows, const std::vector<size_t> &playing) {
    std::string text;
    if (width_ && !settled_) {
        settle(rows);
        Row heads;
        for (const Column &column : columns_) {
            heads.emplace_back(column.head);
        }
        text += line(heads, true);
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        const bool plays = std::find(playing.begin(), playing.end(), i) != playing.end();
        text += painted(plays ? Ink::playing : Ink::plain,
                        width_ ? line(rows[i], false) : tabbed(rows[i]));
    }
    return text;
}

} // namespace vantro::ctl
