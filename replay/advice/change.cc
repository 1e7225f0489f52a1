#include "replay/advice/change.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "host/connection_group.h"
#include "host/http/cache_control.h"
#include "plugin/properties.h"
#include "replay/recording/redirects.h"

namespace replay {
namespace {

constexpr size_t kMostChanges = 8;  // beside those of single preloads; each costs a replay
constexpr size_t kMostPreloads = 4;

// "https://a.test:443" is a.test.
std::string ServerOf(const std::string& url) {
  const std::string group = host::ConnectionGroup(url);
  const size_t begin = group.find("://");
  std::string server = begin == std::string::npos ? group : group.substr(begin + 3);
  for (const std::string_view port : {":443", ":80"}) {
    if (server.ends_with(port)) server.resize(server.size() - port.size());
  }
  return server;
}

bool IsHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// What addresses that differ on every load have in common: no query, and long numbers as one character.
std::string StableAddress(const std::string& url) {
  constexpr size_t kLongRun = 10;
  const std::string path = url.substr(0, url.find_first_of("?#"));
  std::string stable;
  for (size_t at = 0; at < path.size();) {
    size_t end = at;
    bool digits = false;
    while (end < path.size() && IsHex(path[end])) digits = digits || (path[end] <= '9'), ++end;
    if (end - at >= kLongRun && digits) {
      stable += '*';
    } else {
      end = std::max(end, at + 1);
      stable += path.substr(at, end - at);
    }
    at = end;
  }
  return stable;
}

// Addresses that stand for one resource: in every load of the page at most one of them, and not always the
// same.
class ChangingAddresses {
 public:
  explicit ChangingAddresses(const Recording& recording) {
    for (const Page& page : recording.pages) {
      std::map<std::string, std::set<std::string>> ofLoad;
      for (size_t index = page.document + 1; index < page.requests.size(); ++index) {
        const Request& request = page.requests[index];
        if (request.method == "GET") ofLoad[StableAddress(request.url)].insert(request.url);
      }
      for (auto& [stable, urls] : ofLoad) {
        if (urls.size() > 1) ambiguous_.insert(stable);
        urls_[stable].merge(urls);
      }
    }
  }

  // All addresses of the resource; nothing when it has one only, or when they cannot be told apart.
  const std::set<std::string>* Of(const std::string& url) const {
    const std::string stable = StableAddress(url);
    const auto found = urls_.find(stable);
    if (found == urls_.end() || found->second.size() < 2 || ambiguous_.contains(stable)) return nullptr;
    return &found->second;
  }

 private:
  std::map<std::string, std::set<std::string>> urls_;  // by what they have in common
  std::set<std::string> ambiguous_;
};

bool IsStatic(const Request& request) {
  using Kind = host::ResourceKind;
  return request.kind == Kind::Stylesheet || request.kind == Kind::Script || request.kind == Kind::Font ||
         request.kind == Kind::Image || request.kind == Kind::Media;
}

bool ForbidsStoring(const Request& request) {
  return http::ReadResponseCacheControl(request.responseHeaders).noStore;
}

std::optional<ChangeKind> KindFor(host::NotServed why, const Request& request) {
  using host::NotServed;
  switch (why) {
    case NotServed::NoDeclaredLength:
      if (request.bodyBytes > 0) return ChangeKind::DeclareLength;
      return std::nullopt;
    case NotServed::Html:
      if (request.kind != host::ResourceKind::Document) return ChangeKind::SendAsData;
      return std::nullopt;
    case NotServed::StatusNot200:
      if (IsRedirect(request)) return ChangeKind::SkipRedirect;
      return std::nullopt;
    case NotServed::OverSizeLimit:
      return ChangeKind::RaiseSizeLimit;
    case NotServed::NotKnownYet:
    case NotServed::SeenTooSeldom:
    case NotServed::Volatile:
      return ChangeKind::KeepAddress;
    default:
      return std::nullopt;
  }
}

// A change while its resources are collected.
struct Suggestion {
  std::set<std::string> urls;
  std::set<std::string> resources;
  int64_t waitUs = 0;  // of all requests that it concerns
};

class Suggestions {
 public:
  explicit Suggestions(const Recording& recording) : addresses_(recording) {}

