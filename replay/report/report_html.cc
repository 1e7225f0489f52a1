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
  Json loads = Json::array();
  for (const Way way : kWays) {
    const bool ran = visit.repeat || IsRunOnFirstVisits(way);
    loads.push_back(ran ? Json(Of(visit, way).pageLoadUs) : Json(nullptr));
  }
  return {{"page", urls.Of(visit.pageUrl)}, {"loads", loads}, {"lines", lines}};
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

// The gain as people read it: a minus is time saved.
std::string ChangeText(double off, double plugin) {
  const auto share = GainShare(off, plugin);
  if (!share) return "–";
  const std::string text = PercentText(-*share);
  if (text == "0%") return "±0%";
  return text[0] == '-' ? Typeset(text) : "+" + text;
}

const char* ChangeClass(double off, double plugin) {
  if (plugin * 100 > off * 101) return "bad";
  return plugin * 100 < off * 99 ? "good" : "";
}

// The gap from off (right end) to oracle as a band, and where the plugin stands.
std::string Bullet(const Figures& figures) {
  if (!figures) return "";
  const double off = At(figures, Way::Off);
  const double plugin = At(figures, Way::Plugin);
  const double oracle = At(figures, Way::Oracle);
  const double most = std::max({off, plugin, oracle, 1.0});
  return fmt::format(
      R"(<span class="bullet" role="img" aria-label="gap closed {}" title="band: from oracle to off; mark: plugin">)"
      R"(<i class="gap" style="left:{:.2f}%;width:{:.2f}%"></i><i class="mark" style="left:{:.2f}%"></i></span>)",
      PercentText(GapClosed(off, plugin, oracle)), oracle / most * 100,
      std::max(0.0, off - oracle) / most * 100, plugin / most * 100);
}

std::string FigureCells(const Summary& summary) {
  const Figures medians = MedianLoads(summary);
  std::string html;
  if (!medians) {
    html += R"(<td colspan="9" class="muted left">no repeat visit</td>)";
  } else {
    for (const Way way : kWays) html += fmt::format("<td>{}</td>", MillisecondsText(At(medians, way)));
    const double off = At(medians, Way::Off);
    const double plugin = At(medians, Way::Plugin);
    html += fmt::format(R"(<td class="{}">{}</td><td>{}</td><td>{}</td>)", ChangeClass(off, plugin),
                        ChangeText(off, plugin), Typeset(PercentText(GapClosedOverall(summary))),
                        Bullet(MeanLoads(summary)));
  }
  html += fmt::format("<td>{}</td><td>{}</td><td>{}</td><td>{}</td>", summary.served, summary.joined,
                      summary.fetched, BytesText(summary.wastedBytes));
  html +=
      fmt::format(R"(<td class="{}">{}</td>)", summary.slowerVisits > 0 ? "bad" : "", summary.slowerVisits);
  return html;
}

std::string WayHeadings() {
  std::string html;
  for (const Way way : kWays) html += fmt::format(R"(<th scope="col">{}</th>)", WordsFor(way).key);
  return html;
}

std::string RecordingsTable(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections,
                            const Summary& total) {
  std::string html =
      R"(<div class="scroll" tabindex="0" role="region" aria-label="Recordings"><table class="figures"><caption>Page load in ms, the median over repeat visits; gap closed, over all of them</caption><thead><tr>)"
      R"(<th scope="col" class="left">Recording</th><th scope="col">Visits</th>)";
  html += WayHeadings();
  html +=
      R"(<th scope="col">Change</th><th scope="col">Gap closed</th>)"
      R"(<th scope="col"><span class="hidden">Gap as a picture</span></th><th scope="col">Served</th><th scope="col">Joined</th>)"
      R"(<th scope="col">Fetched</th><th scope="col">Wasted</th><th scope="col">Slower</th></tr></thead><tbody>)";
  for (size_t index = 0; index < summaries.size(); ++index) {
    html += fmt::format(R"(<tr><th scope="row"><a href="#r{}">{}</a></th><td>{}</td>{}</tr>)",
                        sections[index].number, Escaped(summaries[index].name), summaries[index].loads.size(),
                        FigureCells(summaries[index]));
  }
  html += "</tbody>";
  if (summaries.size() > 1) {
    html += fmt::format(R"(<tfoot><tr><th scope="row">{} recordings</th><td>{}</td>{}</tr></tfoot>)",
                        summaries.size(), total.loads.size(), FigureCells(total));
  }
  return html + "</table></div>\n";
}

