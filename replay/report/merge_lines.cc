#include "replay/report/merge_lines.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "replay/report/advice_json.h"
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

bool AreKnown(const std::vector<Advice>& all) {
  return std::all_of(all.begin(), all.end(), [](const Advice& advice) {
    const auto kind = static_cast<size_t>(advice.change.kind);
    return kind < kChangeWords.size() && advice.visits > 0 && !advice.change.urls.empty();
  });
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

size_t LineMerger::PlaceOfSetting(const std::vector<std::string>& sweep, const std::string& setting) {
  if (known_.empty()) {
    for (const std::string& text : sweep) known_.push_back({.text = text});
  }
  const auto isSame = [](const Known& known, const std::string& text) { return known.text == text; };
  if (!std::equal(known_.begin(), known_.end(), sweep.begin(), sweep.end(), isSame)) {
    throw std::runtime_error("was written with another --sweep than the lines before");
  }
  const auto found = std::find(sweep.begin(), sweep.end(), setting);
  if (found == sweep.end()) throw std::runtime_error("is of none of its sweep's settings");
  return static_cast<size_t>(found - sweep.begin());
}

void LineMerger::AddLine(const std::string& line) {
  const Json object = Json::parse(line, [](int depth, Json::parse_event_t /*event*/, Json& /*value*/) {
    if (depth > kMostNested) throw std::runtime_error("is nested too deeply");  // copies and texts recurse
    return true;
  });
  if (object.contains("summary")) return;
  const std::string name = object.at("recording").get<std::string>();
  RecordingReport report;
  report.summary.name = name;
  if (object.contains("error")) {
    report.status = ReplayStatus::BadInput;
    report.error = object.at("error").get<std::string>();
  } else {
    const Json& parts = object.at("merge");
    const auto sweep = parts.value("sweep", std::vector<std::string>{""});
    const size_t place = PlaceOfSetting(sweep, object.value("setting", ""));
    Known& known = known_[place];
    const std::string settings = parts.at("settings").dump();
    if (known.options && settings != known.optionsText) {
      throw std::runtime_error("was written with other settings than the lines before: " + settings +
                               ", not " + known.optionsText);
    }
    known.options = SettingsOf(parts.at("settings"));
    known.optionsText = settings;
    Json figures = parts.at("figures");
    figures["name"] = name;
    report.summary = figures.get<Summary>();
    report.advised = parts.contains("advice");
    if (report.advised) report.advice = parts.at("advice").get<std::vector<Advice>>();
    if (!AreKnown(report.advice)) throw std::runtime_error("has advice of another version");
    if (sweep.size() > 1) {
      if (!sweepLines_[name].emplace(place, std::move(report.summary)).second) {
        throw std::runtime_error("is another one of '" + name + "' with " + sweep[place]);
      }
      return;
    }
  }
  const std::string key = name + '\0' + line;
  if (reportsByLine_.contains(key)) ++repeated_;
  reportsByLine_.emplace(key, std::move(report));
}

RecordingReport LineMerger::Together(const std::string& name, const BySetting& summaries) const {
  RecordingReport report;
  report.summary.name = name;
  const auto isOtherVisit = [](const VisitFigures& left, const VisitFigures& right) {
    return left.page != right.page || left.number != right.number || left.copy != right.copy;
  };
  for (size_t place = 0; place < known_.size(); ++place) {
    const auto found = summaries.find(place);
    const bool isPair =
        found != summaries.end() && summaries.contains(0) &&
        std::equal(found->second.repeats.begin(), found->second.repeats.end(),
                   summaries.at(0).repeats.begin(), summaries.at(0).repeats.end(),
                   [&](const auto& left, const auto& right) { return !isOtherVisit(left, right); });
    if (!isPair) {
      report.status = ReplayStatus::BadInput;
      report.error = name + ": its line with " + known_[place].text +
                     (found == summaries.end() ? " is missing" : " is of other visits");
      report.further.clear();
      return report;
    }
    if (place == 0) {
      report.summary = found->second;
    } else {
      report.further.push_back(found->second);
    }
  }
  return report;
}

std::vector<RecordingReport> LineMerger::Reports() const {
  std::vector<RecordingReport> reports;
  for (const auto& [line, report] : reportsByLine_) reports.push_back(report);
  for (const auto& [name, summaries] : sweepLines_) reports.push_back(Together(name, summaries));
  std::stable_sort(reports.begin(), reports.end(), [](const auto& left, const auto& right) {
    return left.summary.name < right.summary.name;
  });
  for (size_t index = 0; index < reports.size(); ++index) reports[index].index = index;
  return reports;
}

Settings LineMerger::MergedSettings() const {
  Settings settings;
  for (const Known& known : known_) {
    settings.push_back({.text = known.text, .options = known.options.value_or(ReplayOptions())});
  }
  return settings.empty() ? Settings(1) : settings;
}

}  // namespace replay
