#include "replay/model/beacons.h"

#include <algorithm>

#include "net/http/header_text.h"
#include "url/gurl.h"

namespace replay {
namespace {

constexpr int64_t kLargestPixelBytes = 100;

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), net::ToLowerAscii);
  return lower;
}

// Calls `accepts` with the parts of a text between separators until it returns true. Returns whether it did.
template <typename Accept>
bool AnyPart(std::string_view text, char separator, const Accept& accept) {
  while (true) {
    const size_t end = text.find(separator);
    if (accept(text.substr(0, end))) return true;
    if (end == std::string_view::npos) return false;
    text.remove_prefix(end + 1);
  }
}

// The path of a URL in lower case, without query.
std::string PathOf(const std::string& url) {
  const size_t scheme = url.find("://");
  const size_t path = scheme == std::string::npos ? scheme : url.find_first_of("/?#", scheme + 3);
  if (path == std::string::npos) return {};
  return Lower(std::string_view(url).substr(path, url.find_first_of("?#", path) - path));
}

bool BringsNothing(const Request& request) {
  if (request.status < 200 || request.status > 299) return false;
  if (request.kind == host::ResourceKind::Image) {
    return request.bodyBytes > 0 && request.bodyBytes <= kLargestPixelBytes;
  }
  if (request.kind != host::ResourceKind::Data && request.kind != host::ResourceKind::Other) return false;
  if (request.status == 204 || request.declaredLength == 0) return true;
  return request.method != "GET" && request.bodyBytes <= kLargestPixelBytes;
}

bool MayInitiate(const Request& request) {
  return request.kind == host::ResourceKind::Script || request.kind == host::ResourceKind::Document;
}

}  // namespace

BeaconList ParseBeaconList(std::string_view text) {
  BeaconList list;
  AnyPart(text, '\n', [&list](std::string_view line) {
    const std::string entry = Lower(net::TrimBlanks(line.substr(0, line.find_first_of("#\r"))));
    if (entry.starts_with('/')) {
      list.paths.push_back(entry);
    } else if (entry.find('.') != std::string::npos) {
      list.hosts.insert(entry);
    } else if (!entry.empty()) {
      list.words.insert(entry);
    }
    return false;
  });
  return list;
}

bool IsListed(const BeaconList& list, const std::string& url) {
  const std::string host = Lower(GURL(url).host());
  for (std::string_view domain = host; !domain.empty();) {
    if (list.hosts.contains(domain)) return true;
    const size_t dot = domain.find('.');
    domain.remove_prefix(dot == std::string_view::npos ? domain.size() : dot + 1);
  }
  const std::string path = PathOf(url);
  for (const std::string& start : list.paths) {
    if (path.starts_with(start)) return true;
  }
  if (AnyPart(host, '.', [&list](std::string_view label) { return list.words.contains(label); })) return true;
  return AnyPart(path, '/', [&list](std::string_view segment) {
    return list.words.contains(segment.substr(0, segment.find('.')));
  });
}

std::vector<bool> FindBeacons(const Page& page, const PagePlan& plan, const BeaconList& list) {
  std::vector<bool> beacons(page.requests.size());
  for (size_t index = page.document + 1; index < page.requests.size(); ++index) {
    const Request& request = page.requests[index];
    const size_t parent = plan.requests[index].parent;
    const bool byBeacon = parent != kPageStart && beacons[parent] && MayInitiate(page.requests[parent]);
    beacons[index] = byBeacon || BringsNothing(request) || IsListed(list, request.url);
  }
  return beacons;
}

}  // namespace replay
