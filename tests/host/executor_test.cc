// The executors: in which order tasks run, on both clocks, and how tasks are called off.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/real_time_executor.h"
#include "host/task_scope.h"
#include "host/virtual_clock.h"

namespace host {
namespace {

// What both promise. `run` runs everything that is posted. The times are far enough apart for a machine that
// is slow to begin.
template <typename Run>
void ExpectTheContract(Executor& executor, const Run& run) {
  std::string ran;
  const auto task = [&ran](const char* name) { return [&ran, name] { ran += name; }; };
  executor.PostDelayed(200'000, task("e"));
  executor.PostDelayed(0, [&] {
    ran += "a";
    executor.PostDelayed(0, task("c"));
    executor.CancelTask(executor.PostDelayed(0, task("never")));
  });
  executor.PostDelayed(0, task("b"));
  const TaskId later = executor.PostDelayed(100'000, task("never"));
  executor.PostDelayed(50'000, [&, later] {
    ran += "d";
    executor.CancelTask(later);
    executor.CancelTask(later);
    executor.CancelTask(12345);
  });
  {
    TaskScope scope(executor);
    Timer timer(executor);
    scope.Post(task("never"));
    timer.Start(0, task("never"));
  }
  TaskScope scope(executor);
  auto timer = std::make_unique<Timer>(executor);
  timer->Start(1, task("never"));
  timer->Start(300'000, [&] {
    ran += "f";
    timer.reset();  // from inside its task
  });
  scope.Post(task("g"), 400'000);
  EXPECT_EQ(ran, "") << "never from inside";
  run();
  EXPECT_EQ(ran, "abcdefg");
}

TEST(Executors, RunTasksByTimeAndThenByOrder) {
  VirtualClock clock;
  ExpectTheContract(clock, [&] { clock.Run(); });
  EXPECT_EQ(clock.NowUs(), 400'000);

  RealTimeExecutor executor;
  const base::Time before = executor.Now();
  ExpectTheContract(executor, [&] {
    executor.PostDelayed(400'000, [&] { executor.Stop(); });
    executor.Run();
  });
  EXPECT_GE(executor.Now().ToInternalValue() - before.ToInternalValue(), 400'000);
}

TEST(Executors, VirtualTimeStopsWhereItIsTold) {
  VirtualClock clock;
  int ran = 0;
  for (const int at : {10, 20, 21}) clock.PostDelayed(at, [&] { ++ran; });
  clock.RunFor(20);
  EXPECT_EQ(ran, 2);
  EXPECT_EQ(clock.NowUs(), 20);
  clock.Run();
  clock.AdvanceTo(5);
  EXPECT_EQ(clock.NowUs(), 21) << "never back";
}

TEST(Executors, AnyThreadMayPostToTheRealOne) {
  RealTimeExecutor executor;
  constexpr int kPosts = 1000;
  int ran = 0;  // on this thread alone
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kPosts; ++i) {
        const TaskId cancelled = executor.PostDelayed(1'000'000'000, [] { FAIL(); });
        executor.PostDelayed(i % 7, [&] {
          if (++ran == 3 * kPosts) executor.Stop();
        });
        executor.CancelTask(cancelled);
      }
    });
  }
  executor.Run();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ran, 3 * kPosts);
}

}  // namespace
}  // namespace host
