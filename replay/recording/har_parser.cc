#include "replay/recording/har_parser.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

#include "replay/recording/wrong_format.h"

namespace replay {
namespace {

using simdjson::ondemand::json_type;
using JsonKey = simdjson::ondemand::raw_json_string;
using JsonValue = simdjson::ondemand::value;

static_assert(kJsonPadding >= simdjson::SIMDJSON_PADDING);

constexpr size_t kMostHeaders =
    1000;  // per message; real messages have far fewer, and each header is looked up by name
constexpr int kMostStackParents = 100;  // followed from a script's stack to the one that scheduled it

// --- Values of any type. Only invalid JSON throws; the iteration skips values that are not needed.

// The text of a string without its quotes. The parser copies it only if it contains escapes. An escape that
// has no text, such as half a surrogate pair, stays as it is.
std::string_view Text(JsonValue value) {
  std::string_view token = value.raw_json_token();
  if (!token.starts_with('"')) return {};
  token = token.substr(1, token.rfind('"') - 1);
  if (token.find('\\') == std::string_view::npos) return token;
  std::string_view unescaped;
  return value.get_string().get(unescaped) == simdjson::SUCCESS ? unescaped : token;
}

// Thrown for a number that cannot be used: "nan", "inf", or a number that a double cannot represent.
struct NotFinite {
  const char* place;  // in the JSON text
};

// Reads a number that is written as a string, as some recorders do. Returns nothing for other text.
std::optional<double> NumberInText(std::string_view text, const char* place) {
  double number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (stop != text.data() + text.size() || error == std::errc::invalid_argument) return std::nullopt;
  if (error != std::errc() || !std::isfinite(number)) throw NotFinite{place};
  return number;
}

std::optional<double> Number(JsonValue value) {
  const json_type type = value.type();
  const char* const place = value.raw_json_token().data();
  if (type == json_type::string) return NumberInText(Text(value), place);
  if (type == json_type::null && !value.raw_json_token().starts_with("null")) throw NotFinite{place};  // nan
  if (type != json_type::number) return std::nullopt;
  double number = 0;
  if (value.get_double().get(number) != simdjson::SUCCESS || !std::isfinite(number)) throw NotFinite{place};
  return number;
}

// Calls `onField(key, value)` for each field. Returns false if the value is not an object.
template <typename OnField>
bool ForEachField(JsonValue value, const OnField& onField) {
  if (value.type() != json_type::object) return false;
  for (auto field : value.get_object()) onField(field.key().value(), field.value().value());
  return true;
}

// Calls `onElement(value)` for each element until it returns false. Returns false if the value is not an
// array.
template <typename OnElement>
bool ForEachElement(JsonValue value, const OnElement& onElement) {
  if (value.type() != json_type::array) return false;
  for (auto element : value.get_array()) {
    if (!onElement(element.value())) break;
  }
  return true;
}

// --- The parts of an entry.

void ReadHeaders(JsonValue value, std::vector<HarHeader>& headers) {
  ForEachElement(value, [&](JsonValue element) {
    HarHeader header;
    ForEachField(element, [&](JsonKey key, JsonValue field) {
      if (key == "name") header.name = Text(field);
      if (key == "value") header.value = Text(field);
    });
    if (!header.name.empty()) headers.push_back(header);
    return headers.size() < kMostHeaders;
  });
}

bool IsWebUrl(std::string_view text) {
  return text.starts_with("http://") || text.starts_with("https://");
}

// The URL of the innermost frame that has one, else the URL of the stack that scheduled this one.
std::string_view StackUrl(JsonValue stack, int parents = 0) {
  std::string_view own;
  std::string_view parent;
  ForEachField(stack, [&](JsonKey key, JsonValue field) {
    if (key == "parent" && parents < kMostStackParents) parent = StackUrl(field, parents + 1);
    if (key != "callFrames") return;
    ForEachElement(field, [&](JsonValue frame) {
      ForEachField(frame, [&](JsonKey frameKey, JsonValue frameField) {
        if (frameKey == "url" && own.empty()) own = Text(frameField);
      });
      if (!IsWebUrl(own)) own = {};
      return own.empty();
    });
  });
  return own.empty() ? parent : own;
}

// The value is a URL, or an object that contains a URL or a stack with one.
std::string_view InitiatorUrl(JsonValue value) {
  std::string_view url = Text(value);
  std::string_view stackUrl;
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "url") url = Text(field);
    if (key == "stack") stackUrl = StackUrl(field);
  });
  return IsWebUrl(url) ? url : stackUrl;
}

