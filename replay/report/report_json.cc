#include "replay/report/report_json.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace replay {
namespace {

using Json = nlohmann::ordered_json;

// Shares have four decimals, so that equal figures are equal text.
Json Share(const std::optional<double>& share) {
  if (!share) return nullptr;
  return std::round(*share * 1e4) / 1e4;
}

Json Optional(const std::optional<double>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json Milliseconds(const Figures& figures, Way way) {
  if (!figures) return nullptr;
  return std::round(At(figures, way)) / 1e3;
}

std::string Line(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string JsonLine(const Summary& summary, const ReplayOptions& options) {
  const Figures medians = MedianLoads(summary);
  const Figures p95 = Percentile95Loads(summary);

  Json line;
  line["recording"] = summary.name;
  line["profile"] = options.profile.name;
  line["rtt_ms"] = Optional(options.profile.rttMs);
  line["down_mbit"] = Optional(options.profile.downMbit);
  line["visits"] = summary.visits;
  line["repeat_visits"] = summary.loads.size();
  line["requests"] = summary.requests;
  line["off_ms"] = Milliseconds(medians, Way::Off);
  line["plugin_ms"] = Milliseconds(medians, Way::Plugin);
  line["hints_ms"] = Milliseconds(medians, Way::Hints);
  line["oracle_ms"] = Milliseconds(medians, Way::Oracle);
  line["off_p95_ms"] = Milliseconds(p95, Way::Off);
  line["plugin_p95_ms"] = Milliseconds(p95, Way::Plugin);
  line["hints_p95_ms"] = Milliseconds(p95, Way::Hints);
  line["oracle_p95_ms"] = Milliseconds(p95, Way::Oracle);
  line["gap_closed"] = Share(GapClosedOverall(summary));
  line["gap_closed_per_visit"] = Share(GapClosedPerVisit(summary));
  line["slower_visits"] = summary.slowerVisits;
  line["served"] = summary.served;
  line["joined"] = summary.joined;
  line["fetched"] = summary.fetched;
  line["from_disk_cache"] = summary.fromDiskCache;
  line["preloads"] = summary.preloads;
  line["preloaded_bytes"] = summary.preloadedBytes;
  line["wasted_bytes"] = summary.wastedBytes;
  line["commands"] = summary.commands;
  line["unanswered_commands"] = summary.unansweredCommands;
  line["warnings"] = summary.warnings;
  line["skipped"] = Json(summary.skipped);
  Json& reasons = line["reasons"] = Json::object();
  for (const auto& [why, count] : summary.reasons) reasons[host::WordsFor(why).key] = count;
  return Line(line);
}

std::string JsonErrorLine(const std::string& name, const std::string& error) {
  return Line({{"recording", name}, {"error", error}});
}

}  // namespace replay
