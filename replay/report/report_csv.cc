#include "replay/report/report_csv.h"

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "replay/report/report_json.h"

namespace replay {
namespace {

using Json = nlohmann::ordered_json;
using Cells = std::vector<std::pair<std::string, std::string>>;  // column and text

std::string Quoted(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + '"';
}

std::string TextOf(const Json& value) {
  if (value.is_null()) return "";
  return value.is_string() ? Quoted(value.get<std::string>()) : value.dump();
}

void AddCells(const std::string& prefix, const Json& object, Cells& cells) {
  for (const auto& [key, value] : object.items()) {
    if (value.is_object()) {
      AddCells(prefix + key + ".", value, cells);
    } else {
      cells.emplace_back(prefix + key, TextOf(value));
    }
  }
}

// Of a row with figures: objects whose keys depend on the recording have a column for every key that is
// possible, or one for their sum.
Cells CellsOf(const Summary& summary, const ReplayOptions& options) {
  Json line = Json::parse(JsonLine(summary, options));
  line.erase("merge");
  line.erase("reasons");
  size_t skipped = 0;
  for (const auto& [reason, count] : summary.skipped) skipped += count;
  line["skipped"] = skipped;
  Json& reasons = line["reasons"];
  for (const auto& words : host::kNotServedWords) {
    if (words.reason == host::NotServed::None) continue;
    const auto found = summary.reasons.find(words.reason);
    reasons[words.key] = found != summary.reasons.end() ? found->second : 0;
  }
  line["error"] = nullptr;
  Cells cells;
  AddCells("", line, cells);
  return cells;
}

std::string Row(const Cells& cells, std::string Cells::value_type::*part) {
  std::string row;
  for (const auto& cell : cells) row += (row.empty() ? "" : ",") + cell.*part;
  return row + "\r\n";
}

}  // namespace

std::string CsvHeading() {
  return Row(CellsOf(Summary(), ReplayOptions()), &Cells::value_type::first);
}

std::string CsvRow(const Summary& summary, const ReplayOptions& options) {
  return Row(CellsOf(summary, options), &Cells::value_type::second);
}

std::string CsvErrorRow(const std::string& name, const std::string& error) {
  Cells cells = CellsOf(Summary(), ReplayOptions());
  for (auto& [column, text] : cells) text.clear();
  cells.front().second = Quoted(name);
  cells.back().second = Quoted(error);
  return Row(cells, &Cells::value_type::second);
}

}  // namespace replay
