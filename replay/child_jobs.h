// Runs pieces of work in child processes, several at a time: the plugin's state is process-wide, so every
// recording gets a process of its own. The parent must have one thread.
#ifndef REPLAY_CHILD_JOBS_H_
#define REPLAY_CHILD_JOBS_H_

#include <functional>
#include <string>
#include <vector>

namespace replay {

struct ChildOutcome {
  std::string output;   // what the work returned; complete only when `failure` is empty
  std::string failure;  // empty, or one line with the signal or status that the child ended with
};

// Calls work(0) ... work(count - 1), each in a forked child, `jobs` (at least 1) at a time. `onOutcome` is
// called in the parent with the index and the outcome of each child as it ends, in no particular order.
// `work` must not throw. After an interruption no more children are started, the running ones are killed, and
// none of them has an outcome. Throws std::system_error if no process or pipe can be made, and whatever
// `onOutcome` throws; the children are killed then, too.
void RunInChildren(size_t count, unsigned jobs, const std::function<std::string(size_t)>& work,
                   const std::function<void(size_t, ChildOutcome)>& onOutcome);

}  // namespace replay

#endif  // REPLAY_CHILD_JOBS_H_
