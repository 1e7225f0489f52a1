#include "replay/report/advice.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <algorithm>

#include "replay/report/figure_text.h"

namespace replay {
namespace {

constexpr double kLeastUs = 10e3;
constexpr double kLeastShare = 0.01;
constexpr size_t kShown = 5;
constexpr size_t kShownPreloads = 2;

double Sum(const std::vector<VisitFigures>& visits, Metric metric, Way way) {
  double sum = 0;
  for (const VisitFigures& visit : visits) sum += static_cast<double>(visit.times[Index(way)].*metric);
  return sum;
}

Saving SavingOf(const std::vector<VisitFigures>& before, const std::vector<VisitFigures>& after,
                Metric metric) {
  Saving saving;
  std::vector<double> saved;
  for (size_t index = 0; index < before.size(); ++index) {
    const auto old = static_cast<double>(before[index].times[Index(Way::Plugin)].*metric);
    const auto changed = static_cast<double>(after.at(index).times[Index(Way::Plugin)].*metric);
    saved.push_back(old - changed);
    if (IsLater(old, changed)) ++saving.betterVisits;
    if (IsLater(changed, old)) ++saving.worseVisits;
  }
  const std::optional<Gains> gains = GainsOf(saved);
  if (!gains) return saving;
  saving.median = gains->median;
  saving.total = gains->total;
  return saving;
}

double Mean(const Advice& advice, const Saving& saving) {
  return saving.total / static_cast<double>(advice.visits);
}

double Value(const Advice& advice) {
  return std::max(Mean(advice, advice.load), Mean(advice, advice.firstPaint));
}

}  // namespace

std::optional<Advice> AdviceOf(const Change& change, const Summary& before, const Summary& after) {
  const bool leavesOut = change.kind == ChangeKind::LeaveOut;  // what it costs is what the preload saves
  const std::vector<VisitFigures> first = Headline((leavesOut ? after : before).repeats);
  const std::vector<VisitFigures> second = Headline((leavesOut ? before : after).repeats);
  if (first.empty() || first.size() != second.size()) return std::nullopt;
  const Advice advice = {.change = change,
                         .copies = HeadlineIsOfCopies(before.repeats),
                         .visits = first.size(),
                         .load = SavingOf(first, second, &LoadTimes::pageLoadUs),
                         .firstPaint = SavingOf(first, second, &LoadTimes::firstPaintUs),
                         .totalWithoutPlugin = Sum(first, &LoadTimes::pageLoadUs, Way::Off) -
                                               Sum(second, &LoadTimes::pageLoadUs, Way::Off)};
  bool isWorthIt = false;
  for (const auto& [saving, metric] : {std::pair(advice.load, &LoadTimes::pageLoadUs),
                                       std::pair(advice.firstPaint, &LoadTimes::firstPaintUs)}) {
    const double mean = Sum(first, metric, Way::Plugin) / static_cast<double>(advice.visits);
    const double least = std::max(kLeastUs, mean * kLeastShare);
    if (Mean(advice, saving) <= -least) return std::nullopt;
    isWorthIt = isWorthIt || Mean(advice, saving) >= least;
  }
  return isWorthIt ? std::optional(advice) : std::nullopt;
}

void SortByValue(std::vector<Advice>& advice) {
  std::stable_sort(advice.begin(), advice.end(),
                   [](const Advice& left, const Advice& right) { return Value(left) > Value(right); });
}

std::string AdviceText(const Advice& advice) {
  const Change& change = advice.change;
  const ChangeWords& words = WordsFor(change.kind);
  std::string text;
  if (change.kind == ChangeKind::LeaveOut) {
    text = "Preloading " + change.urls.front();
  } else {
    text = fmt::format(fmt::runtime(change.count == 1 ? words.one : words.many), fmt::arg("n", change.count),
                       fmt::arg("server", change.server), fmt::arg("setting", change.setting));
  }
  const std::string load = MillisecondsText(Mean(advice, advice.load));
  const std::string paint = MillisecondsText(Mean(advice, advice.firstPaint));
  text += fmt::format(
      " {}{}{}{} per {} on average", change.kind == ChangeKind::LeaveOut ? "saves" : "would save",
      load != "0" ? " " + load + " ms until the load event" : "", load != "0" && paint != "0" ? " and" : "",
      paint != "0" ? " " + paint + " ms until first paint" : "", advice.copies ? "copy" : "visit");
  const uint64_t worse = std::max(advice.load.worseVisits, advice.firstPaint.worseVisits);
  if (worse > 0) text += fmt::format("; {} of {} would be slower", worse, advice.visits);
  return text + ".";
}

std::vector<Advice> MostValuable(const std::vector<Advice>& sorted) {
  std::vector<Advice> shown;
  size_t preloads = 0;
  for (const Advice& advice : sorted) {
    if (shown.size() == kShown) break;
    if (advice.change.kind == ChangeKind::LeaveOut && ++preloads > kShownPreloads) continue;
    shown.push_back(advice);
  }
  return shown;
}

}  // namespace replay
