#include "replay/recording/har_request.h"

#include <algorithm>
#include <initializer_list>

#include "host/http/freshness.h"
#include "net/http/header_text.h"
#include "net/http/http_request_headers.h"
#include "net/http/http_response_headers.h"
#include "url/gurl.h"

namespace replay {
namespace {

using host::ResourceKind;

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == 0x7f;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), net::ToLowerAscii);
  return lower;
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

// Whether a header may have this name. No name can be read as several headers.
bool IsToken(std::string_view text) {
  constexpr std::string_view kSeparators = "()<>@,;:\\\"/[]?={}";
  return !text.empty() && std::all_of(text.begin(), text.end(), [=](char c) {
    return c > ' ' && c < 0x7f && kSeparators.find(c) == std::string_view::npos;
  });
}

std::string_view FindHeader(const std::vector<HarHeader>& headers, std::string_view name) {
  for (const HarHeader& header : headers) {
    if (net::EqualsIgnoringCase(header.name, name)) return net::TrimBlanks(header.value);
  }
  return {};
}

// The scheme as it is written; empty if there is none.
std::string_view SchemeOf(std::string_view url) {
  const size_t end =
      url.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
  return end == std::string_view::npos || url[end] != ':' ? std::string_view() : url.substr(0, end);
}

// Browsers never send a fragment, but some recorders keep it on some rows.
std::string_view WithoutFragment(std::string_view url) {
  return url.substr(0, url.find('#'));
}

const char* WhyNotUrl(std::string_view url) {
  if (url.empty()) return "no URL";
  const std::string scheme = Lower(SchemeOf(url).substr(0, 16));
  if (scheme.empty()) return "no scheme in URL";
  if (scheme == "data") return "data: URL";
  if (scheme == "about") return "about: URL";
  if (scheme == "blob") return "blob: URL";
  if (scheme == "ws" || scheme == "wss") return "websocket";
  if (scheme != "http" && scheme != "https") return "neither http nor https";
  if (std::any_of(url.begin(), url.end(), IsControl)) return "control character in URL";
  return GURL(std::string(url)).host().empty() ? "no host in URL" : nullptr;
}

bool SaneTiming(std::optional<double> ms) {
  return ms && *ms >= 0 && *ms <= kLongestTimingMs;
}

double TimingOrZero(std::optional<double> ms) {
  return SaneTiming(ms) ? *ms : 0;
}

bool IsH2Only(const HarHeader& header) {
  return header.name.starts_with(':');
}

// Parses "h2", "spdy", "HTTP/2.0", "http/2.0+quic/46", "h3-29" or "1.1". Returns nothing for "unknown", "TCP"
// and other texts.
std::optional<Protocol> ParseProtocol(std::string_view text) {
  const std::string name = Lower(text.substr(0, 32));
  const auto startsLike = [&name](std::initializer_list<std::string_view> spellings) {
    return std::any_of(spellings.begin(), spellings.end(),
                       [&name](std::string_view spelling) { return name.starts_with(spelling); });
  };
  if (name.find("quic") != std::string::npos || startsLike({"h3", "http/3"})) return Protocol::Http3;
  if (startsLike({"h2", "http/2", "spdy"})) return Protocol::Http2;
  if (startsLike({"http/1", "http/0", "h1", "1.1", "1.0"})) return Protocol::Http1;
  return std::nullopt;
}

// Only recorders that saw HTTP/2 or later write pseudo headers, whatever version they name.
Protocol ProtocolOf(const HarEntry& entry) {
  const auto& headers = entry.requestHeaders;
  const bool atLeastH2 = std::any_of(headers.begin(), headers.end(), IsH2Only);
  for (const std::string_view text : {entry.protocol, entry.responseVersion, entry.requestVersion}) {
    const std::optional<Protocol> protocol = ParseProtocol(text);
    if (protocol && !(atLeastH2 && *protocol == Protocol::Http1)) return *protocol;
  }
  return atLeastH2 ? Protocol::Http2 : Protocol::Http1;
}

