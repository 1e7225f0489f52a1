#include "replay/report/report_html.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <vector>

#include "replay/report/figure_text.h"
#include "replay/report/html_table.h"
#include "replay/report/report_page.h"
#include "replay/report/report_text.h"
#include "replay/report/report_waterfall.h"
#include "replay/report/sweep.h"

namespace replay {
namespace {

std::string Seconds(double microseconds) {
  if (microseconds < 999.5e3) return MillisecondsText(microseconds) + "&nbsp;ms";
  return fmt::format("{:.2f}&nbsp;s", microseconds / 1e6);
}

// With a minus sign instead of the hyphen.
std::string Typeset(const std::string& number) {
  return number[0] == '-' ? "−" + number.substr(1) : number;
}

// A gain is positive everywhere.
std::string GainText(double off, double time) {
  const std::string text = PercentText(GainShare(off, time));
  if (text == "–" || text == "0%") return text;
  return text[0] == '-' ? Typeset(text) : "+" + text;
}

const char* GainClass(double off, double time) {
  if (IsLater(time, off)) return "bad";
  return IsLater(off, time) ? "good" : "";
}

// -- Figures of several visits --

bool Leads(Metric metric) {
  return metric == &LoadTimes::firstPaintUs || metric == &LoadTimes::pageLoadUs;
}

double SumOf(const Totals& totals, Metric metric, Way way) {
  return static_cast<double>(totals.times[Index(way)].*metric);
}

std::string GainMilliseconds(const std::optional<double>& microseconds) {
  return microseconds ? Typeset(SignedMillisecondsText(*microseconds)) : "–";
}

std::string UnusedText(uint64_t unused, uint64_t of) {
  return fmt::format("{} of {}", unused, of);
}

// The gap from off (right end) to the bound as a band, and where the plugin stands.
std::string Bullet(const std::vector<VisitFigures>& visits) {
  const Totals totals = TotalsOf(visits);
  const double off = SumOf(totals, &LoadTimes::pageLoadUs, Way::Off);
  const double plugin = SumOf(totals, &LoadTimes::pageLoadUs, Way::Plugin);
  const double bound = SumOf(totals, &LoadTimes::pageLoadUs, kBound);
  const auto closed = GapClosed(off, plugin, bound);
  if (!closed) return "";
  const double most = std::max({off, plugin, 1.0});
  return fmt::format(
      R"(<svg class="bullet" viewBox="0 0 100 12" preserveAspectRatio="none" role="img" aria-label="band: from {} to off; mark: plugin">)"
      R"(<rect class="gap" x="{:.2f}" y="4" width="{:.2f}" height="4"/><rect class="mark" x="{:.2f}" y="0" width="3" height="12"/></svg>)",
      WordsFor(kBound).key, bound / most * 100, (off - bound) / most * 100, plugin / most * 97);
}

std::string GainCell(const std::vector<VisitFigures>& visits, Metric metric) {
  const double off = At(Medians(visits, metric), Way::Off);
  const double gain = GainsOf(visits, metric)->median;
  return fmt::format(R"(<td class="{}">{}</td>)", GainClass(off, off - gain), GainMilliseconds(gain));
}

std::string FigureCells(const Summary& summary) {
  const std::vector<VisitFigures>& visits = summary.repeats;
  if (visits.empty()) {
    return fmt::format(R"(<td colspan="{}" class="muted left">no repeat visit</td>)", kRowWays.size() + 9);
  }
  const Totals totals = TotalsOf(visits);
  const Figures paint = Medians(visits, &LoadTimes::firstPaintUs);
  const Figures load = Medians(visits, &LoadTimes::pageLoadUs);
  std::string html;
  for (const Way way : {Way::Off, Way::Plugin}) html += "<td>" + MillisecondsText(At(paint, way)) + "</td>";
  html += GainCell(visits, &LoadTimes::firstPaintUs);
  for (const Way way : kRowWays) html += "<td>" + MillisecondsText(At(load, way)) + "</td>";
  html += GainCell(visits, &LoadTimes::pageLoadUs);
  html += fmt::format("<td>{}</td><td>{}</td><td>{}</td>",
                      Typeset(PercentText(GapClosedOverall(visits, kBound))), Bullet(visits),
                      PercentText(ShareOf(totals.counts.unusedBytes, totals.counts.preloadedBytes)));
  for (const uint64_t count : {totals.slowerVisits, totals.laterPaintVisits}) {
    html += fmt::format(R"(<td class="{}">{}</td>)", count > 0 ? "bad" : "", count);
  }
  return html;
}

std::string VisitsText(const Summary& summary) {
  if (!HeadlineIsOfCopies(summary.repeats)) return fmt::format("{}", summary.repeats.size());
  return fmt::format("{}&nbsp;{}", summary.repeats.size(), summary.repeats.size() == 1 ? "copy" : "copies");
}

// A heading by which the script lets the rows be sorted.
std::string SortHeading(const std::string& text, const char* attributes = "") {
  return fmt::format(R"(<th scope="col" data-sort{}>{}</th>)", attributes, text);
}

std::string RecordingsTable(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections) {
  std::string html = fmt::format(
      R"(<div class="scroll" tabindex="0" role="region" aria-label="Recordings"><table class="figures recordings"><caption>Medians over the repeat visits of a recording, ms; gains are per visit. The gap is from off to {}. Unused is of the preloaded bytes.</caption><thead><tr>)"
      R"(<td></td><td></td><th colspan="3" scope="colgroup" class="group">First paint</th><th colspan="{}" scope="colgroup" class="group">Load event</th>)"
      R"(<td></td><th colspan="2" scope="colgroup" class="group">More than 1%</th></tr><tr>)",
      WordsFor(kBound).key, kRowWays.size() + 3);
  html += SortHeading("Recording", R"( class="left")") + SortHeading("Visits");
  for (const char* name : {"off", "plugin", "gain"}) html += SortHeading(name);
  for (const Way way : kRowWays) html += SortHeading(WordsFor(way).key);
  html += SortHeading("gain") + SortHeading("gap closed");
  html += R"(<th scope="col"><span class="hidden">Gap as a picture</span></th>)";
  for (const char* name : {"unused", "slower", "later paint"}) html += SortHeading(name);
  html += "</tr></thead><tbody>";
  for (size_t index = 0; index < summaries.size(); ++index) {
    html += fmt::format(
        R"(<tr data-section="r{0}"><th scope="row"><a href="#r{0}">{1}</a></th><td>{2}</td>{3}</tr>)",
        sections[index].number, Escaped(summaries[index].name), VisitsText(summaries[index]),
        FigureCells(summaries[index]));
  }
  return html + "</tbody></table></div>\n";
}

std::string Headline(const std::string& name, const std::string& value, const std::string& note) {
  return fmt::format("<div><dt>{}</dt><dd><b>{}</b><span>{}</span></dd></div>", name, value, note);
}

std::string GainHeadline(const char* name, const std::vector<VisitFigures>& visits, Metric metric) {
  const Totals totals = TotalsOf(visits);
  const Gains gains = GainsOf(visits, metric).value();
  const double off = SumOf(totals, metric, Way::Off), plugin = SumOf(totals, metric, Way::Plugin);
  const std::string spread =
      gains.p5 ? fmt::format("5% gain {} ms or less, 5% {} ms or more", GainMilliseconds(gains.p5),
                             GainMilliseconds(gains.p95))
               : fmt::format("from {} to {} ms", GainMilliseconds(gains.worst), GainMilliseconds(gains.best));
  return Headline(fmt::format("{}: gain per visit, median", name),
                  GainMilliseconds(gains.median) + "&nbsp;ms",
                  fmt::format(R"(<em class="{}">{}</em> and {} ms over all; {})", GainClass(off, plugin),
                              GainText(off, plugin), GainMilliseconds(gains.total), spread));
}

std::string Headlines(const Summary& total) {
  const std::vector<VisitFigures> visits = replay::Headline(total.repeats);
  if (visits.empty()) return "<p>No page was visited twice, so there is nothing to compare.</p>\n";
  const Totals totals = TotalsOf(visits);
  const size_t copies = total.repeats.size() - visits.size();
  std::string html = "<p>";
  if (HeadlineIsOfCopies(total.repeats)) {
    html += fmt::format("Of {} copies: visits that load again what was recorded once.", visits.size());
  } else {
    html += fmt::format("Of {} real repeat visits", visits.size());
    html += copies > 0 ? fmt::format("; {} copies are counted apart.", copies) : ".";
  }
  html += R"(</p><dl class="headlines">)";
  html += GainHeadline("First paint", visits, &LoadTimes::firstPaintUs);
  html += GainHeadline("Load event", visits, &LoadTimes::pageLoadUs);
  html += Headline(
      "Later by more than 1%",
      fmt::format("{} and {} of {}", totals.laterPaintVisits, totals.slowerVisits, totals.visits),
      fmt::format("visits with a later first paint, and with a later load event; of the gap from off "
                  "to {} the plugin closes {}",
                  WordsFor(kBound).key, Typeset(PercentText(GapClosedOverall(visits, kBound)))));
  html +=
      Headline("Unused bytes", PercentText(ShareOf(totals.counts.unusedBytes, totals.counts.preloadedBytes)),
               fmt::format("of {} preloaded; {} preloads and {} connections were unused",
                           BytesText(totals.counts.preloadedBytes),
                           UnusedText(totals.counts.unusedPreloads, totals.counts.preloads),
                           UnusedText(totals.counts.unusedConnections, totals.counts.connections)));
  return html + "</dl>\n";
}

std::string GainsTable(const std::vector<VisitFigures>& visits, const char* name) {
  if (visits.empty()) return "";
  const Totals totals = TotalsOf(visits);
  std::string html = fmt::format(
      R"(<div class="scroll" tabindex="0" role="region" aria-label="Gains of {0} {1}"><table class="figures narrow"><caption>{0} {1}</caption><thead><tr><td></td>)"
      R"(<th colspan="4" scope="colgroup" class="group">Gain of the plugin per visit, ms</th><th colspan="{2}" scope="colgroup" class="group">Gain over all visits</th></tr><tr><th class="left" scope="col">Event</th>)"
      R"(<th scope="col">median</th><th scope="col">p5</th><th scope="col">p95</th><th scope="col">total</th>)",
      visits.size(), name, kWays.size() - 1);
  for (const Way way : kWays) {
    if (way != Way::Off) html += fmt::format(R"(<th scope="col">{}</th>)", WordsFor(way).key);
  }
  html += "</tr></thead><tbody>";
  for (const MetricWords& words : kMetrics) {
    const Gains gains = GainsOf(visits, words.metric).value();
    html += fmt::format(R"(<tr{}><th scope="row">{}</th>)", Leads(words.metric) ? R"( class="leads")" : "",
                        words.text);
    for (const std::optional<double>& gain :
         {std::optional(gains.median), gains.p5, gains.p95, std::optional(gains.total)}) {
      html += "<td>" + GainMilliseconds(gain) + "</td>";
    }
    const double off = SumOf(totals, words.metric, Way::Off);
    for (const Way way : kWays) {
      if (way == Way::Off) continue;
      const double time = SumOf(totals, words.metric, way);
      html += fmt::format(R"(<td class="{}">{}</td>)", GainClass(off, time), GainText(off, time));
    }
    html += "</tr>";
  }
  html += "</tbody></table></div>\n";
  return html;
}

std::string GroupTables(const Summary& summary) {
  return GainsTable(Select(summary.repeats, false), "real repeat visits") +
         GainsTable(Select(summary.repeats, true), "copies");
}

std::string ReasonsTable(const Summary& summary) {
  uint64_t sum = 0;
  for (const auto& [why, count] : summary.fetchedReasons) sum += count;
  if (sum == 0) return "";
  std::string html =
      R"(<table class="figures narrow reasons"><caption>Why not served</caption><thead><tr><th scope="col" class="left">Reason</th>)"
      R"(<th scope="col">Resources</th><th scope="col">Share</th></tr></thead><tbody>)";
  for (const auto& [why, count] : ByFrequency(summary.fetchedReasons)) {
    const double share = ShareOf(count, sum).value();
    html += fmt::format(
        R"(<tr><th scope="row">{}</th><td>{}</td><td><svg class="share" viewBox="0 0 100 1" preserveAspectRatio="none" aria-hidden="true"><rect width="{:.1f}" height="1"/></svg>{}</td></tr>)",
        host::WordsFor(why).text, count, share * 100, PercentText(share));
  }
  return html + "</tbody></table>\n";
}

std::string SkippedTable(const Summary& summary) {
  if (summary.skipped.empty()) return "";
  std::string html =
      R"(<table class="figures narrow"><caption>Rows of recordings that cannot be replayed</caption><thead><tr><th scope="col" class="left">Reason</th>)"
      R"(<th scope="col">Rows</th></tr></thead><tbody>)";
  for (const auto& [reason, count] : summary.skipped) {
    html += fmt::format(R"(<tr><th scope="row">{}</th><td>{}</td></tr>)", Escaped(reason), count);
  }
  return html + "</tbody></table>\n";
}

// The line that is seen while a visit is closed.
std::string VisitSummary(const Visit& visit) {
  const std::string nth = fmt::format("{} {}", visit.copy ? "copy, visit" : "visit", visit.number);
  std::string html = fmt::format(R"(<span class="nth">{}</span>)", visit.repeat ? nth : "first visit");
  for (const auto& [name, metric] :
       {std::pair("first paint", &LoadTimes::firstPaintUs), std::pair("load", &LoadTimes::pageLoadUs)}) {
    const auto off = static_cast<double>(Of(visit, Way::Off).times.*metric);
    const auto plugin = static_cast<double>(Of(visit, Way::Plugin).times.*metric);
    html += fmt::format(
        R"(<span class="loads"><span class="what">{}</span> {} → {} <em class="{}">{}</em></span>)", name,
        Seconds(off), Seconds(plugin), GainClass(off, plugin), GainText(off, plugin));
  }
  return html;
}

// What ended the load of a way: the name of its last request, and whether that was a beacon.
std::string EndText(const Page& page, const WayResult& way) {
  return Escaped(page.requests.at(way.lastRequest).url) +
         (EndedByBeacon(way) ? R"( <em class="bad">beacon</em>)" : "");
}

const char* PaintNote(PaintSource source) {
  switch (source) {
    case PaintSource::Recorded:
      break;
    case PaintSource::ContentLoaded:
      return "No first paint is recorded; DOMContentLoaded stands for it.";
    case PaintSource::Load:
      return "Neither first paint nor DOMContentLoaded is recorded; the load event stands for both.";
  }
  return "";
}

std::string VisitTable(const Page& page, const Visit& visit) {
  std::string html =
      R"(<div class="scroll" tabindex="0" role="group" aria-label="Events in all ways"><table class="figures visit-figures"><thead><tr><th scope="col" class="left">Way</th>)";
  for (const MetricWords& words : kMetrics) html += fmt::format(R"(<th scope="col">{}</th>)", words.text);
  html += R"(<th scope="col" class="left">the load event came after</th></tr></thead><tbody>)";
  for (const Way way : kWays) {
    if (!visit.repeat && !IsRunOnFirstVisits(way)) continue;
    html += fmt::format(R"(<tr class="{0}"><th scope="row">{0}</th>)", WordsFor(way).key);
    for (const MetricWords& words : kMetrics) {
      html += fmt::format("<td>{}</td>", Seconds(static_cast<double>(Of(visit, way).times.*words.metric)));
    }
    html += fmt::format(R"(<td class="left end">{}</td></tr>)", EndText(page, Of(visit, way)));
  }
  return html + "</tbody></table></div>";
}

std::string VisitFacts(const Visit& visit) {
  const WayResult& plugin = Of(visit, Way::Plugin);
  return fmt::format(
      "<p class=\"muted\">{} served, {} joined, {} fetched, {} from the disk cache; {} preloaded, {} of it "
      "unused; {} "
      "of {} connections unused. {}</p>",
      visit.served, visit.joined, visit.fetched, visit.fromDiskCache, BytesText(visit.preloadedBytes),
      BytesText(visit.unusedBytes), plugin.unusedConnections, plugin.connections,
      PaintNote(visit.paintSource));
}

// For the filter: what sort of visit it is, and what the plugin did to it.
std::string VisitTags(const Visit& visit) {
  if (!visit.repeat) return "first";
  std::string tags = visit.copy ? "copy" : "real";
  const auto isLater = [&visit](Metric metric) {
    return IsLater(static_cast<double>(Of(visit, Way::Plugin).times.*metric),
                   static_cast<double>(Of(visit, Way::Off).times.*metric));
  };
  if (isLater(&LoadTimes::pageLoadUs)) tags += " slower";
  if (isLater(&LoadTimes::firstPaintUs)) tags += " later";
  if (EndedByBeacon(Of(visit, Way::Off))) tags += " beacon";
  return tags;
}

std::string VisitHtml(size_t number, size_t index, const Recording& recording, const Visit& visit) {
  const Page& page = recording.pages.at(visit.page);
  const auto gainUs = [&visit](Metric metric) {
    return Of(visit, Way::Off).times.*metric - Of(visit, Way::Plugin).times.*metric;
  };
  return fmt::format(
      R"(<details class="visit{}" id="r{}v{}" data-visit="{}" data-tags="{}" data-paint="{}" data-load="{}"><summary>{}</summary>{}{}<div class="waterfall"></div></details>)",
      visit.repeat ? "" : " first", number, index, index, VisitTags(visit), gainUs(&LoadTimes::firstPaintUs),
      gainUs(&LoadTimes::pageLoadUs), VisitSummary(visit), VisitTable(page, visit), VisitFacts(visit));
}

// The visits of a page follow each other, under its address; pages are in the order of their first visits.
std::string VisitsByPage(size_t number, const Recording& recording, const RecordingResult& result) {
  std::vector<std::string> pages;
  std::map<std::string, std::string> visits;
  for (size_t index = 0; index < result.visits.size(); ++index) {
    const Visit& visit = result.visits[index];
    std::string& html = visits[visit.pageUrl];
    if (html.empty()) pages.push_back(visit.pageUrl);
    html += VisitHtml(number, index, recording, visit) + "\n";
  }
  std::string html;
  for (const std::string& page : pages) {
    html += fmt::format("<div class=\"page\"><h3>{}</h3>\n{}</div>\n", Escaped(page), visits[page]);
  }
  return html;
}

// A hexadecimal hash in the form that a Content-Security-Policy wants it.
std::string PolicyHash(std::string_view sha256) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bits;
  for (const char digit : sha256)
    bits += fmt::format("{:04b}", digit <= '9' ? digit - '0' : digit - 'a' + 10);
  while (bits.size() % 6 != 0) bits += "00";
  std::string text = "'sha256-";
  for (size_t at = 0; at < bits.size(); at += 6) text += kDigits[std::stoul(bits.substr(at, 6), nullptr, 2)];
  return text + "='";
}

// Nothing runs or is loaded but the style and the script of the report itself, whatever a recording holds.
std::string Policy() {
  return fmt::format(
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src {}; script-src "
      "{}; "
      "img-src data:; base-uri 'none'; form-action 'none'\">\n",
      PolicyHash(kPageStyleSha256), PolicyHash(kPageScriptSha256));
}

// What compares the settings of a sweep; empty without one. The rest of the report is of the first setting.
std::string SweepHtml(const std::vector<RecordingReport>& reports, const Settings& settings) {
  if (!IsSweep(settings)) return "";
  std::string html = fmt::format("<section class=\"sweep\"><h2>{} settings</h2>\n<p class=\"muted\">{}</p>\n",
                                 settings.size(), kSweepNote);
  for (const SweepTables& group : TablesOf(reports, settings)) {
    html += "<h3>" + Escaped(group.title) + "</h3>\n<div class=\"tables\">";
    for (const Table& table : group.tables) html += TableHtml(table, table.front().front().text);
    html += "</div>\n";
  }
  return html + "</section>\n<h2>With the first setting, " + Escaped(settings.front().text) + "</h2>\n";
}

// What would make the recorded pages faster; empty if nobody asked.
std::string AdviceHtml(const std::vector<RecordingReport>& reports) {
  std::string html;
  for (const RecordingReport& report : reports) {
    if (!report.advised) continue;
    html += "<h3>" + Escaped(report.summary.name) + "</h3>\n";
    if (report.advice.empty()) html += "<p>No change that was tried saves 1% and 10 ms.</p>\n";
    if (!report.advice.empty()) html += "<ol>\n";
    for (const Advice& advice : report.advice) {
      html += "<li>" + Escaped(AdviceText(advice)) + "<details><summary>Resources</summary><ul>";
      for (const std::string& url : advice.change.urls) html += "<li>" + Escaped(url) + "</li>";
      html += "</ul></details></li>\n";
    }
    if (!report.advice.empty()) html += "</ol>\n";
  }
  if (html.empty()) return "";
  return "<section class=\"advice\"><h2>Advice</h2>\n<p class=\"muted\">Each line is the result of replaying "
         "the "
         "recording with that change.</p>\n" +
         html + "</section>\n";
}

HtmlSection SectionOf(const RecordingReport& report) {
  const auto part = report.parts.find(kHtmlFormat.option);
  if (part == report.parts.end()) return HtmlSectionWithoutVisits(report.index, report.summary);
  return {.number = report.index, .text = part->second};
}

}  // namespace

