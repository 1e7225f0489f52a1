// When the browser asks for each request of a page: what it waits for, and how long it then thinks. Made from
// the recording alone, so it is the same for every way of running the page. Any thread.
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

// Recorders note the ends of requests and the page's events with clocks that differ a little: up to so much
// later than an event, an end still belongs before it.
inline constexpr double kEventSlackMs = 50;

struct PlannedRequest {
  size_t parent = kPageStart;  // index of the request that this one waits for
  bool fromFirstByte = false;  // the parent streams: its first byte counts, not its last
  int64_t thinkUs = 0;         // from there to the request
  bool blocksLoad = false;     // the page's load event waits for it
};

// When its parent, as recorded, lets a request's think time begin.
double ReleaseMs(const PlannedRequest& planned, const Request& parent);

// What one of the page's events waits for, beside the document's first byte.
struct AwaitedEvent {
  std::vector<size_t> requests;  // index in Page::requests; complete when it comes
  int64_t restUs = 0;            // from the end of the last of them to the event
};

// An event that the recording does not tell is as the next later one.
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