std::string Headline(const char* name, const std::string& value, const std::string& note) {
  return fmt::format("<div><dt>{}</dt><dd><b>{}</b><span>{}</span></dd></div>", name, value, note);
}

std::string Headlines(const Summary& total) {
  const Figures medians = MedianLoads(total);
  if (!medians) return "<p>No page was visited twice, so there is nothing to compare.</p>\n";
  const double off = At(medians, Way::Off);
  const double plugin = At(medians, Way::Plugin);
  const Gains gains = GainsPerVisit(total).value();
  const uint64_t asked = total.served + total.joined + total.fetched;
  std::string html = R"(<dl class="headlines">)";
  html += Headline("Median page load", Seconds(off) + " → " + Seconds(plugin),
                   fmt::format(R"(<em class="{}">{}</em> with the plugin)", ChangeClass(off, plugin),
                               ChangeText(off, plugin)));
  html += Headline("Gap to the oracle closed", Typeset(PercentText(GapClosedOverall(total))),
                   fmt::format("of all visits together; {} in the median visit",
                               Typeset(PercentText(GapClosedPerVisit(total)))));
  html += Headline(
      "Visits slower by more than 1%", fmt::format("{} of {}", total.slowerVisits, total.loads.size()),
      fmt::format("gain per visit: median {} ms, worst {} ms", Typeset(SignedMillisecondsText(gains.median)),
                  Typeset(SignedMillisecondsText(gains.worst))));
  html += Headline("Served or joined", fmt::format("{} of {}", total.served + total.joined, asked),
                   fmt::format("of what the disk cache could not answer; {} preloaded, {} of it in vain",
                               BytesText(total.preloadedBytes), BytesText(total.wastedBytes)));
  return html + "</dl>\n";
}

std::string SpreadTable(const Summary& total) {
  if (total.loads.empty()) return "";
  std::string html =
      R"(<table class="figures narrow"><caption>Page load over all repeat visits, ms</caption><thead><tr><th class="left"></th>)";
  html += WayHeadings() + R"(<th scope="col">Change</th></tr></thead><tbody>)";
  const auto add = [&html](const char* name, const Figures& figures) {
    html += fmt::format(R"(<tr><th scope="row">{}</th>)", name);
    for (const Way way : kWays) html += fmt::format("<td>{}</td>", MillisecondsText(At(figures, way)));
    const double off = At(figures, Way::Off);
    const double plugin = At(figures, Way::Plugin);
    html += fmt::format(R"(<td class="{}">{}</td></tr>)", ChangeClass(off, plugin), ChangeText(off, plugin));
  };
  add("Median", MedianLoads(total));
  add("95th percentile", Percentile95Loads(total));
  add("Mean", MeanLoads(total));
  return html + "</tbody></table>\n";
}

