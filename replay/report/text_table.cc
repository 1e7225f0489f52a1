#include "replay/report/text_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "replay/report/printable_text.h"

namespace replay {
namespace {

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

size_t WidthOf(const std::vector<size_t>& widths, size_t separator) {
  size_t width = 0;
  for (size_t column = 0; column < widths.size(); ++column)
    width += widths[column] + (column > 0 ? separator : 0);
  return width;
}

// The names of the columns that are left out so that the others fit beside short names.
std::vector<std::string> LeaveOut(Table& table, const TableShape& shape, size_t separator) {
  std::vector<std::string> names;
  std::vector<bool> isLeftOut(table.front().size());
  const std::vector<size_t> widths = Widths(table);
  size_t width = WidthOf(widths, separator) - widths[0] + std::min(widths[0], shape.shortestName);
  for (const size_t column : shape.dispensable) {
    if (width <= shape.columns) break;
    width -= widths.at(column) + separator;
    isLeftOut[column] = true;
    names.push_back(table.front()[column].text);
  }
  for (TableRow& row : table) {
    TableRow kept;
    for (size_t column = 0; column < row.size(); ++column) {
      if (!isLeftOut[column]) kept.push_back(std::move(row[column]));
    }
    row = std::move(kept);
  }
  return names;
}

void FitNames(Table& table, const TableShape& shape, size_t separator) {
  const std::vector<size_t> widths = Widths(table);
  const size_t others = WidthOf(widths, separator) - widths[0];
  const size_t room = std::max(shape.shortestName, shape.columns - std::min(shape.columns, others));
  for (TableRow& row : table) row[0].text = Shorten(row[0].text, room);
}

// Without the escapes that a terminal acts on.
size_t ColumnsShown(const std::string& text) {
  std::string shown;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\033') {
      at = std::min(text.find('m', at), text.size());
    } else {
      shown += text[at];
    }
  }
  return Columns(shown);
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

std::string TableText(Table table, const TableShape& shape) {
  const size_t separator = std::string_view(shape.separator).size();
  const std::vector<std::string> leftOut = LeaveOut(table, shape, separator);
  FitNames(table, shape, separator);
  const std::vector<size_t> widths = Widths(table);
  std::string text;
  for (const TableRow& row : table) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
      const std::string padding(widths[column] - Columns(row[column].text), ' ');
      const std::string shown = Painted(row[column].text, row[column].look, shape.colour);
      if (column > 0) line += shape.separator;
      line += column == 0 ? shown + padding : padding + shown;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  if (leftOut.empty()) return text;
  std::string note = "Too narrow for:";
  for (const std::string& name : leftOut)
    note += (&name == &leftOut.front() ? " " : ", ") + name.substr(name.find_first_not_of(' '));
  return text + Painted(Wrapped(note, shape.columns), Look::Dim, shape.colour) + "\n";
}

std::string Wrapped(const std::string& text, size_t columns, const std::string& indent) {
  std::string wrapped, line;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find_first_of(" \n", at), text.size());
    const std::string word = text.substr(at, end - at);
    if (!line.empty() && ColumnsShown(line) + 1 + ColumnsShown(word) > columns) {
      wrapped += line + "\n";
      line = indent + word;
    } else {
      line += (at > 0 && text[at - 1] == ' ' ? " " : "") + word;
    }
    if (end < text.size() && text[end] == '\n') {
      wrapped += line + "\n";
      line.clear();
    }
    at = end + 1;
  }
  return wrapped + line;
}

}  // namespace replay
