// Running the event loop until something has happened.
#ifndef TESTS_LIVE_SUPPORT_RUN_UNTIL_H_
#define TESTS_LIVE_SUPPORT_RUN_UNTIL_H_

#include <gtest/gtest.h>

#include <functional>

#include "live/loop/event_loop.h"

namespace tests {

// For 20 seconds at most, which are a failure.
inline void RunUntil(live::EventLoop& loop, const std::function<bool()>& done) {
  bool late = false;
  const host::TaskId end = loop.PostDelayed(20'000'000, [&] { late = true; });
  std::function<void()> look = [&] {
    if (done() || late) return loop.Stop();
    loop.PostDelayed(500, look);
  };
  loop.PostDelayed(0, look);
  loop.Run();
  loop.CancelTask(end);
  EXPECT_FALSE(late) << "it takes too long";
}

}  // namespace tests

#endif  // TESTS_LIVE_SUPPORT_RUN_UNTIL_H_
