// Which changes are worth advising, and in what words.
#include <gtest/gtest.h>

#include <algorithm>

#include "replay/report/advice.h"

namespace replay {
namespace {

// Visits by load event and first paint with the plugin, in milliseconds.
struct Times {
  int64_t load, paint;
};

Summary SummaryOf(const std::vector<Times>& visits) {
  Summary summary;
  for (const Times& times : visits) {
    VisitFigures visit;
    visit.times[Index(Way::Plugin)] = {.firstPaintUs = times.paint * 1000, .pageLoadUs = times.load * 1000};
    summary.repeats.push_back(visit);
  }
  return summary;
}

TEST(Advice, ShowsWhatIsSavedAndNoLoss) {
  const struct {
    std::vector<Times> before, after;
    const char* saved;  // in the text; empty: no advice
  } cases[] = {
      {{{1000, 500}}, {{900, 500}}, "would save 100 ms until the load event per visit on average."},
      {{{1000, 500}}, {{1000, 480}}, "would save 20 ms until first paint per visit on average."},
      {{{1000, 500}, {1000, 500}},
       {{700, 500}, {1100, 500}},
       "would save 100 ms until the load event per visit on average; 1 of 2 would be slower."},
      {{{1000, 500}}, {{991, 500}}, ""},   // less than 10 ms
      {{{9000, 900}}, {{8920, 900}}, ""},  // less than 1%
      {{{1000, 500}}, {{1200, 500}}, ""},  // slower
      {{{1000, 500}}, {{900, 520}}, ""},   // at the price of the first paint
      {{}, {}, ""},
  };
  const Change change = {.server = "a.test", .count = 2, .urls = {"https://a.test/1", "https://a.test/2"}};
  for (const auto& row : cases) {
    const auto advice = AdviceOf(change, SummaryOf(row.before), SummaryOf(row.after));
    ASSERT_EQ(advice.has_value(), *row.saved != '\0') << row.saved;
    if (!advice) continue;
    EXPECT_EQ(AdviceText(*advice),
              std::string("2 responses of a.test declare no length, so they can never be held: "
                          "declaring it ") +
                  row.saved);
  }
  const Change preload = {.kind = ChangeKind::LeaveOut, .count = 1, .urls = {"https://a.test/1"}};
  EXPECT_EQ(AdviceText(AdviceOf(preload, SummaryOf({{900, 500}}), SummaryOf({{1000, 500}})).value()),
            "Preloading https://a.test/1 saves 100 ms until the load event per visit on average.");
}

TEST(Advice, FiveAreShownAndTwoOfSinglePreloads) {
  std::vector<Advice> all;
  for (int index = 0; index < 8; ++index) {
    const ChangeKind kind = index < 4 ? ChangeKind::LeaveOut : ChangeKind::SkipRedirect;
    all.push_back({.change = {.kind = kind, .count = 1}, .visits = 1, .load = {.total = 100.0 + index}});
  }
  SortByValue(all);
  EXPECT_EQ(all.front().load.total, 107);
  std::vector<double> shown;
  for (const Advice& advice : MostValuable(all)) shown.push_back(advice.load.total);
  EXPECT_EQ(shown, (std::vector<double>{107, 106, 105, 104, 103}));
  std::reverse(all.begin(), all.end());
  shown.clear();
  for (const Advice& advice : MostValuable(all)) shown.push_back(advice.load.total);
  EXPECT_EQ(shown, (std::vector<double>{100, 101, 104, 105, 106}));
}

}  // namespace
}  // namespace replay
