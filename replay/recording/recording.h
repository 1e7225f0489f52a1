// A recording of page loads as the replay uses it: plain records without anything that cannot be replayed.
// The reader makes them, and nothing changes them afterwards.
#ifndef REPLAY_RECORDING_RECORDING_H_
#define REPLAY_RECORDING_RECORDING_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/resource_kind.h"

namespace replay {

enum class Protocol { Http1, Http2, Http3 };

// One request of a page with its response. Times are milliseconds.
struct Request {
  std::string url;
  std::string method;  // upper case
  double startMs = 0;  // when the browser wanted it, from the start of its page; never negative
  double dnsMs = 0;    // 0 when unknown or reused; `connectMs` includes the TLS part
  double connectMs = 0;
  double sslMs = 0;   // the TLS part of connectMs
  double waitMs = 0;  // from sent to first byte; 0 when unknown
  double receiveMs = 0;
  double endMs = 0;  // when its last byte had arrived, from the start of its page
  int status = 0;
  Protocol protocol = Protocol::Http1;
  host::ResourceKind kind = host::ResourceKind::Other;
  bool lowPriority = false;  // the browser that was recorded fetched it with a low priority
  std::string mimeType;      // without parameters, lower case; may be empty
  std::string
      initiatorUrl;     // empty when unknown; another request's URL otherwise, not necessarily of this page
  std::string referer;  // empty when unknown
  std::string requestHeaders;  // "Name: value" CRLF per header, as net::HttpRequestHeaders::ToString prints
  std::string
      responseHeaders;    // raw block: status line and header lines, each ended by NUL, and one more NUL
  int64_t bodyBytes = 0;  // on the wire, by the most reliable field of the recording
  int64_t declaredLength = -1;  // Content-Length as the network stack reads it; -1 when there is none
  std::optional<double>
      freshForMs;  // how long a cache may use it without asking; absent if it may not be stored
};

// One load of one page. Requests are in the order in which they were wanted; the first one is the navigation.
struct Page {
  std::string id;
  std::string title;
  double firstPaintMs = -1;  // from the start of the page; -1 when unknown
  double onContentLoadMs = -1;
  double onLoadMs = -1;
  std::vector<Request> requests;  // never empty
  size_t document = 0;            // index of the main document, or of the request that takes its place
};

struct Recording {
  std::string name;  // the file's name without folders
  std::string creator;
  std::string browser;
  std::vector<Page> pages;                // in the order in which they were loaded
  std::map<std::string, size_t> skipped;  // rows that cannot be replayed, by reason
  size_t fromCache = 0;                   // requests that the browser's own cache answered while it recorded
};

}  // namespace replay

#endif  // REPLAY_RECORDING_RECORDING_H_