  void Add(const Request& request, const RequestRow& row, bool isResource) {
    const int64_t waitUs = row.endUs - row.wantedUs;
    if (row.source == Source::Network) {
      const auto kind = isResource            ? KindFor(row.why, request)
                        : IsRedirect(request) ? std::optional(ChangeKind::SkipRedirect)
                                              : std::nullopt;
      if (kind) AddTo(*kind, request, waitUs);
    }
    if (isResource && row.source != Source::DiskCache && IsStatic(request) && request.method == "GET" &&
        ForbidsStoring(request) && addresses_.Of(request.url) == nullptr) {
      AddTo(ChangeKind::AllowStoring, request, waitUs);
    }
  }

  void AddPreloaded(const Request& request, int64_t savedUs) { preloadedUs_[request.url] += savedUs; }

  std::vector<Change> Best() const {
    std::vector<std::pair<int64_t, Change>> changes;
    for (const auto& [place, suggestion] : suggestions_) {
      changes.emplace_back(suggestion.waitUs,
                           Change{.kind = place.first,
                                  .server = place.second,
                                  .count = suggestion.resources.size(),
                                  .urls = {suggestion.urls.begin(), suggestion.urls.end()}});
    }
    std::vector<Change> best = MostOf(std::move(changes), kMostChanges);
    std::vector<std::pair<int64_t, Change>> preloads;
    for (const auto& [url, savedUs] : preloadedUs_) {
      preloads.emplace_back(
          savedUs, Change{.kind = ChangeKind::LeaveOut, .server = ServerOf(url), .count = 1, .urls = {url}});
    }
    for (Change& change : MostOf(std::move(preloads), kMostPreloads)) best.push_back(std::move(change));
    return best;
  }

 private:
  void AddTo(ChangeKind kind, const Request& request, int64_t waitUs) {
    const std::set<std::string>* const changing =
        kind == ChangeKind::KeepAddress ? addresses_.Of(request.url) : nullptr;
    if (kind == ChangeKind::KeepAddress && changing == nullptr) return;
    Suggestion& suggestion = suggestions_[{kind, ServerOf(request.url)}];
    suggestion.waitUs += waitUs;
    if (changing != nullptr) {
      suggestion.urls.insert(changing->begin(), changing->end());
      suggestion.resources.insert(StableAddress(request.url));
    } else {
      suggestion.urls.insert(request.url);
      suggestion.resources.insert(request.url);
    }
  }

