#include "replay/report/report_html.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "replay/report/figure_text.h"
#include "replay/report/printable_text.h"
#include "replay/report/report_page.h"
#include "replay/report/report_text.h"

namespace replay {
namespace {

using Json = nlohmann::ordered_json;

std::string Escaped(const std::string& text) {
  std::string html;
  for (const char character : PrintableText(text)) {
    switch (character) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += character;
    }
  }
  return html;
}

// JSON that may stand in a script element: no tag or comment can begin or end in it.
std::string Embedded(const Json& json) {
  std::string text;
  for (const char character : json.dump(-1, ' ', false, Json::error_handler_t::replace)) {
    if (character == '<') {
      text += "\\u003c";
    } else {
      text += character;
    }
  }
  return text;
}

// -- The data of the waterfalls. report.js reads these arrays by position. --

const char* KindText(host::ResourceKind kind) {
  switch (kind) {
    case host::ResourceKind::Document:
      return "html";
    case host::ResourceKind::Stylesheet:
      return "css";
    case host::ResourceKind::Script:
      return "js";
    case host::ResourceKind::Font:
      return "font";
    case host::ResourceKind::Image:
      return "img";
    case host::ResourceKind::Media:
      return "media";
    case host::ResourceKind::Data:
      return "data";
    case host::ResourceKind::Other:
      break;
  }
  return "";
}

// [wanted, connect, sent, first byte, end]
Json Times(const RequestRow& row) {
  return {row.wantedUs, row.connectUs, row.sentUs, row.firstByteUs, row.endUs};
}

// [ordered, launched, connect, sent, first byte, end]
Json Times(const PreloadRow& row) {
  return {row.orderedUs, row.launchedUs, row.connectUs, row.sentUs, row.firstByteUs, row.endUs};
}

// One line of a waterfall: a request of the page in both ways, a preload that nobody asked for, or a request
// and the preload that answered it.
struct Line {
  const Request* request = nullptr;
  const RequestRow* off = nullptr;
  const RequestRow* plugin = nullptr;
  const PreloadRow* preload = nullptr;
  int64_t atUs = 0;  // lines are in this order
};

// A preload belongs to the request that took it, else to the first one for its URL that has none.
void PlacePreloads(const std::vector<PreloadRow>& preloads, std::vector<Line>& lines) {
  const size_t requests = lines.size();
  std::unordered_map<std::string, std::vector<size_t>> byUrl;
  for (size_t index = 0; index < requests; ++index) {
    if (lines[index].plugin != nullptr) byUrl[lines[index].request->url].push_back(index);
  }
  for (const PreloadRow& preload : preloads) {
    Line* place = nullptr;
    for (const size_t index : byUrl[preload.url]) {
      Line& line = lines[index];
      if (line.preload != nullptr) continue;
      const bool took = line.plugin->source == Source::Served || line.plugin->source == Source::Joined;
      if (place == nullptr || took) place = &line;
      if (took) break;
    }
    if (place != nullptr) {
      place->preload = &preload;
    } else {
      lines.push_back({.preload = &preload, .atUs = preload.launchedUs});
    }
  }
}

std::vector<Line> Lines(const Page& page, const Visit& visit) {
  std::vector<Line> byRequest(page.requests.size());
  for (const RequestRow& row : Of(visit, Way::Off).requests) byRequest.at(row.request).off = &row;
  for (const RequestRow& row : Of(visit, Way::Plugin).requests) byRequest.at(row.request).plugin = &row;
  std::vector<Line> lines;
  for (size_t index = 0; index < byRequest.size(); ++index) {
    Line& line = byRequest[index];
    if (line.off == nullptr && line.plugin == nullptr) continue;
    line.request = &page.requests[index];
    line.atUs = line.off != nullptr ? line.off->wantedUs : line.plugin->wantedUs;
    lines.push_back(line);
  }
  PlacePreloads(Of(visit, Way::Plugin).preloads, lines);
  std::stable_sort(lines.begin(), lines.end(),
                   [](const Line& left, const Line& right) { return left.atUs < right.atUs; });
  return lines;
}

// URLs of a recording by number: its visits ask for the same ones again and again.
class UrlNumbers {
 public:
  size_t Of(const std::string& url) {
    const auto [found, added] = numbers_.try_emplace(url, urls_.size());
    if (added) urls_.push_back(PrintableText(url));
    return found->second;
  }
  const Json& Urls() const { return urls_; }

