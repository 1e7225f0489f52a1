#include "host/resource_kind.h"

#include <array>

#include "net/http/header_text.h"

namespace host {
namespace {

struct KindName {
  std::string_view name;
  ResourceKind kind;
};

// The names in recordings ("_resourceType") and in requests ("Sec-Fetch-Dest").
constexpr std::array<KindName, 17> kKindNames = {{{"document", ResourceKind::Document},
                                                  {"iframe", ResourceKind::Document},
                                                  {"frame", ResourceKind::Document},
                                                  {"stylesheet", ResourceKind::Stylesheet},
                                                  {"style", ResourceKind::Stylesheet},
                                                  {"script", ResourceKind::Script},
                                                  {"worker", ResourceKind::Script},
                                                  {"font", ResourceKind::Font},
                                                  {"image", ResourceKind::Image},
                                                  {"media", ResourceKind::Media},
                                                  {"audio", ResourceKind::Media},
                                                  {"video", ResourceKind::Media},
                                                  {"texttrack", ResourceKind::Media},
                                                  {"xhr", ResourceKind::Data},
                                                  {"fetch", ResourceKind::Data},
                                                  {"eventsource", ResourceKind::Data},
                                                  {"empty", ResourceKind::Data}}};

constexpr std::array<KindName, 34> kKindSuffixes = {
    {{"html", ResourceKind::Document}, {"htm", ResourceKind::Document}, {"css", ResourceKind::Stylesheet},
     {"js", ResourceKind::Script},     {"mjs", ResourceKind::Script},   {"woff", ResourceKind::Font},
     {"woff2", ResourceKind::Font},    {"ttf", ResourceKind::Font},     {"otf", ResourceKind::Font},
     {"eot", ResourceKind::Font},      {"png", ResourceKind::Image},    {"jpg", ResourceKind::Image},
     {"jpeg", ResourceKind::Image},    {"gif", ResourceKind::Image},    {"webp", ResourceKind::Image},
     {"avif", ResourceKind::Image},    {"svg", ResourceKind::Image},    {"ico", ResourceKind::Image},
     {"bmp", ResourceKind::Image},     {"mp4", ResourceKind::Media},    {"m4s", ResourceKind::Media},
     {"m4a", ResourceKind::Media},     {"m4v", ResourceKind::Media},    {"webm", ResourceKind::Media},
     {"mp3", ResourceKind::Media},     {"ogg", ResourceKind::Media},    {"wav", ResourceKind::Media},
     {"aac", ResourceKind::Media},     {"m3u8", ResourceKind::Media},   {"mpd", ResourceKind::Media},
     {"mov", ResourceKind::Media},     {"vtt", ResourceKind::Media},    {"json", ResourceKind::Data},
     {"xml", ResourceKind::Data}}};

template <size_t kSize>
ResourceKind KindByName(const std::array<KindName, kSize>& table, std::string_view name) {
  for (const KindName& row : table) {
    if (net::EqualsIgnoringCase(row.name, name)) return row.kind;
  }
  return ResourceKind::Other;
}

}  // namespace

ResourceKind KindByDestination(std::string_view name) {
  return KindByName(kKindNames, name);
}

// The first of its names in the table is what recorders say.
const char* NameOfKind(ResourceKind kind) {
  for (const KindName& row : kKindNames) {
    if (row.kind == kind) return row.name.data();
  }
  return "other";
}

ResourceKind KindByMimeType(std::string_view type) {
  const auto has = [type](std::string_view part) { return type.find(part) != std::string_view::npos; };
  if (type == "text/html" || type == "application/xhtml+xml") return ResourceKind::Document;
  if (type == "text/css") return ResourceKind::Stylesheet;
  if (has("javascript") || has("ecmascript")) return ResourceKind::Script;
  if (has("font")) return ResourceKind::Font;
  if (type.starts_with("image/")) return ResourceKind::Image;
  if (type.starts_with("video/") || type.starts_with("audio/")) return ResourceKind::Media;
  if (has("json") || has("xml")) return ResourceKind::Data;
  return ResourceKind::Other;
}

ResourceKind KindBySuffix(std::string_view url) {
  const std::string_view path = url.substr(0, url.find('?'));  // it has no fragment
  const size_t dot = path.find_last_of("./");
  if (dot == std::string_view::npos || path[dot] != '.') return ResourceKind::Other;
  return KindByName(kKindSuffixes, path.substr(dot + 1));
}

}  // namespace host