  static std::vector<Change> MostOf(std::vector<std::pair<int64_t, Change>> changes, size_t most) {
    std::stable_sort(changes.begin(), changes.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    std::vector<Change> best;
    for (auto& [waitUs, change] : changes) {
      if (waitUs > 0 && best.size() < most) best.push_back(std::move(change));
    }
    return best;
  }

  const ChangingAddresses addresses_;
  std::map<std::pair<ChangeKind, std::string>, Suggestion> suggestions_;  // by kind and server
  std::map<std::string, int64_t> preloadedUs_;                            // by URL
};

// Drops the headers of that name from a response's block.
void RemoveHeader(std::string& block, std::string_view name) {
  const size_t begin = block.find('\0') + 1;
  std::string kept = block.substr(0, begin);
  for (size_t at = begin; at < block.size() && block[at] != '\0';) {
    const size_t end = block.find('\0', at) + 1;
    const std::string line = block.substr(at, end - at);
    std::string head = line.substr(0, line.find(':'));
    std::transform(head.begin(), head.end(), head.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (head != name) kept += line;
    at = end;
  }
  block = kept + '\0';
}

void DeclareLength(Request& request, int64_t length) {
  RemoveHeader(request.responseHeaders, "transfer-encoding");
  RemoveHeader(request.responseHeaders, "content-length");
  request.declaredLength = length;
  if (length < 0) return;
  request.responseHeaders.pop_back();  // the NUL after the last header
  request.responseHeaders += "Content-Length: " + std::to_string(length) + '\0' + '\0';
}

void SendAsData(Request& request) {
  constexpr std::string_view kHtml = "text/html", kOther = "text/data";
  for (size_t at = 0; (at = request.responseHeaders.find(kHtml, at)) != std::string::npos;) {
    request.responseHeaders.replace(at, kHtml.size(), kOther);
  }
}

void ApplyToRequest(ChangeKind kind, Request& request) {
  constexpr double kYearMs = 365 * 86400e3;
  switch (kind) {
    case ChangeKind::DeclareLength:
      if (request.bodyBytes > 0) DeclareLength(request, request.bodyBytes);
      break;
    case ChangeKind::SendAsData:
      SendAsData(request);
      break;
    case ChangeKind::SkipRedirect:
    case ChangeKind::AllowStoring:
      request.freshForMs = kYearMs;
      break;
    case ChangeKind::KeepAddress:
      request.url = StableAddress(request.url);
      break;
    case ChangeKind::LeaveOut:
      DeclareLength(request, -1);
      break;
    case ChangeKind::RaiseSizeLimit:
      break;
  }
}

int64_t LargestBody(const Change& change, const Recording& recording) {
  int64_t most = 0;
  for (const Page& page : recording.pages) {
    for (const Request& request : page.requests) {
      if (std::binary_search(change.urls.begin(), change.urls.end(), request.url)) {
        most = std::max({most, request.bodyBytes, request.declaredLength});
      }
    }
  }
  return std::min<int64_t>(most, kiv::property::kCacheSizeLimit.most);
}

}  // namespace

std::vector<Change> SuggestChanges(const Recording& recording, const RecordingResult& result) {
  Suggestions suggestions(recording);
  for (const Visit& visit : result.visits) {
    if (!visit.repeat) continue;
    const Page& page = recording.pages.at(visit.page);
    std::map<size_t, int64_t> offUs;
    for (const RequestRow& row : Of(visit, Way::Off).requests) offUs[row.request] = row.endUs - row.wantedUs;
    for (const RequestRow& row : Of(visit, Way::Plugin).requests) {
      const Request& request = page.requests.at(row.request);
      suggestions.Add(request, row, row.request > page.document);
      if (row.source != Source::Served && row.source != Source::Joined) continue;
      suggestions.AddPreloaded(request, offUs[row.request] - (row.endUs - row.wantedUs));
    }
  }
  std::vector<Change> changes = suggestions.Best();
  for (Change& change : changes) {
    if (change.kind != ChangeKind::RaiseSizeLimit) continue;
    change.setting = std::string(kiv::property::kCacheSizeLimit.name) + "=" +
                     std::to_string(LargestBody(change, recording));
  }
  return changes;
}

void Apply(const Change& change, Recording& recording, ReplayOptions& options) {
  if (change.kind == ChangeKind::RaiseSizeLimit) {
    options.properties[kiv::property::kCacheSizeLimit.name] =
        change.setting.substr(change.setting.find('=') + 1);
    return;
  }
  const auto isMeant = [&change](const std::string& url) {
    return std::binary_search(change.urls.begin(), change.urls.end(), url);
  };
  for (Page& page : recording.pages) {
    for (size_t index = 0; index < page.requests.size(); ++index) {
      Request& request = page.requests[index];
      const bool isPageItself = index <= page.document;  // whose address tells the visits apart
      if (change.kind == ChangeKind::KeepAddress && isPageItself) continue;
      if (isMeant(request.url)) ApplyToRequest(change.kind, request);
      if (change.kind != ChangeKind::KeepAddress) continue;
      for (std::string* const url : {&request.initiatorUrl, &request.referer}) {
        if (isMeant(*url)) *url = StableAddress(*url);
      }
    }
  }
}

}  // namespace replay