// The type that the recorder names, or else that of the header.
std::string MimeTypeOf(const HarEntry& entry) {
  std::string_view type = entry.mimeType;
  if (type.find('/') == std::string_view::npos) type = FindHeader(entry.responseHeaders, "content-type");
  constexpr std::string_view kHeaderName = "content-type:";  // written into the value by some
  if (net::EqualsIgnoringCase(type.substr(0, kHeaderName.size()), kHeaderName)) {
    type.remove_prefix(kHeaderName.size());
  }
  type = net::TrimBlanks(type.substr(0, type.find_first_of(";,")));
  if (type.find('/') == std::string_view::npos || std::any_of(type.begin(), type.end(), IsControl)) return {};
  return Lower(type);
}

// HTML is a document only if the browser asked for one, because redirects, errors and empty answers to other
// requests are often HTML, and scripts fetch parts of pages.
bool IsDocument(const HarEntry& entry, int status) {
  if (status < 200 || status >= 300 || status == 204) return false;
  const std::string_view accepted = FindHeader(entry.requestHeaders, "accept");
  return accepted.empty() || accepted.find("html") != std::string_view::npos;
}

ResourceKind KindOf(const HarEntry& entry, const Request& request) {
  for (const std::string_view name :
       {entry.resourceType, FindHeader(entry.requestHeaders, "sec-fetch-dest")}) {
    const ResourceKind kind = host::KindByDestination(name);
    if (kind != ResourceKind::Other) return kind;
  }
  const ResourceKind byType = host::KindByMimeType(request.mimeType);
  if (byType == ResourceKind::Document && !IsDocument(entry, request.status)) {
    return request.status == 200 ? ResourceKind::Data : host::KindBySuffix(request.url);
  }
  if (byType != ResourceKind::Other) return byType;
  return host::KindBySuffix(request.url);
}

bool IsLowPriority(std::string_view priority) {
  return net::EqualsIgnoringCase(priority, "low") || net::EqualsIgnoringCase(priority, "lowest") ||
         net::EqualsIgnoringCase(priority, "verylow");
}

std::string RequestHeaderText(const std::vector<HarHeader>& headers) {
  net::HttpRequestHeaders set;
  for (const HarHeader& header : headers) {
    if (!IsToken(header.name)) continue;  // pseudo headers among them
    std::string value(header.value);
    std::erase(value, '\0');
    std::replace_if(value.begin(), value.end(), IsControl, ' ');
    std::string before;
    if (set.GetHeader(header.name, &before)) {
      const bool isCookie =
          net::EqualsIgnoringCase(header.name, "cookie");  // HTTP/2 sends its crumbs one by one
      value = before.append(isCookie ? "; " : ", ").append(value);
    }
    set.SetHeader(header.name, net::TrimBlanks(value));
  }
  return set.ToString();
}

// Recorders join the values of equal names with a line feed. Each value becomes a line again.
void AppendResponseHeader(const HarHeader& header, std::string& block) {
  std::string_view rest = header.value;
  while (true) {
    const size_t end = rest.find('\n');
    std::string value(rest.substr(0, end));
    std::erase(value, '\0');
    std::erase(value, '\r');
    block.append(header.name).append(": ").append(net::TrimBlanks(value)).push_back('\0');
    if (end == std::string_view::npos) return;
    rest.remove_prefix(end + 1);
  }
}

std::string ResponseHeaderBlock(int status, std::string_view statusText,
                                const std::vector<HarHeader>& headers) {
  std::string block = "HTTP/1.1 " + std::to_string(status);
  if (!statusText.empty()) block.append(" ").append(statusText);
  std::erase_if(block, IsControl);
  block.push_back('\0');
  for (const HarHeader& header : headers) {
    if (IsToken(header.name)) AppendResponseHeader(header, block);
  }
  block.push_back('\0');
  return block;
}

