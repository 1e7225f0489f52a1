#include "replay/recording/wrong_format.h"

#include <algorithm>
#include <array>

#include "net/http/header_text.h"

namespace replay {
namespace {

struct Beginning {
  std::string_view bytes;
  const char* what;
};

constexpr const char* kCapture = "it looks like a packet capture; record a HAR in the browser instead";
constexpr const char* kNetlog =
    "it looks like a netlog; export a HAR from the browser's network panel instead";
constexpr const char* kHtml =
    "it looks like an HTML page; save the HAR itself, not the page that shows it or links to it";
constexpr const char* kUtf16 = "it looks like UTF-16 text; convert it to UTF-8";

constexpr std::array<Beginning, 17> kBeginnings = {{
    {std::string_view("PK\x03\x04", 4),
     "it looks like a zip archive; unpack it and name the HAR files that were in it"},
    {std::string_view("7z\xbc\xaf\x27\x1c", 6), "it looks like a 7z archive; unpack it"},
    {std::string_view("\xfd"
                      "7zXZ",
                      5),
     "it looks like xz data; decompress it first, because only gzip and zstd are supported"},
    {std::string_view("BZh", 3),
     "it looks like bzip2 data; decompress it first, because only gzip and zstd are supported"},
    {std::string_view("Rar!", 4), "it looks like a rar archive; unpack it"},
    {std::string_view("\xd4\xc3\xb2\xa1", 4), kCapture},
    {std::string_view("\xa1\xb2\xc3\xd4", 4), kCapture},
    {std::string_view("\x4d\x3c\xb2\xa1", 4), kCapture},
    {std::string_view("\x0a\x0d\x0d\x0a", 4), kCapture},
    {std::string_view("\xff\xfe", 2), kUtf16},
    {std::string_view("\xfe\xff", 2), kUtf16},
    {std::string_view("%PDF", 4), "it looks like a PDF document"},
    {std::string_view("SQLite format 3", 15), "it looks like an SQLite database"},
    {std::string_view("\x89PNG", 4), "it looks like a picture"},
    {std::string_view("\x7f"
                      "ELF",
                      4),
     "it looks like a program"},
    {"{\"constants\":", kNetlog},  // as every browser begins it; it is often cut off at its end
    {std::string_view("\x1f\x8b", 2), "it looks like gzip data that was compressed twice"},
}};

// A key by which another kind of JSON file is recognised.
struct TellingKey {
  std::string_view key;
  const char* what;
};

constexpr const char* kTrace =
    "it looks like a performance trace; export the network panel's log as HAR instead";

constexpr std::array<TellingKey, 13> kTellingKeys = {{
    {"constants", kNetlog},
    {"traceEvents", kTrace},
    {"ph", kTrace},  // of the first event, where the trace is a bare array
    {"lighthouseVersion", "it looks like a Lighthouse report, which does not contain the requests"},
    {"browserScripts",
     "it looks like a result of browsertime; the HAR is in the same folder as browsertime.har"},
    {"pageTimings", "it looks like one page of a HAR; the whole file is needed"},
    {"startedDateTime", "it looks like one entry of a HAR; the whole file is needed"},
    {"entries",
     "it looks like the log of a HAR without the object around it: put {\"log\": before it and } after it"},
    {"statusCode", "it looks like a result of WebPageTest in JSON; export the HAR instead"},
    {"recording", "it looks like JSON lines that kiv_replay wrote; 'kiv_replay merge' reads them"},
    {"charlesVersion", "it looks like a session of Charles; export it as HAR (.har)"},
    {"totalSize", "it looks like a session of Charles; export it as HAR (.har)"},
    {"webSocketDebuggerUrl", "it looks like a list of the browser's debugging targets"},
}};

constexpr std::string_view kBlanks = " \t\r\n";

bool StartsWithIgnoringCase(std::string_view text, std::string_view beginning) {
  return net::EqualsIgnoringCase(text.substr(0, beginning.size()), beginning);
}

// Recognises "callback({": JSON inside a function call.
bool LooksLikeCall(std::string_view text) {
  const size_t end =
      text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_$.");
  return end != 0 && end < text.size() && text[end] == '(';
}

}  // namespace

const char* LooksLikeOtherBytes(std::string_view text) {
  const auto known = std::find_if(kBeginnings.begin(), kBeginnings.end(),
                                  [text](const Beginning& row) { return text.starts_with(row.bytes); });
  if (known != kBeginnings.end()) return known->what;
  constexpr size_t kTarMagicAt = 257;
  if (text.substr(std::min(text.size(), kTarMagicAt)).starts_with("ustar")) {
    return "it looks like a tar archive; unpack it and name the HAR files that were in it";
  }
  if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  if (StartsWithIgnoringCase(text, "<!doctype html") || StartsWithIgnoringCase(text, "<html")) return kHtml;
  if (text.starts_with('<')) return "it looks like XML; export the log as HAR";
  if (LooksLikeCall(text)) {
    return "it looks like JSONP, a HAR inside a function call; remove the function call around the JSON "
           "object";
  }
  return nullptr;
}

const char* LooksLikeOtherJson(const std::vector<std::string>& keys) {
  for (const TellingKey& row : kTellingKeys) {
    if (std::find(keys.begin(), keys.end(), row.key) != keys.end()) return row.what;
  }
  return nullptr;
}

}  // namespace replay
