#include "replay/report/merge_lines.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "replay/report/report_html.h"
#include "replay/report/summary_json.h"

namespace replay {
namespace {

using Json = nlohmann::json;

constexpr int kMostNested = 100;  // far more than a line of ours

Json OrNull(const std::optional<double>& value) {
  return value ? Json(*value) : Json(nullptr);
}

std::optional<double> NumberOrNothing(const Json& value) {
  return value.is_null() ? std::nullopt : std::optional(value.get<double>());
}

// A profile's name lives in the table of profiles.
std::string_view KnownProfileName(const std::string& name) {
  const NetworkProfile* const profile = FindNetworkProfile(name);
  return profile != nullptr ? profile->name : "custom";
}

// Enough to notice that another list was used.
std::string BeaconsText(const BeaconList& beacons) {
  return std::to_string(beacons.hosts.size()) + " hosts, " + std::to_string(beacons.words.size()) +
         " words, " + std::to_string(beacons.paths.size()) + " paths";
}

ReplayOptions SettingsOf(const Json& settings) {
  ReplayOptions options;
  options.profile.name = KnownProfileName(settings.at("profile").get<std::string>());
  options.profile.rttMs = NumberOrNothing(settings.at("rtt_ms"));
  options.profile.downMbit = NumberOrNothing(settings.at("down_mbit"));
  options.socketsPerGroup = settings.at("sockets").get<int>();
  options.visits = settings.at("visits").get<uint32_t>();
  options.revisitAfterMs = settings.at("revisit_after_ms").get<double>();
  options.join = settings.at("join").get<bool>();
  options.preconnect = settings.at("preconnect").get<bool>();
  if (!settings.at("parents").is_null()) options.parents = settings.at("parents").get<ParentRule>();
  options.costs.certificates = settings.at("certificates").get<bool>();
  options.costs.nameLookups = settings.at("dns").get<bool>();
  options.costs.slowStart = settings.at("slow_start").get<bool>();
  options.properties = settings.at("properties").get<std::map<std::string, std::string>>();
  return options;
}

}  // namespace

std::string SettingsJson(const ReplayOptions& options) {
  const Json settings = {
      {"profile", options.profile.name},
      {"rtt_ms", OrNull(options.profile.rttMs)},
      {"down_mbit", OrNull(options.profile.downMbit)},
      {"sockets", options.socketsPerGroup},
      {"visits", options.visits},
      {"revisit_after_ms", options.revisitAfterMs},
      {"join", options.join},
      {"preconnect", options.preconnect},
      {"certificates", options.costs.certificates},
      {"dns", options.costs.nameLookups},
      {"slow_start", options.costs.slowStart},
      {"parents", options.parents ? Json(static_cast<int>(*options.parents)) : Json(nullptr)},
      {"beacons", BeaconsText(options.beacons)},
      {"properties", options.properties}};
  return settings.dump();
}

void LineMerger::Add(std::istream& lines, const std::string& name) {
  size_t number = 0;
  try {
    for (std::string line; std::getline(lines, line);) {
      ++number;
      if (line.ends_with('\r')) line.pop_back();
      if (!line.empty()) AddLine(line);
    }
  } catch (const Json::parse_error&) {
    throw std::runtime_error(name + ": line " + std::to_string(number) + " is not JSON, or was cut off");
  } catch (const Json::exception&) {
    throw std::runtime_error(name + ": line " + std::to_string(number) +
                             " is not a line that kiv_replay --json of this version writes");
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(name + ": line " + std::to_string(number) + " " + error.what());
  }
  if (lines.bad() || !lines.eof()) throw std::runtime_error(name + ": cannot be read");
}

void LineMerger::AddLine(const std::string& line) {
  const Json object = Json::parse(line, [](int depth, Json::parse_event_t /*event*/, Json& /*value*/) {
    if (depth > kMostNested) throw std::runtime_error("is nested too deeply");  // copies and texts recurse
    return true;
  });
  if (object.contains("summary")) return;
  RecordingReport report;
  report.summary.name = object.at("recording").get<std::string>();
  if (object.contains("error")) {
    report.status = ReplayStatus::BadInput;
    report.error = object.at("error").get<std::string>();
  } else {
    const Json& parts = object.at("merge");
    const std::string settings = parts.at("settings").dump();
    if (settings_ && settings != settingsText_) {
      throw std::runtime_error("was written with other settings than the lines before: " + settings +
                               ", not " + settingsText_);
    }
    settings_ = SettingsOf(parts.at("settings"));
    settingsText_ = settings;
    Json figures = parts.at("figures");
    figures["name"] = report.summary.name;
    report.summary = figures.get<Summary>();
  }
  const std::string key = report.summary.name + '\0' + line;
  if (reportsByLine_.contains(key)) ++repeated_;
  reportsByLine_.emplace(key, std::move(report));
}

std::vector<RecordingReport> LineMerger::Reports() const {
  std::vector<RecordingReport> reports;
  for (const auto& [line, report] : reportsByLine_) {
    reports.push_back(report);
    reports.back().html = HtmlSectionWithoutVisits(reports.size() - 1, report.summary);
  }
  return reports;
}

}  // namespace replay
