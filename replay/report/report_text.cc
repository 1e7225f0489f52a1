#include "replay/report/report_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "replay/report/figure_text.h"
#include "replay/report/printable_text.h"

namespace replay {
namespace {

constexpr size_t kShortestName = 12;

// A table of text: cells of a row, and how a cell is to look. The first column is left-aligned.
enum class Look { Plain, Bold, Dim, Good, Bad };
struct Cell {
  std::string text;
  Look look = Look::Plain;
};
using Row = std::vector<Cell>;

// Columns on a terminal, wide characters as two.
size_t Columns(const std::string& text) {
  constexpr size_t kPadded = 4096;
  return kPadded + text.size() - fmt::formatted_size("{:<4096}", text);
}

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

std::string Painted(const std::string& text, Look look, bool colour) {
  if (!colour || look == Look::Plain) return text;
  const char* const code = look == Look::Bold   ? "1"
                           : look == Look::Dim  ? "2"
                           : look == Look::Good ? "32"
                                                : "31";
  return fmt::format("\033[{}m{}\033[0m", code, text);
}

std::vector<size_t> Widths(const std::vector<Row>& rows) {
  std::vector<size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], Columns(row[column].text));
    }
  }
  return widths;
}

// Shortens the names in the first column until the lines fit the terminal.
void FitNames(std::vector<Row>& rows, size_t separator, size_t columns) {
  const std::vector<size_t> widths = Widths(rows);
  size_t others = 0;
  for (size_t column = 1; column < widths.size(); ++column) others += separator + widths[column];
  const size_t room = std::max(kShortestName, columns - std::min(columns, others));
  for (Row& row : rows) row[0].text = Shorten(row[0].text, room);
}

