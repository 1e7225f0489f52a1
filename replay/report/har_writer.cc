#include "replay/report/har_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "host/http/header_block.h"
#include "plugin/version.h"

namespace replay {
namespace {

using Json = nlohmann::ordered_json;

constexpr int64_t kFirstVisitMs = 946684800000;  // 2000-01-01: a recording's own dates are not kept

double Milliseconds(int64_t microseconds) {
  return static_cast<double>(microseconds) / 1e3;
}

// "2000-01-01T00:00:00.000Z". Viewers show no more than milliseconds.
std::string DateText(int64_t visitMs, int64_t microseconds) {
  using namespace std::chrono;
  const sys_time<milliseconds> moment{milliseconds(visitMs + microseconds / 1000)};
  const auto day = floor<days>(moment);
  const year_month_day date(day);
  const hh_mm_ss<milliseconds> time(moment - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count(),
                     time.subseconds().count());
}

// Recorded addresses hold characters that no URI has; they are escaped as a browser would send them.
std::string UriText(const std::string& url) {
  constexpr std::string_view kOthers = "-._~:/?#[]@!$&'()*+,;=%";
  std::string text;
  for (const char character : url) {
    const bool alphanumeric = (character >= '0' && character <= '9') ||
                              (character >= 'a' && character <= 'z') ||
                              (character >= 'A' && character <= 'Z');
    if (alphanumeric || kOthers.find(character) != std::string_view::npos) {
      text += character;
    } else {
      text += fmt::format("%{:02X}", static_cast<unsigned char>(character));
    }
  }
  return text;
}

Json Headers(std::string_view block) {
  Json headers = Json::array();
  http::ForEachHeader(block, [&headers](std::string_view name, std::string_view value) {
    headers.push_back({{"name", name}, {"value", value}});
  });
  return headers;
}

// "HTTP/1.1 404 Not Found" has the text after the second space.
std::string_view StatusText(std::string_view statusLine) {
  const size_t code = statusLine.find(' ');
  const size_t text = code == std::string_view::npos ? code : statusLine.find(' ', code + 1);
  return text == std::string_view::npos ? std::string_view() : statusLine.substr(text + 1);
}

Json QueryString(const std::string& uri) {
  Json query = Json::array();
  const std::string_view text = std::string_view(uri).substr(0, uri.find('#'));
  const size_t begin = text.find('?');
  if (begin == std::string_view::npos) return query;
  for (size_t at = begin + 1; at < text.size();) {
    const size_t end = std::min(text.find('&', at), text.size());
    const std::string_view pair = text.substr(at, end - at);
    const size_t equals = std::min(pair.find('='), pair.size());
    const std::string_view value = pair.substr(std::min(equals + 1, pair.size()));
    if (!pair.empty()) query.push_back({{"name", pair.substr(0, equals)}, {"value", value}});
    at = end + 1;
  }
  return query;
}

const char* HttpVersion(Protocol protocol) {
  switch (protocol) {
    case Protocol::Http2:
      return "h2";
    case Protocol::Http3:
      return "h3";
    case Protocol::Http1:
      break;
  }
  return "HTTP/1.1";
}

struct Moments {
  int64_t beginUs, connectUs, sentUs, firstByteUs, endUs;
};

void AddTimings(Json& entry, const Moments& moments) {
  const bool connected = moments.sentUs > moments.connectUs;
  entry["time"] = Milliseconds(moments.endUs - moments.beginUs);
  entry["timings"] = {
      {"blocked", Milliseconds(moments.connectUs - moments.beginUs)},
      {"dns", -1},
      {"connect", connected ? Json(Milliseconds(moments.sentUs - moments.connectUs)) : Json(-1)},
      {"ssl", -1},
      {"send", 0},
      {"wait", Milliseconds(moments.firstByteUs - moments.sentUs)},
      {"receive", Milliseconds(moments.endUs - moments.firstByteUs)}};
}

// Everything but the times and what is the replay's own. `overTheLink` is the number of body bytes.
Json Entry(const std::string& pageId, const std::string& date, const Request& request, int64_t overTheLink) {
  const std::string uri = UriText(request.url);
  Json entry;
  entry["pageref"] = pageId;
  entry["startedDateTime"] = date;
  entry["time"] = 0;
  entry["request"] = {{"method", request.method},
                      {"url", uri},
                      {"httpVersion", HttpVersion(request.protocol)},
                      {"cookies", Json::array()},
                      {"headers", Headers(request.requestHeaders)},
                      {"queryString", QueryString(uri)},
                      {"headersSize", -1},
                      {"bodySize", -1}};
  entry["response"] = {{"status", request.status},
                       {"statusText", StatusText(http::StatusLine(request.responseHeaders))},
                       {"httpVersion", HttpVersion(request.protocol)},
                       {"cookies", Json::array()},
                       {"headers", Headers(request.responseHeaders)},
                       {"content", {{"size", request.bodyBytes}, {"mimeType", request.mimeType}}},
                       {"redirectURL", ""},
                       {"headersSize", -1},
                       {"bodySize", overTheLink}};
  entry["cache"] = Json::object();
  return entry;
}

Json RequestEntry(const std::string& pageId, int64_t visitMs, const Request& request, const RequestRow& row) {
  const bool network = row.source == Source::Network;
  Json entry = Entry(pageId, DateText(visitMs, row.wantedUs), request, network ? request.bodyBytes : 0);
  if (network) {
    AddTimings(entry, {row.wantedUs, row.connectUs, row.sentUs, row.firstByteUs, row.endUs});
  } else {  // it waits, if at all, for what another transfer brings
    AddTimings(entry, {row.wantedUs, row.wantedUs, row.wantedUs, row.endUs, row.endUs});
  }
  entry["_source"] = SourceText(row.source);
  if (row.why != host::NotServed::None) {
    entry["_whyNot"] = host::WordsFor(row.why).key;
    entry["comment"] = std::string(SourceText(row.source)) + ": " + host::WordsFor(row.why).text;
  } else {
    entry["comment"] = SourceText(row.source);
  }
  return entry;
}

Json PreloadEntry(const std::string& pageId, int64_t visitMs, const Request& request, const PreloadRow& row) {
  Json entry = Entry(pageId, DateText(visitMs, row.launchedUs), request, row.bytes);
  AddTimings(entry, {row.launchedUs, row.connectUs, row.sentUs, row.firstByteUs, row.endUs});
  entry["_source"] = "preload";
  entry["_preload"] = FateText(row.fate);
  entry["_orderedAt"] = Milliseconds(row.orderedUs);
  entry["comment"] = std::string("preload, ") + FateText(row.fate);
  return entry;
}

// What a preload of a URL looks like: a GET, answered as the recording says.
class RequestsByUrl {
 public:
  explicit RequestsByUrl(const Recording& recording) {
    for (const Page& page : recording.pages) {
      for (const Request& request : page.requests) {
        if (request.method == "GET") byUrl_.try_emplace(request.url, &request);
      }
    }
  }

