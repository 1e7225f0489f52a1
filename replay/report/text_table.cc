#include "replay/report/text_table.h"

#include <fmt/format.h>

#include <algorithm>

#include "replay/report/printable_text.h"

namespace replay {
namespace {

constexpr size_t kShortestName = 12;

// Cut to a number of columns, in the middle, because both ends of a file's name tell something.
std::string Shorten(const std::string& text, size_t columns) {
  if (Columns(text) <= columns) return text;
  std::vector<std::string> characters;
  for (size_t at = 0; at < text.size();) {
    const size_t length = std::max<size_t>(SequenceLength(text, at), 1);
    characters.push_back(text.substr(at, length));
    at += length;
  }
  std::string head, tail;
  size_t front = 0, back = characters.size();
  while (true) {
    const bool fromFront = Columns(head) <= Columns(tail);
    const std::string& next = fromFront ? characters[front] : characters[back - 1];
    if (Columns(head) + Columns(tail) + Columns(next) + 1 > columns) break;
    if (fromFront) {
      head += next;
      ++front;
    } else {
      tail.insert(0, next);
      --back;
    }
  }
  return head + "…" + tail;
}

std::vector<size_t> Widths(const Table& table) {
  std::vector<size_t> widths;
  for (const TableRow& row : table) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], Columns(row[column].text));
    }
  }
  return widths;
}

}  // namespace

TableRow Heading(std::initializer_list<const char*> names) {
  TableRow row;
  for (const char* name : names) row.push_back({name, Look::Dim});
  return row;
}

size_t Columns(const std::string& text) {
  constexpr size_t kPadded = 4096;
  return kPadded + text.size() - fmt::formatted_size("{:<4096}", text);
}

std::string Painted(const std::string& text, Look look, bool colour) {
  if (!colour || look == Look::Plain) return text;
  const char* const code = look == Look::Bold   ? "1"
                           : look == Look::Dim  ? "2"
                           : look == Look::Good ? "32"
                                                : "31";
  return fmt::format("\033[{}m{}\033[0m", code, text);
}

void FitNames(Table& table, size_t separator, size_t columns) {
  const std::vector<size_t> widths = Widths(table);
  size_t others = 0;
  for (size_t column = 1; column < widths.size(); ++column) others += separator + widths[column];
  const size_t room = std::max(kShortestName, columns - std::min(columns, others));
  for (TableRow& row : table) row[0].text = Shorten(row[0].text, room);
}

std::string TableText(const Table& table, bool colour, const char* separator) {
  const std::vector<size_t> widths = Widths(table);
  std::string text;
  for (const TableRow& row : table) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
      const std::string padding(widths[column] - Columns(row[column].text), ' ');
      const std::string shown = Painted(row[column].text, row[column].look, colour);
      if (column > 0) line += separator;
      line += column == 0 ? shown + padding : padding + shown;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace replay