const ReportFormat kHtmlFormat = {
    .option = "--html",
    .what = "write a report with waterfalls",
    .signature = "<meta name=\"generator\" content=\"kiv_replay\">",
    .collect = [](size_t index, const Recording& recording, const RecordingResult& result,
                  const ReplayOptions&) { return HtmlSectionOf(index, recording, result).text; },
    .file =
        [](const std::vector<RecordingReport>& reports, const Settings& settings, const TextSink& write) {
          std::vector<Summary> summaries;
          std::vector<HtmlSection> sections;
          for (const RecordingReport& report : reports) {
            summaries.push_back(report.summary);
            sections.push_back(SectionOf(report));
          }
          write(HtmlReport(summaries, sections, settings.front().options, SweepHtml(reports, settings),
                           AdviceHtml(reports)));
        }};

HtmlSection HtmlSectionOf(size_t number, const Recording& recording, const RecordingResult& result) {
  const Summary summary = Summarize(result);
  std::string html =
      fmt::format(R"(<section id="r{}" class="recording"><h2>{}</h2>)", number, Escaped(result.name));
  html += fmt::format("<p class=\"muted\">{} visits, {} of them repeat visits, {} requests{}{}</p>\n",
                      summary.visits, summary.repeats.size(), summary.requests,
                      recording.browser.empty() ? "" : ", recorded with ", Escaped(recording.browser));
  html += VisitsByPage(number, recording, result);
  html += R"(<div class="tables">)" + ReasonsTable(summary) + SkippedTable(summary) + "</div>\n";
  html += R"(<script type="application/json">)" + WaterfallData(recording, result) + "</script>\n";
  return {.number = number, .text = html + "</section>\n"};
}