  Request Find(const std::string& url) const {
    const auto found = byUrl_.find(url);
    if (found != byUrl_.end()) return *found->second;
    Request request;
    request.url = url;
    request.method = "GET";
    return request;
  }

 private:
  std::unordered_map<std::string, const Request*> byUrl_;
};

std::string Dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void Append(std::string& array, const std::string& json) {
  if (!array.empty()) array += ",\n";
  array += json;
}

// Viewers list pages by their titles.
Json PageObject(const std::string& id, int64_t visitMs, const Visit& visit, Way way) {
  const std::string nth = visit.repeat ? fmt::format("visit {}", visit.number) : "first visit";
  const std::string comment = fmt::format("{}, {}", nth, WordsFor(way).key);
  const LoadTimes& times = Of(visit, way).times;
  return {{"startedDateTime", DateText(visitMs, 0)},
          {"id", id},
          {"title", visit.pageUrl + " (" + comment + ")"},
          {"pageTimings",
           {{"onContentLoad", Milliseconds(times.contentLoadedUs)},
            {"onLoad", Milliseconds(times.pageLoadUs)},
            {"_firstPaint", Milliseconds(times.firstPaintUs)}}},
          {"comment", comment}};
}

// In the order in which they begin. As texts, which take far less room than objects.
void AppendEntries(std::string& array, const std::string& pageId, int64_t visitMs, const Page& page,
                   const WayResult& way, const RequestsByUrl& requestsByUrl) {
  std::vector<std::pair<int64_t, std::string>> entries;
  for (const RequestRow& row : way.requests) {
    entries.emplace_back(row.wantedUs,
                         Dump(RequestEntry(pageId, visitMs, page.requests.at(row.request), row)));
  }
  for (const PreloadRow& row : way.preloads) {
    entries.emplace_back(row.launchedUs,
                         Dump(PreloadEntry(pageId, visitMs, requestsByUrl.Find(row.url), row)));
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });
  for (const auto& [begin, entry] : entries) Append(array, entry);
}

}  // namespace

std::string HarPartOf(size_t index, const Recording& recording, const RecordingResult& result,
                      const ReplayOptions& options) {
  std::string pages, entries;
  const RequestsByUrl requestsByUrl(recording);
  int64_t visitMs = kFirstVisitMs;
  for (size_t number = 0; number < result.visits.size(); ++number) {
    const Visit& visit = result.visits[number];
    for (const Way way : {Way::Off, Way::Plugin}) {
      const std::string id = fmt::format("page_{}_{}_{}", index + 1, number + 1, WordsFor(way).key);
      Append(pages, Dump(PageObject(id, visitMs, visit, way)));
      AppendEntries(entries, id, visitMs, recording.pages.at(visit.page), Of(visit, way), requestsByUrl);
    }
    visitMs += Of(visit, Way::Plugin).times.pageLoadUs / 1000 + static_cast<int64_t>(options.revisitAfterMs);
  }
  return pages + '\0' + entries;
}

void WriteHar(const std::vector<std::string_view>& parts, const TextSink& write) {
  const auto writeArray = [&](const auto& arrayOf) {
    bool begun = false;
    for (const std::string_view part : parts) {
      const std::string_view text = arrayOf(part);
      if (text.empty()) continue;
      if (std::exchange(begun, true)) write(",\n");
      write(text);
    }
  };
  const Json creator = {{"name", "kiv_replay"}, {"version", KIV_VERSION}};
  write("{\"log\": {\"version\": \"1.2\", \"creator\": " + Dump(creator) + ",\n\"pages\": [\n");
  writeArray([](std::string_view part) { return part.substr(0, part.find('\0')); });
  write("\n],\n\"entries\": [\n");
  writeArray([](std::string_view part) { return part.substr(part.find('\0') + 1); });
  write("\n]}}\n");
}

const ReportFormat kHarFormat = {
    .option = "--har-out",
    .what = "write the simulated loads, without the plugin and with it",
    .signature = "\"creator\": {\"name\":\"kiv_replay\"",
    .needsReplay = true,
    .oneSetting = true,
    .collect = HarPartOf,
    .file = [](const std::vector<RecordingReport>& reports, const Settings&, const TextSink& write) {
      std::vector<std::string_view> parts;
      for (const RecordingReport& report : reports) parts.emplace_back(report.parts.at("--har-out"));
      WriteHar(parts, write);
    }};

}  // namespace replay
