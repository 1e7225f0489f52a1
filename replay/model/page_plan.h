// When the browser starts each request of a page: what the request waits for, and for how long after that.
// The plan is made only from the recording, so it is the same for every way of running the page. Any thread.
#ifndef REPLAY_MODEL_PAGE_PLAN_H_
#define REPLAY_MODEL_PAGE_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "replay/model/parent_rule.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

inline constexpr size_t kPageStart = static_cast<size_t>(-1);

// Recorders take the ends of requests and the page's events from clocks that differ a little. An end that is
// at most this much later than an event counts as before it.
inline constexpr double kEventSlackMs = 50;

struct PlannedRequest {
  size_t parent = kPageStart;  // index of the request that this request waits for
  bool fromFirstByte = false;  // the parent streams, so its first byte counts and not its last
  int64_t thinkUs = 0;         // from there to the request
  bool blocksLoad = false;     // the page's load event waits for it
};

// When a request's think time began in the recording, given its parent.
double ReleaseMs(const PlannedRequest& planned, const Request& parent);

// What one of the page's events waits for in addition to the document's first byte.
struct AwaitedEvent {
  std::vector<size_t> requests;  // indexes in Page::requests; they are complete when the event comes
  int64_t restUs = 0;            // from the end of the last of them to the event
};

// An event that is not in the recording equals the next later event.
struct PageEvents {
  AwaitedEvent firstPaint;
  AwaitedEvent contentLoaded;  // DOMContentLoaded
  AwaitedEvent load;
  AwaitedEvent loadWithoutBeacons;
  PaintSource paintSource = PaintSource::Recorded;
  std::vector<bool> beacons;  // by index of Page::requests
};

struct PagePlan {
  std::vector<PlannedRequest> requests;  // by index of Page::requests; parents come first
  size_t document = 0;                   // Page::document
  int64_t restUs = 0;                    // from the end of the last blocking request to the load event
  PageEvents events;                     // filled in by PlanEvents
};

PagePlan MakePlan(const Page& page, ParentRule rule = ParentRule::Recorded);

}  // namespace replay

#endif  // REPLAY_MODEL_PAGE_PLAN_H_
