#include "replay/report/report_waterfall.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <vector>

#include "replay/report/printable_text.h"

namespace replay {
namespace {

using Json = nlohmann::ordered_json;

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

const char* ProtocolText(Protocol protocol) {
  switch (protocol) {
    case Protocol::Http2:
      return "HTTP/2";
    case Protocol::Http3:
      return "HTTP/3";
    case Protocol::Http1:
      break;
  }
  return "HTTP/1.1";
}

// One line of a waterfall: a request of the page in both ways, a preload that nobody asked for, or a request
// and the preload that answered it.
struct Line {
  const Request* request = nullptr;
  PerWay<const RequestRow*> rows{};
  const PreloadRow* preload = nullptr;
  int64_t atUs = 0;  // lines are in this order

  const RequestRow* Plugin() const { return rows[Index(Way::Plugin)]; }
};

// A preload belongs to the request that took it, else to the first one for its URL that has none.
void PlacePreloads(const std::vector<PreloadRow>& preloads, std::vector<Line>& lines) {
  const size_t requests = lines.size();
  std::unordered_map<std::string, std::vector<size_t>> byUrl;
  for (size_t index = 0; index < requests; ++index) {
    if (lines[index].Plugin() != nullptr) byUrl[lines[index].request->url].push_back(index);
  }
  for (const PreloadRow& preload : preloads) {
    Line* place = nullptr;
    for (const size_t index : byUrl[preload.url]) {
      Line& line = lines[index];
      if (line.preload != nullptr) continue;
      const bool took = line.Plugin()->source == Source::Served || line.Plugin()->source == Source::Joined;
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
  for (const Way way : kWays) {
    for (const RequestRow& row : Of(visit, way).requests) byRequest.at(row.request).rows[Index(way)] = &row;
  }
  std::vector<Line> lines;
  for (size_t index = 0; index < byRequest.size(); ++index) {
    Line& line = byRequest[index];
    const RequestRow* const off = line.rows[Index(Way::Off)];
    if (off == nullptr && line.Plugin() == nullptr) continue;
    line.request = &page.requests[index];
    line.atUs = off != nullptr ? off->wantedUs : line.Plugin()->wantedUs;
    lines.push_back(line);
  }
  PlacePreloads(Of(visit, Way::Plugin).preloads, lines);
  std::stable_sort(lines.begin(), lines.end(),
                   [](const Line& left, const Line& right) { return left.atUs < right.atUs; });
  return lines;
}

// Texts by number: the visits of a recording say the same again and again.
class TextNumbers {
 public:
  int64_t Of(const std::string& text) {
    const auto [found, added] = numbers_.try_emplace(text, static_cast<int64_t>(texts_.size()));
    if (added) texts_.push_back(PrintableText(text));
    return found->second;
  }
  bool Has(const std::string& text) const { return numbers_.contains(text); }
  const Json& Texts() const { return texts_; }

 private:
  std::unordered_map<std::string, int64_t> numbers_;
  Json texts_ = Json::array();
};

Json RequestData(const Request& request, bool beacon, TextNumbers& texts) {
  const std::string& initiator = request.initiatorUrl.empty() ? request.referer : request.initiatorUrl;
  return {texts.Of(request.url),
          texts.Of(KindText(request.kind)),
          texts.Of(request.method),
          request.status,
          texts.Of(ProtocolText(request.protocol)),
          request.bodyBytes,
          initiator.empty() ? -1 : texts.Of(initiator),
          beacon ? 1 : 0};
}

Json PageData(const Page& page, const std::vector<RequestRow>& rows, TextNumbers& texts) {
  std::vector<bool> beacons(page.requests.size());
  for (const RequestRow& row : rows) beacons.at(row.request) = row.beacon;
  Json requests = Json::array();
  for (size_t index = 0; index < page.requests.size(); ++index) {
    requests.push_back(RequestData(page.requests[index], beacons[index], texts));
  }
  return requests;
}

Json AnswerData(const RequestRow* row, TextNumbers& texts) {
  if (row == nullptr) return nullptr;
  return {texts.Of(SourceText(row->source)), row->wantedUs,
          row->connectUs - row->wantedUs,    row->sentUs - row->connectUs,
          row->firstByteUs - row->sentUs,    row->endUs - row->firstByteUs};
}

Json PreloadData(const PreloadRow* row, TextNumbers& texts) {
  if (row == nullptr) return nullptr;
  return {texts.Of(row->url),
          texts.Of(KindText(row->kind)),
          texts.Of(FateText(row->fate)),
          row->bytes,
          row->orderedUs,
          row->launchedUs,
          row->connectUs - row->launchedUs,
          row->sentUs - row->connectUs,
          row->firstByteUs - row->sentUs,
          row->endUs - row->firstByteUs};
}

bool IsShown(Way way, const Visit& visit) {
  return visit.repeat || IsRunOnFirstVisits(way);
}

Json LineData(const Line& line, const Page& page, const Visit& visit, TextNumbers& texts) {
  const RequestRow* const plugin = line.Plugin();
  const bool hasReason = plugin != nullptr && plugin->why != host::NotServed::None;
  Json data = Json::array();
  data.push_back(line.request != nullptr ? Json(line.request - page.requests.data()) : Json(nullptr));
  data.push_back(texts.Of(hasReason ? host::WordsFor(plugin->why).text : ""));
  data.push_back(PreloadData(line.preload, texts));
  for (const Way way : kWays) {
    if (IsShown(way, visit)) data.push_back(AnswerData(line.rows[Index(way)], texts));
  }
  return data;
}

// [time, text before, URL, text after], or null if the line names no known URL. The plugin writes at most a
// number in parentheses after a URL.
Json LogLineData(const LogLine& line, int64_t startUs, TextNumbers& texts) {
  const size_t begin = std::min(line.text.find("http://"), line.text.find("https://"));
  if (begin == std::string::npos) return nullptr;
  std::string url = line.text.substr(begin);
  if (!texts.Has(url)) {
    url.resize(std::min(url.size(), url.rfind('(')));
    while (url.ends_with(' ')) url.pop_back();
  }
  if (!texts.Has(url)) return nullptr;
  return {line.atUs - startUs, PrintableText(line.text.substr(0, begin)), texts.Of(url),
          PrintableText(line.text.substr(begin + url.size()))};
}

// What the log says from one moment on, until another.
Json LogData(const std::vector<LogLine>& log, int64_t startUs, int64_t endUs, TextNumbers& texts) {
  Json lines = Json::array();
  for (const LogLine& line : log) {
    if (line.atUs < startUs || line.atUs >= endUs) continue;
    Json data = LogLineData(line, startUs, texts);
    if (!data.is_null()) lines.push_back(std::move(data));
  }
  return lines;
}

Json VisitData(const Page& page, const Visit& visit, TextNumbers& texts) {
  Json ways = Json::array();
  for (const Way way : kWays) {
    if (!IsShown(way, visit)) continue;
    const WayResult& result = Of(visit, way);
    const LoadTimes& times = result.times;
    ways.push_back(
        {WordsFor(way).key, times.firstPaintUs, times.contentLoadedUs, times.pageLoadUs, result.lastRequest});
  }
  Json lines = Json::array();
  for (const Line& line : Lines(page, visit)) lines.push_back(LineData(line, page, visit, texts));
  return {{"page", texts.Of(visit.pageUrl)}, {"load", visit.page}, {"ways", ways}, {"lines", lines}};
}

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

}  // namespace

std::string WaterfallData(const Recording& recording, const RecordingResult& result) {
  TextNumbers texts;
  std::vector<Json> pages(recording.pages.size(), Json::array());
  Json visits = Json::array();
  for (size_t index = 0; index < result.visits.size(); ++index) {
    const Visit& visit = result.visits[index];
    const Page& page = recording.pages.at(visit.page);
    if (pages[visit.page].empty()) pages[visit.page] = PageData(page, Of(visit, Way::Off).requests, texts);
    visits.push_back(VisitData(page, visit, texts));
    if (result.log.empty()) continue;
    const bool isLast = index + 1 == result.visits.size();
    const int64_t endUs = isLast ? std::numeric_limits<int64_t>::max() : result.visits[index + 1].startUs;
    visits.back()["log"] = LogData(result.log, visit.startUs, endUs, texts);
  }
  return Embedded({{"texts", texts.Texts()}, {"pages", pages}, {"visits", visits}});
}

}  // namespace replay
