#include "replay/report/figure_text.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <utility>

namespace replay {

std::string MillisecondsText(double microseconds) {
  return fmt::format("{}", std::llround(microseconds / 1e3));
}

std::string SignedMillisecondsText(double microseconds) {
  const long long rounded = std::llround(microseconds / 1e3);
  return rounded == 0 ? "0" : fmt::format("{:+}", rounded);
}

std::string PercentText(const std::optional<double>& share) {
  if (!share) return "–";
  const double percent = *share * 100;
  // A decimal only where a whole number would hide the sign or the size.
  if (std::abs(percent) >= 9.95 || std::abs(percent) < 0.05) return fmt::format("{}%", std::llround(percent));
  return fmt::format("{:.1f}%", percent);
}

std::string BytesText(uint64_t bytes) {
  if (bytes < 1000) return fmt::format("{} B", bytes);
  double value = static_cast<double>(bytes);
  static constexpr std::array<const char*, 3> kUnits = {"kB", "MB", "GB"};
  size_t unit = 0;
  for (value /= 1e3; value >= 999.95 && unit + 1 < kUnits.size(); value /= 1e3) ++unit;
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string DurationText(double milliseconds) {
  static constexpr std::array<std::pair<double, const char*>, 4> kUnits = {
      {{86400e3, "d"}, {3600e3, "h"}, {60e3, "min"}, {1e3, "s"}}};
  for (const auto& [unit, name] : kUnits) {
    const double value = milliseconds / unit;
    if (value >= 1 && value * 2 == std::floor(value * 2)) return fmt::format("{} {}", value, name);
  }
  return fmt::format("{} ms", milliseconds);
}

}  // namespace replay
