#include "replay/model/parent_choice.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <string_view>

#include "replay/model/page_plan.h"

namespace replay {
namespace {

using PlacesByUrl = std::map<std::string_view, size_t>;

// The first request of each URL.
PlacesByUrl PlacesOf(const Page& page) {
  PlacesByUrl places;
  for (size_t index = 0; index < page.requests.size(); ++index) {
    places.try_emplace(page.requests[index].url, index);
  }
  return places;
}

// When the other load would send a request that waits as planned; nothing if it has no such parent.
std::optional<double> PredictMs(const Page& page, const PlannedRequest& planned, const Page& other,
                                const PlacesByUrl& places) {
  double fromMs = 0;
  if (planned.parent != kPageStart) {
    const auto parent = places.find(page.requests[planned.parent].url);
    if (parent == places.end()) return std::nullopt;
    fromMs = ReleaseMs(planned, other.requests[parent->second]);
  }
  return fromMs + static_cast<double>(planned.thinkUs) / 1e3;
}

void Compare(const Page& page, const Page& other, StartErrors& errors) {
  const PagePlan recorded = MakePlan(page, ParentRule::Recorded);
  const PagePlan inferred = MakePlan(page, ParentRule::Inferred);
  const PlacesByUrl own = PlacesOf(page), places = PlacesOf(other);
  for (const auto& [url, index] : own) {
    if (recorded.requests[index].parent == inferred.requests[index].parent) continue;
    const auto same = places.find(url);
    if (same == places.end()) continue;
    const auto byRecorded = PredictMs(page, recorded.requests[index], other, places);
    const auto byInferred = PredictMs(page, inferred.requests[index], other, places);
    if (!byRecorded || !byInferred) continue;
    const double startMs = other.requests[same->second].startMs;
    errors.recordedMs.push_back(std::abs(*byRecorded - startMs));
    errors.inferredMs.push_back(std::abs(*byInferred - startMs));
  }
}

double Middle(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

StartErrors CompareRules(const std::vector<const Page*>& loads) {
  StartErrors errors;
  for (size_t load = 1; load < loads.size(); ++load) {
    Compare(*loads[load - 1], *loads[load], errors);
    Compare(*loads[load], *loads[load - 1], errors);
  }
  return errors;
}

ParentChoice ChooseParents(const Recording& recording, std::optional<ParentRule> rule) {
  std::map<std::string, std::vector<const Page*>> loadsOf;
  for (const Page& page : recording.pages) loadsOf[page.requests.front().url].push_back(&page);
  ParentChoice choice;
  for (const auto& [url, loads] : loadsOf) {
    const StartErrors errors = CompareRules(loads);
    ParentRule& chosen = choice.rules[url];
    chosen = rule.value_or(ParentRule::Recorded);
    if (errors.recordedMs.empty()) continue;
    if (!rule && Middle(errors.inferredMs) < Middle(errors.recordedMs)) chosen = ParentRule::Inferred;
    choice.errors.recordedMs.insert(choice.errors.recordedMs.end(), errors.recordedMs.begin(),
                                    errors.recordedMs.end());
    choice.errors.inferredMs.insert(choice.errors.inferredMs.end(), errors.inferredMs.begin(),
                                    errors.inferredMs.end());
  }
  return choice;
}

}  // namespace replay
