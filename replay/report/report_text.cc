#include "replay/report/report_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "replay/report/figure_text.h"
#include "replay/report/printable_text.h"
#include "replay/report/sweep.h"
#include "replay/report/text_table.h"

namespace replay {
namespace {

Look LookOfGain(double off, double plugin) {
  if (IsLater(plugin, off)) return Look::Bad;
  return IsLater(off, plugin) ? Look::Good : Look::Plain;
}

std::string CountText(uint64_t count) {
  return fmt::format("{}", count);
}

Cell BadCount(uint64_t count, Look look) {
  return {CountText(count), count > 0 ? Look::Bad : look};
}

// --- A row per recording: medians, which may be compared within one.

void AddGain(TableRow& row, const std::vector<VisitFigures>& visits, Metric metric) {
  const std::optional<Gains> gains = GainsOf(visits, metric);
  const Figures medians = Medians(visits, metric);
  const double off = At(medians, Way::Off);
  row.push_back({SignedMillisecondsText(gains->median), LookOfGain(off, off - gains->median)});
}

TableRow RecordingRow(const Summary& summary) {
  const Totals totals = TotalsOf(summary.repeats);
  const bool copies = HeadlineIsOfCopies(summary.repeats);
  TableRow row = {{PrintableText(summary.name)}, {CountText(totals.visits) + (copies ? "c" : " ")}};
  if (summary.repeats.empty()) {
    row.insert(row.end(), kRowWays.size() + 8, {"–", Look::Dim});
    return row;
  }
  const Figures paint = Medians(summary.repeats, &LoadTimes::firstPaintUs);
  for (const Way way : {Way::Off, Way::Plugin}) row.push_back({MillisecondsText(At(paint, way))});
  AddGain(row, summary.repeats, &LoadTimes::firstPaintUs);
  const Figures load = Medians(summary.repeats, &LoadTimes::pageLoadUs);
  for (const Way way : kRowWays) row.push_back({MillisecondsText(At(load, way))});
  AddGain(row, summary.repeats, &LoadTimes::pageLoadUs);
  row.push_back({PercentText(GapClosedOverall(summary.repeats, kBound))});
  row.push_back({PercentText(ShareOf(totals.counts.unusedBytes, totals.counts.preloadedBytes))});
  row.push_back(BadCount(totals.slowerVisits, Look::Plain));
  row.push_back(BadCount(totals.laterPaintVisits, Look::Plain));
  return row;
}

std::string RecordingsTable(const std::vector<Summary>& summaries, const Terminal& terminal) {
  TableRow heading = Heading({"recording", "visits", " paint", "plugin", "gain"});
  for (const Way way : kRowWays)
    heading.push_back({way == Way::Off ? " load" : WordsFor(way).key, Look::Dim});
  for (const char* name : {"gain", "gap", "unused", "slower", "later"}) heading.push_back({name, Look::Dim});
  Table rows = {heading};
  bool copies = false;
  for (const Summary& summary : summaries) {
    rows.push_back(RecordingRow(summary));
    copies = copies || HeadlineIsOfCopies(summary.repeats);
  }
  FitNames(rows, 1, terminal.columns);
  std::string text = TableText(rows, terminal.colour, " ");
  text +=
      Painted("Medians over repeat visits, ms; paint and load are without the plugin, gains are per visit.",
              Look::Dim, terminal.colour);
  if (copies) text += Painted(" c: copies of the one recorded load.", Look::Dim, terminal.colour);
  return text + "\n";
}

// --- Real repeats or copies together: what is gained per visit, and at what price.

// The share that a way gains of the sums over the visits.
std::optional<double> TotalGainShare(const Totals& totals, Metric metric, Way way) {
  const auto sum = [&](Way which) {
    return static_cast<double>(totals.times[static_cast<size_t>(which)].*metric);
  };
  return GainShare(sum(Way::Off), sum(way));
}

std::string OptionalMillisecondsText(const std::optional<double>& microseconds) {
  return microseconds ? SignedMillisecondsText(*microseconds) : "–";
}

std::string GainsTable(const std::vector<VisitFigures>& visits, bool colour) {
  const Totals totals = TotalsOf(visits);
  TableRow heading = Heading({"gain per visit, ms", "median", "p5", "p95", "total"});
  for (const Way way : kWays) {
    if (way != Way::Off) heading.push_back({WordsFor(way).key, Look::Dim});
  }
  Table rows = {heading};
  for (const MetricWords& words : kMetrics) {
    const Gains gains = GainsOf(visits, words.metric).value();
    const Look look = words.metric == &LoadTimes::firstPaintUs || words.metric == &LoadTimes::pageLoadUs
                          ? Look::Bold
                          : Look::Plain;
    TableRow row = {{words.text, look},
                    {SignedMillisecondsText(gains.median), look},
                    {OptionalMillisecondsText(gains.p5), look},
                    {OptionalMillisecondsText(gains.p95), look},
                    {SignedMillisecondsText(gains.total), look}};
    for (const Way way : kWays) {
      if (way != Way::Off) row.push_back({PercentText(TotalGainShare(totals, words.metric, way)), look});
    }
    rows.push_back(std::move(row));
  }
  return TableText(rows, colour);
}

std::string GroupText(const std::vector<VisitFigures>& visits, const char* one, const char* many,
                      bool colour) {
  if (visits.empty()) return "";
  const Totals totals = TotalsOf(visits);
  const Gains load = GainsOf(visits, &LoadTimes::pageLoadUs).value();
  std::string text =
      "\n" +
      Painted(fmt::format("{} {}", totals.visits, totals.visits == 1 ? one : many), Look::Bold, colour) +
      "\n";
  text += GainsTable(visits, colour);
  text += fmt::format(
      "Of the gap between off and {} the plugin closes {} over all visits, {} in the median visit.\n",
      WordsFor(kBound).key, PercentText(GapClosedOverall(visits, kBound)),
      PercentText(GapClosedPerVisit(visits, kBound)));
  const std::string slower = fmt::format("{} slower and {} with a later first paint, by more than 1%",
                                         totals.slowerVisits, totals.laterPaintVisits);
  text += Painted(slower, totals.slowerVisits + totals.laterPaintVisits > 0 ? Look::Bad : Look::Good, colour);
  text += fmt::format("; the load event gains {} ms at worst, {} at best.\n",
                      SignedMillisecondsText(load.worst), SignedMillisecondsText(load.best));
  text += fmt::format("Unused: {} of {} preloads ({}), {} of {} ({}), {} of {} connections.\n",
                      totals.counts.unusedPreloads, totals.counts.preloads,
                      PercentText(ShareOf(totals.counts.unusedPreloads, totals.counts.preloads)),
                      BytesText(totals.counts.unusedBytes), BytesText(totals.counts.preloadedBytes),
                      PercentText(ShareOf(totals.counts.unusedBytes, totals.counts.preloadedBytes)),
                      totals.counts.unusedConnections, totals.counts.connections);
  if (totals.endedByBeacon > 0) {
    text += fmt::format("Without the plugin, a beacon ended the load of {} visits.\n", totals.endedByBeacon);
  }
  if (totals.paintNotRecorded > 0) {
    text += fmt::format(
        "Of {} visits no first paint is recorded: DOMContentLoaded, or else the load event, "
        "stands for it.\n",
        totals.paintNotRecorded);
  }
  return text;
}

std::string Groups(const Summary& total, bool colour) {
  if (total.repeats.empty()) {
    return "\nNo page was visited twice, so there is nothing to compare. --visits repeats single loads.\n";
  }
  std::string text =
      GroupText(Select(total.repeats, false), "real repeat visit", "real repeat visits", colour);
  text += GroupText(Select(total.repeats, true), "copy of a recorded load",
                    "copies: each visits a recorded load again", colour);
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
  for (const auto& [why, count] : total.fetchedReasons) sum += count;
  if (sum == 0) return "";
  Table rows = {Heading({"why not served", "resources", "%"})};
  for (const auto& [why, count] : ByFrequency(total.fetchedReasons)) {
    rows.push_back({{host::WordsFor(why).text}, {CountText(count)}, {PercentText(ShareOf(count, sum))}});
  }
  return "\n" + TableText(rows, colour);
}

std::string Parents(const Summary& total) {
  std::string text =
      fmt::format("\nLate requests wait for an inferred parent on {} pages, for the recorded one on {}",
                  total.inferredPages, total.recordedPages);
  const auto prediction = PredictionOf(total.startErrors);
  if (!prediction) return text + ".\n";
  text += fmt::format(
      ":\nby it another load's starts are predicted with a median error of {:.0f} ms (recorded: {:.0f} ms), "
      "closer for "
      "{} of {}.\n",
      prediction->inferredMs, prediction->recordedMs, prediction->inferredCloser, prediction->requests);
  return text;
}

std::string Skipped(const Summary& total, bool colour) {
  if (total.skipped.empty()) return "";
  Table rows = {Heading({"rows not replayed", "rows"})};
  for (const auto& [reason, count] : total.skipped) {
    rows.push_back({{PrintableText(reason)}, {fmt::format("{}", count)}});
  }
  return "\n" + TableText(rows, colour);
}

}  // namespace

std::string TextReport(const std::vector<Summary>& summaries, const ReplayOptions& options,
                       const Terminal& terminal) {
  const bool colour = terminal.colour;
  Summary total;
  for (const Summary& summary : summaries) AddTo(total, summary);
  return Painted("Page load with and without the plugin", Look::Bold, colour) + " · " +
         ConditionsText(options) + "\n\n" + RecordingsTable(summaries, terminal) + Groups(total, colour) +
         Reasons(total, colour) + Parents(total) + Skipped(total, colour);
}

std::string SweepText(const std::vector<RecordingReport>& reports, const Settings& settings,
                      const Terminal& terminal) {
  std::string text = Painted(fmt::format("The same visits under {} settings", settings.size()), Look::Bold,
                             terminal.colour) +
                     " · first: " + ConditionsText(settings.front().options) + "\n";
  const std::vector<SweepTables> groups = TablesOf(reports, settings);
  for (const SweepTables& group : groups) {
    text += "\n" + Painted(group.title, Look::Bold, terminal.colour) + "\n";
    for (const Table& table : group.tables) text += "\n" + TableText(table, terminal.colour);
  }
  if (groups.empty()) return text + "\nNo page was visited twice, so there is nothing to compare.\n";
  return text + "\n" + kSweepNote + "\n";
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
  if (!options.costs.certificates) text += ", no certificates";
  if (!options.costs.nameLookups) text += ", no name lookups";
  if (!options.costs.slowStart) text += ", no slow start";
  for (const auto& [name, value] : options.properties)
    text += fmt::format(", {}={}", name, PrintableText(value));
  return text;
}

}  // namespace replay
