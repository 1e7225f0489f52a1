#include "replay/model/page_load.h"

#include <algorithm>
#include <utility>

#include "replay/model/page_events.h"

namespace replay {

PageLoad::PageLoad(host::VirtualClock& clock, const PagePlan& plan, std::function<void(size_t index)> ask)
    : clock_(clock), plan_(plan), ask_(std::move(ask)), children_(plan.requests.size()) {
  rows_.resize(plan.requests.size());
  for (size_t index = 0; index < plan.requests.size(); ++index) {
    rows_[index].request = index;
    rows_[index].blocksLoad = plan.requests[index].blocksLoad;
    if (rows_[index].blocksLoad) ++blocking_;
    if (plan.requests[index].parent != kPageStart) children_[plan.requests[index].parent].push_back(index);
  }
}

void PageLoad::Begin() {
  startUs_ = clock_.NowUs();
  for (size_t index = 0; index < plan_.requests.size(); ++index) {
    if (plan_.requests[index].parent != kPageStart) continue;
    clock_.PostDelayed(plan_.requests[index].thinkUs, [this, index] { Want(index); });
  }
}

void PageLoad::Want(size_t index) {
  RequestRow& row = rows_[index];
  row.wantedUs = row.connectUs = row.sentUs = row.firstByteUs = clock_.NowUs();
  ask_(index);
}

void PageLoad::Release(size_t parent, bool firstByte) {
  for (const size_t child : children_[parent]) {
    if (plan_.requests[child].fromFirstByte != firstByte) continue;
    clock_.PostDelayed(plan_.requests[child].thinkUs, [this, child] { Want(child); });
  }
}

void PageLoad::FirstByte(size_t index) {
  rows_[index].firstByteUs = clock_.NowUs();
  Release(index, true);
}

void PageLoad::Done(size_t index) {
  rows_[index].endUs = clock_.NowUs();
  if (rows_[index].blocksLoad && --blocking_ == 0) {
    clock_.PostDelayed(plan_.restUs, [this] {
      if (onLoad) onLoad();
    });
  }
  Release(index, false);
}

void PageLoad::AnswerAtOnce(size_t index) {
  clock_.PostDelayed(0, [this, index] {
    FirstByte(index);
    Done(index);
  });
}

WayResult PageLoad::Finish() {
  WayResult result;
  for (RequestRow& row : rows_) {
    for (int64_t* const time : {&row.wantedUs, &row.connectUs, &row.sentUs, &row.firstByteUs, &row.endUs}) {
      *time -= startUs_;
    }
  }
  result.requests = std::move(rows_);
  TimeEvents(plan_, result);
  std::stable_sort(result.requests.begin(), result.requests.end(),
                   [](const RequestRow& a, const RequestRow& b) { return a.wantedUs < b.wantedUs; });
  return result;
}

}  // namespace replay