void ReadRequest(JsonValue value, HarEntry& entry) {
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "method") entry.method = Text(field);
    if (key == "url") entry.url = Text(field);
    if (key == "httpVersion") entry.requestVersion = Text(field);
    if (key == "headers") ReadHeaders(field, entry.requestHeaders);
  });
}

void ReadContent(JsonValue value, HarEntry& entry) {
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "size") entry.contentSize = Number(field);
    if (key == "mimeType") entry.mimeType = Text(field);
  });
}

void ReadResponse(JsonValue value, HarEntry& entry) {
  entry.hasResponse = ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "status") entry.status = Number(field);
    if (key == "statusText") entry.statusText = Text(field);
    if (key == "httpVersion") entry.responseVersion = Text(field);
    if (key == "headers") ReadHeaders(field, entry.responseHeaders);
    if (key == "content") ReadContent(field, entry);
    if (key == "headersSize") entry.headersSize = Number(field);
    if (key == "bodySize") entry.bodySize = Number(field);
    if (key == "_transferSize") entry.transferSize = Number(field);
  });
}

void ReadTimings(JsonValue value, HarEntry& entry) {
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "_queued") entry.queuedMs = Number(field);
    if (key == "ssl") entry.sslMs = Number(field);
    if (key == "blocked") entry.blockedMs = Number(field);
    if (key == "dns") entry.dnsMs = Number(field);
    if (key == "connect") entry.connectMs = Number(field);
    if (key == "send") entry.sendMs = Number(field);
    if (key == "wait") entry.waitMs = Number(field);
    if (key == "receive") entry.receiveMs = Number(field);
  });
}

// Firefox describes the cache entry if the response came from the cache.
bool NamesCacheEntry(JsonValue value) {
  bool names = false;
  ForEachField(value, [&names](JsonKey key, JsonValue field) {
    if (key == "afterRequest" && field.type() == json_type::object) names = true;
  });
  return names;
}

void ReadEntry(JsonValue value, HarEntry& entry) {
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "request") ReadRequest(field, entry);
    if (key == "response") ReadResponse(field, entry);
    if (key == "timings") ReadTimings(field, entry);
    if (key == "time") entry.timeMs = Number(field);
    if (key == "pageref") entry.pageref = Text(field);
    if (key == "startedDateTime") entry.startedDateTime = Text(field);
    if (key == "_resourceType") entry.resourceType = Text(field);
    if (key == "_initiator") entry.initiatorUrl = InitiatorUrl(field);
    if (key == "_initialPriority") entry.priority = Text(field);
    if (key == "_priority" && entry.priority.empty()) entry.priority = Text(field);
    if (key == "_protocol") entry.protocol = Text(field);
    if (key == "_fromCache" && !Text(field).empty()) entry.fromCache = true;            // "memory", "disk"
    if (key == "_fetchType" && Text(field).ends_with("Cache")) entry.fromCache = true;  // Safari's
    if (key == "cache" && NamesCacheEntry(field)) entry.fromCache = true;
    if (key == "_objectSize") entry.objectSize = Number(field);
    if (key == "_bytesIn") entry.bytesIn = Number(field);
  });
}

// --- The rest of the log.

std::string ReadProgram(JsonValue value) {
  std::string_view name, version;
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "name") name = Text(field);
    if (key == "version") version = Text(field);
  });
  std::string program(name);
  if (!name.empty() && !version.empty()) program += ' ';
  return program.append(version);
}

// The names of the first paint in a page or in its timings. The first one in this list that has a time
// counts.
constexpr std::array<std::string_view, 5> kPaintNames = {"_firstPaint", "_firstContentfulPaint",
                                                         "_startRender", "_render", "_firstVisualChange"};

// The first paint of a page as far as it was read, and the place of its name in the list.
struct FirstPaint {
  size_t place = kPaintNames.size();
  std::optional<double> ms;

  void Read(JsonKey key, JsonValue field) {
    for (size_t better = 0; better < place; ++better) {
      if (key != kPaintNames[better]) continue;
      const std::optional<double> value = Number(field);
      if (!value || *value <= 0) return;
      place = better;
      ms = value;
    }
  }
};

