#include "replay/report/report_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "replay/report/figure_text.h"
#include "replay/report/printable_text.h"
#include "replay/report/sweep.h"
#include "replay/report/text_table.h"

namespace replay {
namespace {

TableShape ShapeOf(const Terminal& terminal) {
  return {.columns = terminal.columns, .colour = terminal.colour};
}

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
  // What a page gains and what it costs stays longest.
  std::string text = TableText(std::move(rows), {.columns = terminal.columns,
                                                 .colour = terminal.colour,
                                                 .separator = " ",
                                                 .dispensable = {8, 7, 11, 3, 6, 13, 2, 5}});
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

std::string GainsTable(const std::vector<VisitFigures>& visits, const Terminal& terminal) {
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
  return TableText(std::move(rows), {.columns = terminal.columns,
                                     .colour = terminal.colour,
                                     .shortestName = 20,
                                     .dispensable = {6, 9, 7, 8, 3, 2}});
}

std::string GroupText(const std::vector<VisitFigures>& visits, const char* one, const char* many,
                      const Terminal& terminal) {
  if (visits.empty()) return "";
  const Totals totals = TotalsOf(visits);
  const Gains load = GainsOf(visits, &LoadTimes::pageLoadUs).value();
  std::string text = "\n" +
                     Painted(fmt::format("{} {}", totals.visits, totals.visits == 1 ? one : many), Look::Bold,
                             terminal.colour) +
                     "\n";
  text += GainsTable(visits, terminal);
  text += fmt::format(
      "Of the gap between off and {} the plugin closes {} over all visits, {} in the median visit.\n",
      WordsFor(kBound).key, PercentText(GapClosedOverall(visits, kBound)),
      PercentText(GapClosedPerVisit(visits, kBound)));
  const std::string slower = fmt::format("{} slower and {} with a later first paint, by more than 1%",
                                         totals.slowerVisits, totals.laterPaintVisits);
  text += Painted(slower, totals.slowerVisits + totals.laterPaintVisits > 0 ? Look::Bad : Look::Good,
                  terminal.colour);
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

std::string Groups(const Summary& total, const Terminal& terminal) {
  if (total.repeats.empty()) {
    return "\nNo page was visited twice, so there is nothing to compare. --visits repeats single loads.\n";
  }
  std::string text =
      GroupText(Select(total.repeats, false), "real repeat visit", "real repeat visits", terminal);
  text += GroupText(Select(total.repeats, true), "copy of a recorded load",
                    "copies: each visits a recorded load again", terminal);
  if (total.unansweredCommands + total.warnings > 0) {
    text += Painted(fmt::format("{} of {} commands unanswered, {} warnings in the plugin's log.",
                                total.unansweredCommands, total.commands, total.warnings),
                    Look::Bad, terminal.colour) +
            "\n";
  }
  return text;
}

std::string Reasons(const Summary& total, const Terminal& terminal) {
  uint64_t sum = 0;
  for (const auto& [why, count] : total.fetchedReasons) sum += count;
  if (sum == 0) return "";
  Table rows = {Heading({"why not served", "resources", "%"})};
  for (const auto& [why, count] : ByFrequency(total.fetchedReasons)) {
    rows.push_back({{host::WordsFor(why).text}, {CountText(count)}, {PercentText(ShareOf(count, sum))}});
  }
  return "\n" + TableText(rows, ShapeOf(terminal));
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

std::string Skipped(const Summary& total, const Terminal& terminal) {
  if (total.skipped.empty()) return "";
  Table rows = {Heading({"rows not replayed", "rows"})};
  for (const auto& [reason, count] : total.skipped) {
    rows.push_back({{PrintableText(reason)}, {fmt::format("{}", count)}});
  }
  return "\n" + TableText(rows, ShapeOf(terminal));
}

}  // namespace

std::string TextReport(const std::vector<Summary>& summaries, const ReplayOptions& options,
                       const Terminal& terminal) {
  Summary total;
  for (const Summary& summary : summaries) AddTo(total, summary);
  const std::string text = Painted("Page load with and without the plugin", Look::Bold, terminal.colour) +
                           " · " + ConditionsText(options) + "\n\n" + RecordingsTable(summaries, terminal) +
                           Groups(total, terminal) + Reasons(total, terminal) + Parents(total) +
                           Skipped(total, terminal);
  return Wrapped(text, terminal.columns);
}

std::string SweepText(const std::vector<RecordingReport>& reports, const Settings& settings,
                      const Terminal& terminal) {
  std::string text = Painted(fmt::format("The same visits under {} settings", settings.size()), Look::Bold,
                             terminal.colour) +
                     " · first: " + ConditionsText(settings.front().options) + "\n";
  const std::vector<SweepTables> groups = TablesOf(reports, settings);
  for (const SweepTables& group : groups) {
    text += "\n" + Painted(group.title, Look::Bold, terminal.colour) + "\n";
    for (const Table& table : group.tables) {
      text += "\n" +
              TableText(table, {.columns = terminal.columns,
                                .colour = terminal.colour,
                                .shortestName = 20,
                                .dispensable = table.front().size() > 7 ? std::vector<size_t>{2, 8, 6, 5, 7}
                                                                        : std::vector<size_t>{2, 1}});
    }
  }
  text += groups.empty() ? "\nNo page was visited twice, so there is nothing to compare.\n"
                         : std::string("\n") + kSweepNote + "\n";
  return Wrapped(text, terminal.columns);
}

std::string AdviceText(const std::vector<RecordingReport>& reports, const Terminal& terminal) {
  std::string text =
      "\n" + Painted("Advice, from replaying each recording with the change", Look::Bold, terminal.colour) +
      "\n";
  for (const RecordingReport& report : reports) {
    if (!report.advised) continue;
    text += PrintableText(report.summary.name) + "\n";
    const std::vector<Advice> shown = MostValuable(report.advice);
    if (shown.empty()) text += "  No change that was tried saves 1% and 10 ms.\n";
    for (const Advice& advice : shown) {
      text += Wrapped("  - " + PrintableText(AdviceText(advice)), terminal.columns, "    ") + "\n";
    }
    if (report.advice.size() > shown.size()) {
      text += fmt::format("  {} more in the HTML report and in JSON\n", report.advice.size() - shown.size());
    }
  }
  return text;
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
