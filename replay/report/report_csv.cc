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

// Of a line with figures: objects whose keys depend on the recording have a column for every key that is
// possible, or one for their sum.
Cells CellsOf(const std::string& jsonLine) {
  Json line = Json::parse(jsonLine);
  line.erase("merge");
  size_t skipped = 0;
  for (const auto& [reason, count] : line["skipped"].items()) skipped += count.get<size_t>();
  line["skipped"] = skipped;
  const Json found = line["reasons"];
  Json& reasons = line["reasons"] = Json::object();
  for (const auto& words : host::kNotServedWords) {
    if (words.reason != host::NotServed::None) reasons[words.key] = found.value(words.key, 0);
  }
  const size_t advice = line["advice"].size();
  line["advice"] = line["advice"].is_null() ? Json(nullptr) : Json(advice);
  line["error"] = nullptr;
  Cells cells;
  AddCells("", line, cells);
  return cells;
}

// Of a recording without visits: all columns are there.
Cells EmptyCells(const Settings& settings) {
  RecordingReport report;
  report.further.resize(settings.size() - 1);
  return CellsOf(JsonLines(report, settings).front());
}

std::string Row(const Cells& cells, std::string Cells::value_type::*part) {
  std::string row;
  for (const auto& cell : cells) row += cell.*part + ",";
  row.pop_back();
  return row + "\r\n";
}

std::string ErrorRow(const RecordingReport& report, const Settings& settings) {
  Cells cells = EmptyCells(settings);
  for (auto& [column, text] : cells) text.clear();
  cells.front().second = Quoted(report.summary.name);
  cells.back().second = Quoted(report.error);
  return Row(cells, &Cells::value_type::second);
}

}  // namespace

const ReportFormat kCsvFormat = {.option = "--csv",
                                 .what = "write the same figures as CSV, a row per recording",
                                 .signature = "recording,profile,",
                                 .firstLines = CsvHeading,
                                 .lines = CsvRows};

std::string CsvHeading(const Settings& settings) {
  return Row(EmptyCells(settings), &Cells::value_type::first);
}

std::string CsvRows(const RecordingReport& report, const Settings& settings) {
  if (report.status != ReplayStatus::Done) return ErrorRow(report, settings);
  std::string rows;
  for (const std::string& line : JsonLines(report, settings)) {
    rows += Row(CellsOf(line), &Cells::value_type::second);
  }
  return rows;
}

}  // namespace replay
