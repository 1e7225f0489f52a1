#include "live/journal/page_lines.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <nlohmann/json.hpp>

namespace live {
namespace {

constexpr size_t kLongestUrl = 120;

std::string PrintableUrl(const std::string& url) {
  std::string text;
  for (const char c : url.substr(0, kLongestUrl)) {
    if (c > ' ' && c < 0x7f) {
      text += c;
    } else {
      text += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  if (url.size() > kLongestUrl) text += "...";
  return text;
}

// "512 bytes", "20.7 kB", "1.3 MB"
std::string Bytes(int64_t count) {
  if (count < 1000) return fmt::format("{} bytes", count);
  if (count < 1'000'000) return fmt::format("{:.1f} kB", static_cast<double>(count) / 1e3);
  return fmt::format("{:.1f} MB", static_cast<double>(count) / 1e6);
}

// From the page's request to the end of its last load.
int64_t DurationUs(const PageRecord& page) {
  return page.lastEnd == base::Time() ? 0 : page.lastEnd.ToInternalValue() - page.begun.ToInternalValue();
}

}  // namespace

std::string PageLine(const PageRecord& page) {
  return fmt::format("{}  {} resources: {} served, {} joined, {} fetched; {} preloads unused; {} in {:.2f} s",
                     PrintableUrl(page.url), page.served + page.joined + page.fetched, page.served,
                     page.joined, page.fetched, page.unusedPreloads, Bytes(page.bytes),
                     static_cast<double>(DurationUs(page)) / 1e6);
}

std::string PageJson(const PageRecord& page, int64_t wallUs) {
  const nlohmann::ordered_json json = {{"url", page.url},
                                       {"begun", IsoDate(page.begun.ToInternalValue() + wallUs)},
                                       {"last_response_ms", static_cast<double>(DurationUs(page)) / 1e3},
                                       {"resources", page.served + page.joined + page.fetched},
                                       {"served", page.served},
                                       {"joined", page.joined},
                                       {"fetched", page.fetched},
                                       {"preloads", page.preloads},
                                       {"unused_preloads", page.unusedPreloads},
                                       {"bytes", page.bytes},
                                       {"preloaded_bytes", page.preloadedBytes},
                                       {"unused_bytes", page.unusedBytes}};
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string IsoDate(int64_t usSince1970) {
  const std::chrono::sys_time<std::chrono::microseconds> moment{std::chrono::microseconds(usSince1970)};
  const auto second = std::chrono::floor<std::chrono::seconds>(moment);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(second)),
                     (moment - second).count() / 1000);
}

}  // namespace live
