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

// Shortens the names in the first column, in their middle, until the lines fit into `columns` or the names
// are short.
void FitNames(Table& table, size_t separator, size_t columns);

// Lines with their ends.
std::string TableText(const Table& table, bool colour, const char* separator = "  ");

}  // namespace replay

#endif  // REPLAY_REPORT_TEXT_TABLE_H_