std::string ReasonsTable(const Summary& summary) {
  const auto reasons = ReasonsByFrequency(summary);
  if (reasons.empty()) return "";
  uint64_t sum = 0;
  for (const auto& [why, count] : reasons) sum += count;
  std::string html =
      R"(<table class="figures narrow reasons"><caption>Why not served</caption><thead><tr><th scope="col" class="left">Reason</th>)"
      R"(<th scope="col">Requests</th><th scope="col">Share</th></tr></thead><tbody>)";
  for (const auto& [why, count] : reasons) {
    const double share = static_cast<double>(count) / static_cast<double>(sum);
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
  const auto off = static_cast<double>(Of(visit, Way::Off).pageLoadUs);
  const auto plugin = static_cast<double>(Of(visit, Way::Plugin).pageLoadUs);
  std::string html =
      fmt::format(R"(<span class="page">{}</span><span class="nth">{}</span>)", Escaped(visit.pageUrl),
                  visit.repeat ? fmt::format("visit {}", visit.number) : "first visit");
  html += fmt::format(R"(<span class="loads">{} → {} <em class="{}">{}</em></span>)", Seconds(off),
                      Seconds(plugin), ChangeClass(off, plugin), ChangeText(off, plugin));
  return html;
}

std::string VisitFigures(const Visit& visit) {
  const auto load = [&visit](Way way) { return Seconds(static_cast<double>(Of(visit, way).pageLoadUs)); };
  std::string html = fmt::format(
      R"(<p class="visit-figures"><span class="off">Off <b>{}</b></span> <span class="plugin">Plugin <b>{}</b></span> )",
      load(Way::Off), load(Way::Plugin));
  if (visit.repeat) {
    for (const Way way : kWays) {
      if (IsRunOnFirstVisits(way)) continue;
      html += fmt::format(R"(<span class="{0}">{0} <b>{1}</b></span> )", WordsFor(way).key, load(way));
    }
  }
  html += fmt::format(
      "<span>{} served, {} joined, {} fetched, {} from the disk cache</span> <span>{} preloaded, {} "
      "wasted</span></p>",
      visit.served, visit.joined, visit.fetched, visit.fromDiskCache, BytesText(visit.preloadedBytes),
      BytesText(visit.wastedBytes));
  return html;
}

}  // namespace

HtmlSection HtmlSectionOf(size_t number, const Recording& recording, const RecordingResult& result) {
  const Summary summary = Summarize(result);
  std::string html = fmt::format(R"(<section id="r{}"><h2>{}</h2>)", number, Escaped(result.name));
  html += fmt::format("<p class=\"muted\">{} visits, {} of them repeat visits, {} requests{}{}</p>\n",
                      summary.visits, summary.loads.size(), summary.requests,
                      recording.browser.empty() ? "" : ", recorded with ", Escaped(recording.browser));
  UrlNumbers urls;
  Json visits = Json::array();
  for (size_t index = 0; index < result.visits.size(); ++index) {
    const Visit& visit = result.visits[index];
    visits.push_back(VisitData(recording.pages.at(visit.page), visit, urls));
    html += fmt::format(
        R"(<details class="visit{}" id="r{}v{}"><summary>{}</summary>{}<div class="waterfall"></div></details>)",
        visit.repeat ? "" : " first", number, index, VisitSummary(visit), VisitFigures(visit));
    html += '\n';
  }
  html += R"(<div class="tables">)" + ReasonsTable(summary) + SkippedTable(summary) + "</div>\n";
  html += R"(<script type="application/json">)" + Embedded({{"urls", urls.Urls()}, {"visits", visits}}) +
          "</script>\n";
  return {.number = number, .text = html + "</section>\n"};
}

std::string HtmlReport(const std::vector<Summary>& summaries, const std::vector<HtmlSection>& sections,
                       const ReplayOptions& options) {
  Summary total;
  for (const Summary& summary : summaries) AddTo(total, summary);
  std::string html = std::string(kPageBegin) + "<style>\n" + kPageStyle + "</style>\n</head>\n<body>\n";
  html += "<header><h1>Page load with and without the plugin</h1><p class=\"muted\">" +
          Escaped(ConditionsText(options)) + "</p></header>\n<main>\n";
  html += Headlines(total) + RecordingsTable(summaries, sections, total);
  if (summaries.size() > 1) {
    html += R"(<div class="tables">)" + SpreadTable(total) + ReasonsTable(total) + SkippedTable(total) +
            "</div>\n";
  }
  html += kPageLegend;
  for (const HtmlSection& section : sections) html += section.text;
  return html + "</main>\n<script>\n" + kPageScript + "</script>\n</body>\n</html>\n";
}

}  // namespace replay
