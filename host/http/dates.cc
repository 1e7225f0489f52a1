#include "host/http/dates.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>

#include "host/http/header_block.h"
#include "net/http/header_text.h"

namespace http {
namespace {

constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array<const char*, 7> kWeekdays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Removes the leading digits from `text`. Returns nothing if there are fewer than `least` or more than
// `most`.
std::optional<int> TakeNumber(std::string_view& text, size_t least, size_t most) {
  size_t digits = 0;
  while (digits < text.size() && IsDigit(text[digits])) ++digits;
  if (digits < least || digits > most) return std::nullopt;
  int value = 0;
  std::from_chars(text.data(), text.data() + digits, value);
  text.remove_prefix(digits);
  return value;
}

bool Take(std::string_view& text, std::string_view oneOf) {
  if (text.empty() || oneOf.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

// Whole days; nothing for a day that does not exist.
std::optional<double> DateMs(int year, int month, int day) {
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok() || year < 1970) return std::nullopt;
  return static_cast<double>(std::chrono::sys_days(date).time_since_epoch().count()) * 86400e3;
}

// Parses "hh:mm:ss"; second 60 is a leap second.
std::optional<double> TakeClockMs(std::string_view& text) {
  const auto hour = TakeNumber(text, 1, 2);
  if (!hour || !Take(text, ":")) return std::nullopt;
  const auto minute = TakeNumber(text, 2, 2);
  if (!minute || !Take(text, ":")) return std::nullopt;
  const auto second = TakeNumber(text, 2, 2);
  if (!second || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  return ((*hour * 60.0 + *minute) * 60.0 + *second) * 1e3;
}

// Parses ".123". Digits beyond the precision of a double are ignored.
double TakeFractionMs(std::string_view& text) {
  double ms = 0;
  if (!Take(text, ".,")) return ms;
  for (double unit = 100; !text.empty() && IsDigit(text.front()); unit /= 10) {
    ms += unit * (text.front() - '0');
    text.remove_prefix(1);
  }
  return ms;
}

// Parses what follows the time: nothing, "Z", "+01:00", "+0100" or "+01".
std::optional<double> ZoneMs(std::string_view text) {
  if (text.empty() || text == "Z" || text == "z") return 0;
  const double sign = text.front() == '-' ? -1 : 1;
  if (!Take(text, "+-") || text.size() < 2) return std::nullopt;
  std::string_view hours = text.substr(0, 2);
  text.remove_prefix(2);
  Take(text, ":");
  const auto hour = TakeNumber(hours, 2, 2);
  const auto minute = text.empty() ? std::optional<int>(0) : TakeNumber(text, 2, 2);
  if (!hour || !minute || !text.empty()) return std::nullopt;
  return sign * (*hour * 60.0 + *minute) * 60e3;
}

// "Nov" and "November" give 11; other words give 0.
int MonthNumber(std::string_view word) {
  for (size_t month = 0; month < kMonths.size(); ++month) {
    if (net::EqualsIgnoringCase(word.substr(0, 3), kMonths[month])) return static_cast<int>(month) + 1;
  }
  return 0;
}

// Years of two digits, as browsers interpret them.
int FullYear(int year, size_t digits) {
  if (digits > 2) return year;
  return year < 70 ? year + 2000 : year + 1900;
}

}  // namespace

std::optional<double> ParseIsoDate(std::string_view text) {
  text = net::TrimBlanks(text);
  const auto year = TakeNumber(text, 4, 4);
  if (!year || !Take(text, "-")) return std::nullopt;
  const auto month = TakeNumber(text, 1, 2);
  if (!month || !Take(text, "-")) return std::nullopt;
  const auto day = TakeNumber(text, 1, 2);
  if (!day || !Take(text, "Tt ")) return std::nullopt;
  const auto clock = TakeClockMs(text);
  if (!clock) return std::nullopt;
  const double fraction = TakeFractionMs(text);
  const auto zone = ZoneMs(text);
  const auto date = DateMs(*year, *month, *day);
  if (!zone || !date) return std::nullopt;
  return *date + *clock + fraction - *zone;
}

// The words come in any order. The word with colons is the time, and the name of a month is the month. In
// every form, the day precedes the year.
std::optional<double> ParseHttpDate(std::string_view text) {
  constexpr std::string_view kBetween = " \t,-";
  std::optional<double> clock;
  std::optional<int> day, year;
  int month = 0;
  while (true) {
    const size_t start = text.find_first_not_of(kBetween);
    if (start == std::string_view::npos) break;
    text.remove_prefix(start);
    std::string_view word = text.substr(0, text.find_first_of(kBetween));
    text.remove_prefix(word.size());
    const size_t length = word.size();
    if (!IsDigit(word.front())) {
      if (month == 0) month = MonthNumber(word);
    } else if (word.find(':') != std::string_view::npos) {
      clock = TakeClockMs(word);
    } else if (!day) {
      day = TakeNumber(word, 1, 2);
      if (!day) return std::nullopt;
    } else if (!year) {
      year = TakeNumber(word, 2, 4);
      if (!year) return std::nullopt;
      year = FullYear(*year, length);
    }
  }
  if (!clock || !day || !year || month == 0) return std::nullopt;
  const auto date = DateMs(*year, month, *day);
  if (!date) return std::nullopt;
  return *date + *clock;
}

std::optional<double> FindDateHeader(std::string_view block, std::string_view name) {
  return ParseHttpDate(FindHeader(block, name).value_or(""));
}

std::string FormatHttpDate(double ms) {
  using namespace std::chrono;
  constexpr double kLatestMs = 253402300799000;
  const auto secondsSince1970 = static_cast<int64_t>(std::clamp(ms, 0.0, kLatestMs) / 1e3);
  const sys_seconds moment{seconds(secondsSince1970)};
  const auto date = floor<days>(moment);
  const year_month_day calendar(date);
  const hh_mm_ss<seconds> clock(moment - date);
  char text[48];
  std::snprintf(text, sizeof(text), "%s, %02u %s %04d %02d:%02d:%02d GMT",
                kWeekdays[weekday(date).c_encoding()], static_cast<unsigned>(calendar.day()),
                kMonths[static_cast<unsigned>(calendar.month()) - 1], static_cast<int>(calendar.year()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

}  // namespace http