HarPage ReadPage(JsonValue value) {
  HarPage page;
  FirstPaint paint;
  std::optional<double> contentLoadedMs;  // some recorders write it only outside of the timings
  ForEachField(value, [&](JsonKey key, JsonValue field) {
    if (key == "id") page.id = Text(field);
    if (key == "title") page.title = Text(field);
    if (key == "startedDateTime") page.startedDateTime = Text(field);
    if (key == "_domContentLoadedEventStart") contentLoadedMs = Number(field);
    paint.Read(key, field);
    if (key != "pageTimings") return;
    ForEachField(field, [&](JsonKey timing, JsonValue ms) {
      if (timing == "onContentLoad") page.onContentLoadMs = Number(ms);
      if (timing == "onLoad") page.onLoadMs = Number(ms);
      paint.Read(timing, ms);
    });
  });
  page.firstPaintMs = paint.ms;
  if (page.onContentLoadMs.value_or(0) <= 0) page.onContentLoadMs = contentLoadedMs;
  return page;
}

void ReadPages(JsonValue value, std::vector<HarPage>& pages) {
  ForEachElement(value, [&](JsonValue element) {
    if (element.type() == json_type::object) pages.push_back(ReadPage(element));
    return true;
  });
}

// Returns false if the value is not an array. One record is reused for all entries, so that its vectors keep
// their memory.
bool ReadEntries(JsonValue value, const std::function<void(const HarEntry&)>& onEntry) {
  HarEntry entry;
  return ForEachElement(value, [&](JsonValue element) {
    if (element.type() != json_type::object) return true;
    std::vector<HarHeader> requestHeaders = std::move(entry.requestHeaders);
    std::vector<HarHeader> responseHeaders = std::move(entry.responseHeaders);
    requestHeaders.clear();
    responseHeaders.clear();
    entry = {.requestHeaders = std::move(requestHeaders), .responseHeaders = std::move(responseHeaders)};
    ReadEntry(element, entry);
    onEntry(entry);
    return true;
  });
}

// --- Errors.

[[noreturn]] void Fail(const std::string& name, const std::string& what) {
  throw std::runtime_error(name + ": " + what);
}

size_t FirstInvalidUtf8(std::string_view text) {
  size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (length > text.size() - at || (length > 1 && !simdjson::validate_utf8(text.substr(at, length)))) break;
    at += length;
  }
  return at;
}

size_t FirstControlInString(std::string_view json) {
  bool inString = false;
  for (size_t at = 0; at < json.size(); ++at) {
    if (json[at] == '"') inString = !inString;
    if (!inString) continue;
    if (static_cast<unsigned char>(json[at]) < ' ') return at;
    if (json[at] == '\\') ++at;
  }
  return json.size();
}

// The first stage of the parser says what is wrong with the text, but not where.
size_t FirstStageFault(simdjson::error_code error, std::string_view json) {
  if (error == simdjson::UTF8_ERROR) return FirstInvalidUtf8(json);
  if (error == simdjson::UNESCAPED_CHARS) return FirstControlInString(json);
  return json.size();
}

const char* Describe(simdjson::error_code error) {
  switch (error) {
    case simdjson::EMPTY:
      return "the file is empty";
    case simdjson::UTF8_ERROR:
      return "not UTF-8";
    case simdjson::UNESCAPED_CHARS:
      return "a string contains a control character";
    case simdjson::UNCLOSED_STRING:
      return "the file ends inside a string";
    case simdjson::CAPACITY:
      return "the file is too large: more than 4 GB";
    case simdjson::MEMALLOC:
      return "there is not enough memory to read the file";
    case simdjson::INCOMPLETE_ARRAY_OR_OBJECT:
      return "the file ends before its objects and arrays are closed";
    case simdjson::TRAILING_CONTENT:
      return "there is more text after the end of the JSON document";
    default:
      return "not JSON";
  }
}

[[noreturn]] void FailAt(const std::string& name, const char* what, std::string_view json, size_t offset) {
  const std::string_view before = json.substr(0, std::min(offset, json.size()));
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const size_t lineStart = before.rfind('\n') + 1;  // 0 if there is none
  Fail(name, "line " + std::to_string(line) + ", column " + std::to_string(before.size() - lineStart + 1) +
                 " (byte " + std::to_string(before.size()) + "): " + what);
}

