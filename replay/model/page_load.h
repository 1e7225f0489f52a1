// The simulated browser: starts the requests of a page when its plan allows, and records when each of them
// was answered. The caller decides how a request is answered. One thread.
#ifndef REPLAY_MODEL_PAGE_LOAD_H_
#define REPLAY_MODEL_PAGE_LOAD_H_

#include <cstddef>
#include <functional>
#include <vector>

#include "host/virtual_clock.h"
#include "replay/model/page_plan.h"
#include "replay/model/results.h"
#include "replay/recording/recording.h"

namespace replay {

class PageLoad {
 public:
  // `ask` is called once for each request, when the browser starts it. It must make sure that FirstByte and
  // then Done are called for that index later. The plan must outlive the load.
  PageLoad(host::VirtualClock& clock, const PagePlan& plan, std::function<void(size_t index)> ask);

  // Called at the load event of the page.
  std::function<void()> onLoad;

  // Requests the page, now.
  void Begin();

  void FirstByte(size_t index);
  void Done(size_t index);
  // Calls both, in a task of its own, for an answer that is available at once.
  void AnswerAtOnce(size_t index);

  // The row of a request, which `ask` fills in. Its times are those of the clock; Finish makes them relative.
  RequestRow& Row(size_t index) { return rows_[index]; }

  // The result, once every request is done.
  WayResult Finish();

  int64_t StartUs() const { return startUs_; }

 private:
  void Want(size_t index);
  void Release(size_t parent, bool firstByte);

  host::VirtualClock& clock_;
  const PagePlan& plan_;
  const std::function<void(size_t)> ask_;
  std::vector<std::vector<size_t>> children_;  // by parent
  std::vector<RequestRow> rows_;
  size_t blocking_ = 0;  // requests that the load event waits for and that are not done
  int64_t startUs_ = 0;
};

}  // namespace replay

#endif  // REPLAY_MODEL_PAGE_LOAD_H_