HtmlSection HtmlSectionWithoutVisits(size_t number, const Summary& summary) {
  std::string html =
      fmt::format(R"(<section id="r{}" class="recording"><h2>{}</h2>)", number, Escaped(summary.name));
  html += fmt::format(
      "<p class=\"muted\">{} visits, {} of them repeat visits, {} requests; merged, without waterfalls</p>\n",
      summary.visits, summary.repeats.size(), summary.requests);
  html += R"(<div class="tables">)" + ReasonsTable(summary) + SkippedTable(summary) + "</div>\n";
  return {.number = number, .text = html + "</section>\n"};
}

std::string HtmlReport(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections,
                       const ReplayOptions& options, const std::string& sweep, const std::string& advice) {
  Summary total;
  for (const Summary& summary : summaries) AddTo(total, summary);
  std::string html =
      std::string(kPageBegin) + Policy() + "<style>" + kPageStyle + "</style>\n</head>\n<body>\n";
  html += "<header><h1>Page load with and without the plugin</h1><p class=\"muted\">" +
          Escaped(ConditionsText(options)) + "</p></header>\n<main>\n";
  html += sweep + Headlines(total) + RecordingsTable(summaries, sections) + advice;
  html += R"(<div class="tables">)" + GroupTables(total);
  if (summaries.size() > 1) html += ReasonsTable(total) + SkippedTable(total);
  html += "</div>\n";
  html += kPageFilter;
  for (const HtmlSection& section : sections) html += section.text;
  html += kPageLegend;
  return html + "</main>\n<script type=\"module\">" + kPageScript + "</script>\n</body>\n</html>\n";
}

}  // namespace replay