// The position of the iteration, or the end of the text if the iteration is complete. The parser notices an
// unclosed object or array at its beginning, but what is missing is missing at the end.
size_t SecondStageFault(simdjson::error_code error, simdjson::ondemand::document& document,
                        std::string_view json) {
  const char* location = nullptr;
  if (error == simdjson::INCOMPLETE_ARRAY_OR_OBJECT) return json.size();
  if (document.current_location().get(location) != simdjson::SUCCESS) return json.size();
  if (location < json.data() || location > json.data() + json.size()) return json.size();
  return static_cast<size_t>(location - json.data());
}

[[noreturn]] void FailNoHar(const std::string& name, const std::string& what) {
  Fail(name, "not a HAR file: " + what);
}

constexpr size_t kMostKeysKept =
    100;  // of an object that is not a HAR; they only serve to recognise its format

// A key without its quotes, as it is in the file.
std::string KeyText(JsonKey key) {
  const char* end = key.raw();
  while (*end != '"') end += *end == '\\' ? 2 : 1;  // the first stage has checked that it is closed
  return {key.raw(), end};
}

// The keys of an object.
std::vector<std::string> KeysOf(JsonValue value) {
  std::vector<std::string> keys;
  if (value.type() != json_type::object) return keys;
  for (auto field : value.get_object()) {
    if (keys.size() == kMostKeysKept) break;
    keys.push_back(KeyText(field.key().value()));
  }
  return keys;
}

// Fails for a document that is not an object and therefore not a HAR.
[[noreturn]] void FailOtherDocument(simdjson::ondemand::document& document, const std::string& name) {
  if (document.type() != json_type::array) FailNoHar(name, "the JSON document is not an object");
  std::vector<std::string> keys;
  for (auto element : document.get_array()) {
    keys = KeysOf(element.value());
    break;
  }
  const char* const other = LooksLikeOtherJson(keys);
  FailNoHar(name, other != nullptr ? other : "the JSON document is not an object");
}

HarLog ReadDocument(simdjson::ondemand::document& document, const std::string& name,
                    const std::function<void(const HarEntry&)>& onEntry) {
  HarLog log;
  bool logFound = false;
  bool entriesFound = false;
  if (document.type() != json_type::object) FailOtherDocument(document, name);
  std::vector<std::string> otherKeys;
  for (auto rootField : document.get_object()) {
    if (rootField.key().value() != "log") {
      if (otherKeys.size() < kMostKeysKept) otherKeys.push_back(KeyText(rootField.key().value()));
      continue;
    }
    logFound = true;
    const bool isObject = ForEachField(rootField.value().value(), [&](JsonKey key, JsonValue value) {
      if (key == "creator") log.creator = ReadProgram(value);
      if (key == "browser") log.browser = ReadProgram(value);
      if (key == "pages") ReadPages(value, log.pages);
      if (key != "entries") return;
      entriesFound = true;
      if (!ReadEntries(value, onEntry)) FailNoHar(name, "log.entries is not an array");
    });
    if (!isObject) FailNoHar(name, "log is not an object");
  }
  if (!logFound) {
    const char* const other = LooksLikeOtherJson(otherKeys);
    FailNoHar(name, other != nullptr ? other : "log is missing");
  }
  if (!entriesFound) FailNoHar(name, "log.entries is missing");
  return log;
}

}  // namespace

HarLog ParseHar(std::string_view json, const std::string& name,
                const std::function<void(const HarEntry&)>& onEntry) {
  if (const char* const other = LooksLikeOtherBytes(json)) FailNoHar(name, other);
  const std::string_view whole = json;  // positions in errors include the byte order mark
  if (json.starts_with("\xef\xbb\xbf")) json.remove_prefix(3);
  simdjson::ondemand::parser parser;
  simdjson::ondemand::document document;
  const simdjson::padded_string_view padded(json, json.size() + kJsonPadding);
  if (const auto error = parser.iterate(padded).get(document)) {
    FailAt(name, Describe(error), whole, whole.size() - json.size() + FirstStageFault(error, json));
  }
  try {
    HarLog log = ReadDocument(document, name, onEntry);
    const char* more = nullptr;
    if (document.current_location().get(more) == simdjson::SUCCESS) {
      throw simdjson::simdjson_error(simdjson::TRAILING_CONTENT);
    }
    return log;
  } catch (const simdjson::simdjson_error& fault) {
    FailAt(name, Describe(fault.error()), whole, SecondStageFault(fault.error(), document, whole));
  } catch (const NotFinite& number) {
    FailAt(name, "not a finite number", whole, static_cast<size_t>(number.place - whole.data()));
  }
}

}  // namespace replay
