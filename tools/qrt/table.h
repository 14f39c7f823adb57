#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qrt_tool {

/// The width that tables get: of `--width`, where 0 is no limit; without it that of the terminal,
/// and no limit where standard output isn't one.
size_t table_width(const std::optional<size_t>& option);

/// How one column of a table looks.
struct Column {
  std::string title;
  bool right = false;    ///< numbers stand to the right
  bool shrinks = false;  ///< its texts may be cut in the middle when the table is too wide
};

/// Rows of text under titles, as wide as their contents.
class Table {
 public:
  explicit Table(std::vector<Column> columns);

  /// Adds a row; missing cells are empty. Texts are made printable.
  void add(std::vector<std::string> cells);

  /// Adds a line of dashes.
  void add_rule();

  /// The whole table, one line per row, at most `width` wide as far as shrinking columns allow.
  std::string text(size_t width) const;

 private:
  std::vector<size_t> column_widths(size_t width) const;
  std::string line(const std::vector<std::string>& cells, const std::vector<size_t>& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  // a row without cells is a rule
};

}  // namespace qrt_tool