std::string Print(const std::vector<Row>& rows, bool colour, const char* separator = "  ") {
  const std::vector<size_t> widths = Widths(rows);
  std::string text;
  for (const Row& row : rows) {
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

Look LookOfGain(double gain, double off) {
  if (gain * 100 < -off) return Look::Bad;
  return gain * 100 > off ? Look::Good : Look::Plain;
}

// Page load by way and the gain: the cells that rows of figures share.
void AddFigures(Row& row, const Figures& figures, Look look) {
  if (!figures) {
    row.insert(row.end(), kWays.size() + 2, {"–", Look::Dim});
    return;
  }
  for (const Way way : kWays) row.push_back({MillisecondsText(At(figures, way)), look});
  const double off = At(figures, Way::Off);
  const double plugin = At(figures, Way::Plugin);
  const Look gainLook = LookOfGain(off - plugin, off);
  row.push_back({SignedMillisecondsText(off - plugin), gainLook});
  row.push_back({PercentText(GainShare(off, plugin)), gainLook});
}

Row FiguresRow(const std::string& name, const Summary& summary, Look look) {
  Row row = {{name, look}, {fmt::format("{}", summary.loads.size()), look}};
  AddFigures(row, MedianLoads(summary), look);
  row.push_back({PercentText(GapClosedOverall(summary)), look});
  for (const uint64_t count : {summary.served, summary.joined, summary.fetched}) {
    row.push_back({fmt::format("{}", count), look});
  }
  row.push_back({BytesText(summary.wastedBytes), look});
  row.push_back({fmt::format("{}", summary.slowerVisits), summary.slowerVisits > 0 ? Look::Bad : look});
  return row;
}

void AddHeading(Row& row, std::initializer_list<const char*> names) {
  for (const char* name : names) row.push_back({name, Look::Dim});
}

Row Heading(std::initializer_list<const char*> names) {
  Row row;
  AddHeading(row, names);
  return row;
}

// The names of what AddFigures adds.
void AddFiguresHeading(Row& row) {
  for (const Way way : kWays) AddHeading(row, {WordsFor(way).key});
  AddHeading(row, {"  gain", "%"});
}

std::string RecordingsTable(const std::vector<Summary>& summaries, const Summary& total,
                            const Terminal& terminal) {
  Row heading = Heading({"recording", "visits"});
  AddFiguresHeading(heading);
  AddHeading(heading, {"gap", "served", "joined", "fetched", "wasted", "slower"});
  std::vector<Row> rows = {std::move(heading)};
  for (const Summary& summary : summaries) {
    rows.push_back(FiguresRow(PrintableText(summary.name), summary, Look::Plain));
  }
  if (summaries.size() > 1) {
    rows.push_back(FiguresRow(fmt::format("{} recordings", summaries.size()), total, Look::Bold));
  }
  FitNames(rows, 1, terminal.columns);
  return Print(rows, terminal.colour, " ");
}

std::string Totals(const Summary& total, bool colour) {
  if (total.loads.empty()) {
    return "No page was visited twice, so there is nothing to compare. --visits repeats single loads.\n";
  }
  Row heading = Heading({"repeat visits, ms"});
  AddFiguresHeading(heading);
  std::vector<Row> rows = {std::move(heading)};
  const auto add = [&rows](const char* name, const Figures& figures) {
    Row row = {{name}};
    AddFigures(row, figures, Look::Plain);
    rows.push_back(std::move(row));
  };
  add("median", MedianLoads(total));
  add("95th percentile", Percentile95Loads(total));
  add("mean", MeanLoads(total));

  std::string text = Print(rows, colour);
  const Gains gains = GainsPerVisit(total).value();
  text += fmt::format("\nA visit gains {} ms in the median ({} at worst, {} at best).\n",
                      SignedMillisecondsText(gains.median), SignedMillisecondsText(gains.worst),
                      SignedMillisecondsText(gains.best));
  text += fmt::format(
      "Of the gap between off and oracle the plugin closes {} over all visits, {} in the median visit.\n",
      PercentText(GapClosedOverall(total)), PercentText(GapClosedPerVisit(total)));
  const std::string slower =
      fmt::format("{} of {} visits slower by more than 1%", total.slowerVisits, total.loads.size());
  text += Painted(slower, total.slowerVisits > 0 ? Look::Bad : Look::Good, colour);
  text += fmt::format("; {} preloads brought {}, of which {} nobody asked for.\n", total.preloads,
                      BytesText(total.preloadedBytes), BytesText(total.wastedBytes));
  if (total.unansweredCommands + total.warnings > 0) {
    text += Painted(fmt::format("{} of {} commands unanswered, {} warnings in the plugin's log.",
                                total.unansweredCommands, total.commands, total.warnings),
                    Look::Bad, colour) +
            "\n";
  }
  return text;
}

std::string Reasons(const Summary& total, bool colour) {
  uint64_t sum = 0;
  for (const auto& [why, count] : total.reasons) sum += count;
  if (sum == 0) return "";
  std::vector<Row> rows = {Heading({"why not served", "sub-resources", "%"})};
  for (const auto& [why, count] : ReasonsByFrequency(total)) {
    const double share = static_cast<double>(count) / static_cast<double>(sum);
    rows.push_back({{host::WordsFor(why).text}, {fmt::format("{}", count)}, {PercentText(share)}});
  }
  return "\n" + Print(rows, colour);
}

std::string Skipped(const Summary& total, bool colour) {
  if (total.skipped.empty()) return "";
  std::vector<Row> rows = {Heading({"rows not replayed", "rows"})};
  for (const auto& [reason, count] : total.skipped) {
    rows.push_back({{PrintableText(reason)}, {fmt::format("{}", count)}});
  }
  return "\n" + Print(rows, colour);
}

}  // namespace

std::string TextReport(const std::vector<Summary>& summaries, const ReplayOptions& options,
                       const Terminal& terminal) {
  const bool colour = terminal.colour;
  Summary total;
  for (const Summary& summary : summaries) AddTo(total, summary);
  return Painted("Page load with and without the plugin", Look::Bold, colour) + " · " +
         ConditionsText(options) + "\n\n" + RecordingsTable(summaries, total, terminal) + "\n" +
         Totals(total, colour) + Reasons(total, colour) + Skipped(total, colour);
}

std::string ConditionsText(const ReplayOptions& options) {
  std::string text = std::string(options.profile.name) + ": ";
  text += options.profile.downMbit ? fmt::format("{} Mbit/s", *options.profile.downMbit)
                                   : "bandwidth as recorded";
  text += options.profile.rttMs ? fmt::format(", round trip {} ms", *options.profile.rttMs)
                                : ", round trips as recorded";
  text += fmt::format(", {} sockets, revisit after {}", options.socketsPerGroup,
                      DurationText(options.revisitAfterMs));
  text += options.join ? ", joining" : ", not joining";
  if (!options.preconnect) text += ", no preconnects";
  for (const auto& [name, value] : options.properties)
    text += fmt::format(", {}={}", name, PrintableText(value));
  return text;
}

}  // namespace replay
