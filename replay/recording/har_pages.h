// Puts the rows of a HAR into pages, ordered by time. Any thread.
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

// Every row is put into a page: into the one that it names, or, if it names none or several pages have that
// name, into the one during which it started. If the file has no pages, each name that rows use makes a page,
// and the rows that name none make one more. A page without rows is dropped. A row without a date, or with a
// date more than a day away from the others, starts together with the dated row before it. If no row of a
// page has a date, all of them start at 0, in file order.
std::vector<Page> MakePages(const std::vector<HarPage>& harPages, std::vector<HarRow> rows);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_PAGES_H_
