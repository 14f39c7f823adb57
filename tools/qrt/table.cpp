#include "tools/qrt/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <numeric>

#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

constexpr size_t kGap = 2;
// A column isn't cut below this: less of a name says nothing.
constexpr size_t kLeastWidth = 8;

size_t whole_width(const std::vector<size_t>& widths) {
  const size_t gaps = widths.empty() ? 0 : kGap * (widths.size() - 1);
  return std::accumulate(widths.begin(), widths.end(), gaps);
}

}  // namespace

size_t table_width(const std::optional<size_t>& option) {
  constexpr size_t kNoLimit = std::numeric_limits<size_t>::max();
  if (option) return *option == 0 ? kNoLimit : *option;
  winsize terminal{};
  const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col != 0;
  return is_known ? terminal.ws_col : kNoLimit;
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::add(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  for (std::string& cell : cells) cell = printable(cell);
  rows_.push_back(std::move(cells));
}

void Table::add_rule() { rows_.emplace_back(); }

std::vector<size_t> Table::column_widths(size_t width) const {
  std::vector<size_t> widths;
  widths.reserve(columns_.size());
  for (const Column& column : columns_) widths.push_back(width_of(column.title));
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  // The widest of the columns that may shrink gives first.
  for (size_t whole = whole_width(widths); whole > width;) {
    size_t widest = columns_.size();
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (!columns_[i].shrinks || widths[i] <= kLeastWidth) continue;
      if (widest == columns_.size() || widths[i] > widths[widest]) widest = i;
    }
    if (widest == columns_.size()) break;
    // Down to the next one in one go, so that a name of a megabyte doesn't take a million rounds.
    size_t next = kLeastWidth;
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (columns_[i].shrinks && i != widest) next = std::max(next, widths[i]);
    }
    const size_t most = std::max<size_t>(1, widths[widest] - std::min(next, widths[widest] - 1));
    const size_t cut = std::min({most, whole - width, widths[widest] - kLeastWidth});
    widths[widest] -= cut;
    whole -= cut;
  }
  return widths;
}

std::string Table::line(const std::vector<std::string>& cells,
                        const std::vector<size_t>& widths) const {
  std::string text;
  for (size_t i = 0; i < cells.size(); ++i) {
    const std::string cell = shortened(cells[i], widths[i]);
    const std::string blanks(widths[i] - width_of(cell), ' ');
    if (i != 0) text.append(kGap, ' ');
    text += columns_[i].right ? blanks + cell : cell + blanks;
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text + '\n';
}

std::string Table::text(size_t width) const {
  const std::vector<size_t> widths = column_widths(width);
  const std::string rule = std::string(whole_width(widths), '-') + '\n';
  std::vector<std::string> titles;
  titles.reserve(columns_.size());
  for (const Column& column : columns_) titles.push_back(column.title);
  std::string text = line(titles, widths) + rule;
  for (const auto& row : rows_) text += row.empty() ? rule : line(row, widths);
  return text;
}

}  // namespace qrt_tool