 private:
  std::unordered_map<std::string, size_t> numbers_;
  Json urls_ = Json::array();
};

// [url, kind, off times or null, plugin times or null, source or null, why, preload times or null, bytes,
// fate]
Json LineData(const Line& line, UrlNumbers& urls) {
  const std::string& url = line.request != nullptr ? line.request->url : line.preload->url;
  const host::ResourceKind kind = line.request != nullptr ? line.request->kind : line.preload->kind;
  Json data = Json::array();
  data.push_back(urls.Of(url));
  data.push_back(KindText(kind));
  data.push_back(line.off != nullptr ? Times(*line.off) : Json(nullptr));
  data.push_back(line.plugin != nullptr ? Times(*line.plugin) : Json(nullptr));
  data.push_back(line.plugin != nullptr ? Json(SourceText(line.plugin->source)) : Json(nullptr));
  const bool hasReason = line.plugin != nullptr && line.plugin->why != host::NotServed::None;
  data.push_back(hasReason ? host::WordsFor(line.plugin->why).text : "");
  if (line.preload == nullptr) return data;
  data.push_back(Times(*line.preload));
  data.push_back(line.preload->bytes);
  data.push_back(FateText(line.preload->fate));
  return data;
}

Json VisitData(const Page& page, const Visit& visit, UrlNumbers& urls) {
  Json lines = Json::array();
  for (const Line& line : Lines(page, visit)) lines.push_back(LineData(line, urls));
  Json ways = Json::array();
  for (const Way way : kWays) {
    if (!visit.repeat && !IsRunOnFirstVisits(way)) continue;
    const LoadTimes& times = Of(visit, way).times;
    ways.push_back({WordsFor(way).key, times.firstPaintUs, times.contentLoadedUs, times.pageLoadUs});
  }
  return {{"page", urls.Of(visit.pageUrl)}, {"ways", ways}, {"lines", lines}};
}

// -- The static parts --

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
      R"(<span class="bullet" role="img" aria-label="gap closed {}" title="band: from {} to off; mark: plugin">)"
      R"(<i class="gap" style="left:{:.2f}%;width:{:.2f}%"></i><i class="mark" style="left:{:.2f}%"></i></span>)",
      PercentText(closed), WordsFor(kBound).key, bound / most * 100, (off - bound) / most * 100,
      plugin / most * 100);
}

std::string GainCell(const std::vector<VisitFigures>& visits, Metric metric) {
  const double off = At(Medians(visits, metric), Way::Off);
  const double gain = GainsOf(visits, metric)->median;
  return fmt::format(R"(<td class="{}">{}</td>)", GainClass(off, off - gain), GainMilliseconds(gain));
}

std::string FigureCells(const Summary& summary) {
  const std::vector<VisitFigures>& visits = summary.repeats;
  if (visits.empty()) {
    return fmt::format(R"(<td colspan="{}" class="muted left">no repeat visit</td>)", kWays.size() + 9);
  }
  const Totals totals = TotalsOf(visits);
  const Figures paint = Medians(visits, &LoadTimes::firstPaintUs);
  const Figures load = Medians(visits, &LoadTimes::pageLoadUs);
  std::string html;
  for (const Way way : {Way::Off, Way::Plugin}) html += "<td>" + MillisecondsText(At(paint, way)) + "</td>";
  html += GainCell(visits, &LoadTimes::firstPaintUs);
  for (const Way way : kWays) html += "<td>" + MillisecondsText(At(load, way)) + "</td>";
  html += GainCell(visits, &LoadTimes::pageLoadUs);
  html +=
      fmt::format("<td>{}</td><td>{}</td><td>{}</td>", Typeset(PercentText(GapClosedOverall(visits, kBound))),
                  Bullet(visits), PercentText(ShareOf(totals.unusedBytes, totals.preloadedBytes)));
  for (const uint64_t count : {totals.slowerVisits, totals.laterPaintVisits}) {
    html += fmt::format(R"(<td class="{}">{}</td>)", count > 0 ? "bad" : "", count);
  }
  return html;
}

std::string VisitsText(const Summary& summary) {
  if (!HeadlineIsOfCopies(summary.repeats)) return fmt::format("{}", summary.repeats.size());
  return fmt::format("{}&nbsp;{}", summary.repeats.size(), summary.repeats.size() == 1 ? "copy" : "copies");
}

