// The rows of a HAR put into pages, in time's order. Any thread.
#ifndef REPLAY_RECORDING_HAR_PAGES_H_
#define REPLAY_RECORDING_HAR_PAGES_H_

#include <optional>
#include <string>
#include <vector>

#include "replay/recording/har_parser.h"
#include "replay/recording/recording.h"

namespace replay {

struct HarRow {
  Request request;
  std::string pageref;
  std::optional<double> startedMs;  // since 1970
  double durationMs = 0;
};

// Every row lands in a page: in the one that it names (the one whose time it falls into, where several have
// that name), else in the one whose time it falls into. Where the file has no pages, each name that rows use
// makes one, and rows that name none make one more. A page without rows is dropped. A row without a date, or
// with one more than a day off the others, starts with the dated row before it; a page without any date has
// all of its rows start at 0, in file order.
std::vector<Page> MakePages(const std::vector<HarPage>& harPages, std::vector<HarRow> rows);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_PAGES_H_
