// When the browser asks for each request of a page: what it waits for, and how long it then thinks. Made from
// the recording alone, so it is the same for every way of running the page. Any thread.
#ifndef REPLAY_MODEL_PAGE_PLAN_H_
#define REPLAY_MODEL_PAGE_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "replay/recording/recording.h"

namespace replay {

inline constexpr size_t kPageStart = static_cast<size_t>(-1);

// Recorders note a request's end and the load event a little apart: up to so much later, it still belongs
// before the event.
inline constexpr double kLoadSlackMs = 50;

struct PlannedRequest {
  size_t parent = kPageStart;  // index of the request that this one waits for
  bool fromFirstByte = false;  // the parent streams: its first byte counts, not its last
  int64_t thinkUs = 0;         // from there to the request
  bool blocksLoad = false;     // the page's load event waits for it
};

// When its parent, as recorded, lets a request's think time begin.
double ReleaseMs(const PlannedRequest& planned, const Request& parent);

struct PagePlan {
  std::vector<PlannedRequest> requests;  // by index of Page::requests; parents come first
  int64_t restUs = 0;                    // from the end of the last blocking request to the load event
};

// What a late request, one that follows its initiator by more than a moment, is taken to wait for.
enum class ParentRule {
  Recorded,  // what the recording names as its initiator, however long ago that ended
  Inferred,  // the script, stylesheet, data or frame that ended last before it, if that was just before
};

PagePlan MakePlan(const Page& page, ParentRule rule);

}  // namespace replay

#endif  // REPLAY_MODEL_PAGE_PLAN_H_