std::string RecordingsTable(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections) {
  std::string html = fmt::format(
      R"(<div class="scroll" tabindex="0" role="region" aria-label="Recordings"><table class="figures"><caption>Medians over the repeat visits of a recording, ms; gains are per visit. The gap is from off to {}.</caption><thead><tr>)"
      R"(<th rowspan="2" scope="col" class="left">Recording</th><th rowspan="2" scope="col">Visits</th>)"
      R"(<th colspan="3" scope="colgroup" class="group">First paint</th><th colspan="{}" scope="colgroup" class="group">Load event</th>)"
      R"(<th rowspan="2" scope="col">Gap closed</th><th rowspan="2" scope="col"><span class="hidden">Gap as a picture</span></th>)"
      R"(<th rowspan="2" scope="col">Unused bytes</th><th rowspan="2" scope="col">Slower</th><th rowspan="2" scope="col">Later paint</th></tr><tr>)"
      R"(<th scope="col">off</th><th scope="col">plugin</th><th scope="col">gain</th>)",
      WordsFor(kBound).key, kWays.size() + 1);
  for (const Way way : kWays) html += fmt::format(R"(<th scope="col">{}</th>)", WordsFor(way).key);
  html += R"(<th scope="col">gain</th></tr></thead><tbody>)";
  for (size_t index = 0; index < summaries.size(); ++index) {
    html += fmt::format(R"(<tr><th scope="row"><a href="#r{}">{}</a></th><td>{}</td>{}</tr>)",
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
  html += Headline(
      "Unused bytes", PercentText(ShareOf(totals.unusedBytes, totals.preloadedBytes)),
      fmt::format("of {} preloaded; {} preloads and {} connections were unused",
                  BytesText(totals.preloadedBytes), UnusedText(totals.unusedPreloads, totals.preloads),
                  UnusedText(totals.unusedConnections, totals.connections)));
  return html + "</dl>\n";
}

std::string GainsTable(const std::vector<VisitFigures>& visits, const char* name) {
  if (visits.empty()) return "";
  const Totals totals = TotalsOf(visits);
  std::string html = fmt::format(
      R"(<table class="figures narrow"><caption>{} {}</caption><thead><tr><th rowspan="2" class="left" scope="col">Event</th>)"
      R"(<th colspan="4" scope="colgroup" class="group">Gain of the plugin per visit, ms</th><th colspan="{}" scope="colgroup" class="group">Gain over all visits</th></tr><tr>)"
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
  html += "</tbody></table>\n";
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
        R"(<tr><th scope="row">{}</th><td>{}</td><td><i class="share" style="width:{:.1f}%"></i>{}</td></tr>)",
        host::WordsFor(why).text, count, share * 60, PercentText(share));
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
  std::string html = fmt::format(R"(<span class="page">{}</span><span class="nth">{}</span>)",
                                 Escaped(visit.pageUrl), visit.repeat ? nth : "first visit");
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
      R"(<div class="scroll" tabindex="0" role="region" aria-label="Events in all ways"><table class="figures visit-figures"><thead><tr><th scope="col" class="left">Way</th>)";
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

}  // namespace

HtmlSection HtmlSectionOf(size_t number, const Recording& recording, const RecordingResult& result) {
  const Summary summary = Summarize(result);
  std::string html = fmt::format(R"(<section id="r{}"><h2>{}</h2>)", number, Escaped(result.name));
  html += fmt::format("<p class=\"muted\">{} visits, {} of them repeat visits, {} requests{}{}</p>\n",
                      summary.visits, summary.repeats.size(), summary.requests,
                      recording.browser.empty() ? "" : ", recorded with ", Escaped(recording.browser));
  UrlNumbers urls;
  Json visits = Json::array();
  for (size_t index = 0; index < result.visits.size(); ++index) {
    const Visit& visit = result.visits[index];
    visits.push_back(VisitData(recording.pages.at(visit.page), visit, urls));
    html += fmt::format(
        R"(<details class="visit{}" id="r{}v{}"><summary>{}</summary>{}{}<div class="waterfall"></div></details>)",
        visit.repeat ? "" : " first", number, index, VisitSummary(visit),
        VisitTable(recording.pages.at(visit.page), visit), VisitFacts(visit));
    html += '\n';
  }
  html += R"(<div class="tables">)" + ReasonsTable(summary) + SkippedTable(summary) + "</div>\n";
  html += R"(<script type="application/json">)" + Embedded({{"urls", urls.Urls()}, {"visits", visits}}) +
          "</script>\n";
  return {.number = number, .text = html + "</section>\n"};
}

HtmlSection HtmlSectionWithoutVisits(size_t number, const Summary& summary) {
  std::string html = fmt::format(R"(<section id="r{}"><h2>{}</h2>)", number, Escaped(summary.name));
  html += fmt::format(
      "<p class=\"muted\">{} visits, {} of them repeat visits, {} requests; merged, without waterfalls</p>\n",
      summary.visits, summary.repeats.size(), summary.requests);
  html += R"(<div class="tables">)" + ReasonsTable(summary) + SkippedTable(summary) + "</div>\n";
  return {.number = number, .text = html + "</section>\n"};
}

std::string HtmlReport(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections,
                       const ReplayOptions& options) {
  Summary total;
  for (const Summary& summary : summaries) AddTo(total, summary);
  std::string html = std::string(kPageBegin) + "<style>\n" + kPageStyle + "</style>\n</head>\n<body>\n";
  html += "<header><h1>Page load with and without the plugin</h1><p class=\"muted\">" +
          Escaped(ConditionsText(options)) + "</p></header>\n<main>\n";
  html += Headlines(total) + RecordingsTable(summaries, sections);
  html += R"(<div class="tables">)" + GroupTables(total);
  if (summaries.size() > 1) html += ReasonsTable(total) + SkippedTable(total);
  html += "</div>\n";
  html += kPageLegend;
  for (const HtmlSection& section : sections) html += section.text;
  return html + "</main>\n<script>\n" + kPageScript + "</script>\n</body>\n</html>\n";
}

}  // namespace replay
