// Reads from HAR text the few fields that a replay needs, as they are in the file: they are not checked, and
// each of them may be absent. It is one forward pass that skips bodies, cookies and everything else. Any
// thread.
#ifndef REPLAY_RECORDING_HAR_PARSER_H_
#define REPLAY_RECORDING_HAR_PARSER_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace replay {

struct HarHeader {
  std::string_view name;
  std::string_view value;
};

// A row. A text is empty, and a number is absent, if the file has no such field or one of another type. The
// views are valid during the call that receives the entry.
struct HarEntry {
  std::string_view pageref;
  std::string_view startedDateTime;
  std::string_view resourceType;  // the recorder's own word, "_resourceType"
  std::string_view initiatorUrl;
  std::string_view priority;  // when it was asked for: "_initialPriority", else "_priority"
  bool fromCache = false;     // the recorder says that the browser's own cache answered
  std::optional<double> timeMs;
  std::optional<double> queuedMs, blockedMs, dnsMs, connectMs, sslMs, sendMs, waitMs, receiveMs;

  std::string_view method;
  std::string_view url;
  std::vector<HarHeader> requestHeaders;

  bool hasResponse = false;
  std::optional<double> status;
  std::string_view statusText;
  std::string_view mimeType;
  std::vector<HarHeader> responseHeaders;

  std::string_view protocol;  // "_protocol"
  std::string_view requestVersion;
  std::string_view responseVersion;

  std::optional<double> objectSize;    // "_objectSize": the body on the wire
  std::optional<double> transferSize;  // "_transferSize": headers and body
  std::optional<double> bytesIn;       // "_bytesIn": the same
  std::optional<double> headersSize;
  std::optional<double> bodySize;
  std::optional<double> contentSize;  // decoded
};

struct HarPage {
  std::string id;
  std::string title;
  std::string startedDateTime;
  std::optional<double> firstPaintMs;  // from startedDateTime; by the name that recorders agree on most
  std::optional<double> onContentLoadMs;
  std::optional<double> onLoadMs;
};

struct HarLog {
  std::string creator;  // name and version
  std::string browser;
  std::vector<HarPage> pages;
};

// Calls `onEntry` for each element of log.entries that is an object, in file order, and returns the rest of
// the log. Throws std::runtime_error with one line that starts with `name` and names the place if `json` is
// not one complete JSON document or has no log.entries; `onEntry` may have been called before. `json` must
// have kJsonPadding readable bytes of any value after its end.
inline constexpr size_t kJsonPadding = 64;
HarLog ParseHar(std::string_view json, const std::string& name,
                const std::function<void(const HarEntry&)>& onEntry);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_PARSER_H_