// The bytes on the wire: the length that the server declared, or else the figures of the recorder, in the
// order of their accuracy. Those of whole transfers include the headers, and the decoded size is the last
// resort.
int64_t BodyBytes(const HarEntry& entry, const Request& request) {
  if (request.method == "HEAD" || request.status < 200 || request.status == 204 || request.status == 304)
    return 0;
  if (request.declaredLength >= 0 && static_cast<double>(request.declaredLength) <= kLargestBodyBytes) {
    return request.declaredLength;
  }
  const double headers = std::max(0.0, entry.headersSize.value_or(0));
  for (const double size :
       {entry.objectSize.value_or(0), entry.transferSize.value_or(0) - headers,
        entry.bytesIn.value_or(0) - headers, entry.bodySize.value_or(0), entry.contentSize.value_or(0)}) {
    if (size > 0 && size <= kLargestBodyBytes) return static_cast<int64_t>(size);
  }
  return 0;
}

}  // namespace

const char* WhyNotReplayable(const HarEntry& entry) {
  if (const char* why = WhyNotUrl(entry.url)) return why;
  if (net::EqualsIgnoringCase(entry.resourceType, "websocket")) return "websocket";
  if (!entry.method.empty() && !IsToken(entry.method)) return "no valid method";
  if (net::EqualsIgnoringCase(entry.method, "connect")) return "tunnel of a proxy";
  const bool answered = !entry.responseHeaders.empty() || entry.bodySize.value_or(0) > 0;
  if (!entry.hasResponse || (!entry.status && !answered)) return "no response";
  if (!entry.status) return nullptr;
  if (*entry.status <= 0) return "status 0 or less";
  if (*entry.status < 100 || *entry.status > 999) return "no valid status";
  return *entry.status == 101 ? "websocket" : nullptr;
}

Request MakeRequest(const HarEntry& entry, std::optional<double> startedMs) {
  Request request;
  request.url = WithoutFragment(entry.url);
  request.method = entry.method.empty() ? "GET" : Upper(entry.method);
  request.dnsMs = TimingOrZero(entry.dnsMs);
  request.connectMs = TimingOrZero(entry.connectMs);
  request.sslMs = std::min(TimingOrZero(entry.sslMs), request.connectMs);
  request.waitMs = TimingOrZero(entry.waitMs);
  request.receiveMs = TimingOrZero(entry.receiveMs);
  request.status = static_cast<int>(entry.status.value_or(200));
  request.protocol = ProtocolOf(entry);
  request.mimeType = MimeTypeOf(entry);
  request.kind = KindOf(entry, request);
  request.lowPriority = IsLowPriority(entry.priority);
  request.initiatorUrl = WithoutFragment(entry.initiatorUrl);
  if (request.initiatorUrl == request.url) request.initiatorUrl.clear();
  request.referer = WithoutFragment(FindHeader(entry.requestHeaders, "referer"));
  request.requestHeaders = RequestHeaderText(entry.requestHeaders);
  request.responseHeaders = ResponseHeaderBlock(request.status, entry.statusText, entry.responseHeaders);
  request.declaredLength = net::HttpResponseHeaders(request.responseHeaders).GetContentLength();
  request.bodyBytes = BodyBytes(entry, request);
  if (startedMs) *startedMs += DurationMs(entry);
  request.freshForMs = http::FreshForMs(request.method, request.status, request.responseHeaders, startedMs);
  return request;
}

double QueuedMs(const HarEntry& entry) {
  return TimingOrZero(entry.queuedMs);
}

double DurationMs(const HarEntry& entry) {
  if (SaneTiming(entry.timeMs) && *entry.timeMs > 0) return *entry.timeMs;
  double sum = 0;
  for (const auto& phase :
       {entry.blockedMs, entry.dnsMs, entry.connectMs, entry.sendMs, entry.waitMs, entry.receiveMs}) {
    sum += TimingOrZero(phase);
  }
  return sum;
}

}  // namespace replay
