#include "Table.h"

#include <algorithm>

namespace telmictl {

namespace {

// Columns line up on the terminal by characters, not bytes: UTF-8 continuation bytes take no room.
size_t displayWidth(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

Table::Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }

void Table::add(std::vector<std::string> row) {
    row.resize(rows_.front().size());
    rows_.push_back(std::move(row));
}

void Table::print(FILE* out) const {
    std::vector<size_t> widths(rows_.front().size(), 0);
    for (const auto& row : rows_) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], displayWidth(row[i]));
        }
    }
    for (const auto& row : rows_) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line.append(widths[i] - displayWidth(row[i]) + 2, ' ');
            }
        }
        std::fprintf(out, "%s\n", line.c_str());
    }
}

const char* yesNo(int state) { return state == 1 ? "yes" : "no"; }

}  // namespace telmictl
