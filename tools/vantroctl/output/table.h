// Lists in columns: aligned and clipped for a terminal, separated by tabs for programs.
//
// One column may hold text that people paste: it is never clipped. If that column leaves too little
// room for the name, spare columns are dropped; if that is not enough, the column moves to a
// separate line.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_TABLE_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_TABLE_H

#include <optional>
#include <string>
#include <vector>

namespace vantro::ctl {

class Table {
  public:
    struct Column {
        const char *head;
        bool right = false;  // Aligned to the right.
        int spare = 0;       // Columns are dropped in the order of this number; 0: never.
        bool pasted = false; // Never clipped. One a table.
    };
    using Row = std::vector<std::string>;

    // @param columns the last one is the name: it stands last, so that a script written from right
    //                to left does not disorder the others.
    // @param width of the terminal; nothing for lines with tabs and without headings.
    Table(std::vector<Column> columns, std::optional<int> width);

    // The lines of these rows. The first rows determine the widths of the columns.
    // @param playing the indices of the rows that show current tracks.
    std::string lines(const std::vector<Row> &rows, const std::vector<size_t> &playing = {});

  private:
    void settle(const std::vector<Row> &rows);
    bool fits(const std::vector<bool> &shown, bool stacked, int name_width) const;
    std::string line(const Row &row, bool head) const;
    static std::string tabbed(const Row &row);

    std::vector<Column> columns_;
    std::optional<int> width_;
    bool settled_ = false;
    bool stacked_ = false; // The pasted column has a separate line.
    std::vector<bool> shown_;
    std::vector<int> widths_;
};

} // namespace vantro::ctl

#endif
