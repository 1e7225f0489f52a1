// Tables of text: the cells once, for a terminal and for HTML. Any thread.
#ifndef REPLAY_REPORT_TEXT_TABLE_H_
#define REPLAY_REPORT_TEXT_TABLE_H_

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace replay {

enum class Look { Plain, Bold, Dim, Good, Bad };
struct Cell {
  std::string text;  // printable
  Look look = Look::Plain;
};
using TableRow = std::vector<Cell>;

// The first row is the heading, the first column names the rows and is left-aligned.
using Table = std::vector<TableRow>;

TableRow Heading(std::initializer_list<const char*> names);

// Columns that a text takes on a terminal, wide characters as two.
size_t Columns(const std::string& text);

// With the escapes of a terminal, where it understands them.
std::string Painted(const std::string& text, Look look, bool colour);

// What a table is shown on, and how it may be made narrower.
struct TableShape {
  size_t columns = 120;
  bool colour = false;
  const char* separator = "  ";
  size_t shortestName = 12;         // names are not cut below this
  std::vector<size_t> dispensable;  // columns by index, in the order in which they are left out
};

// Returns lines with their ends that fit into `columns`, unless even a short table is wider: columns are left
// out, which a last line says, and then the names in the first column are shortened in their middle.
std::string TableText(Table table, const TableShape& shape);

// Breaks each line at spaces so that it fits; terminal escapes have no width.
std::string Wrapped(const std::string& text, size_t columns, const std::string& indent = "");

}  // namespace replay

#endif  // REPLAY_REPORT_TEXT_TABLE_H_
