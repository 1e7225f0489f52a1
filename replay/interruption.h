// Turns Ctrl-C and similar signals into a request to finish early. One thread.
#ifndef REPLAY_INTERRUPTION_H_
#define REPLAY_INTERRUPTION_H_

#include <signal.h>

namespace replay {

// While an object of this class exists, SIGINT, SIGTERM and SIGHUP do not end the process: they are blocked,
// except in calls that wait with WaitMask(), and the first of them is remembered. Afterwards they act as
// before, so a second signal ends the process at once. Only one such object may exist at a time.
class InterruptionWatch {
 public:
  InterruptionWatch();
  ~InterruptionWatch();
  InterruptionWatch(const InterruptionWatch&) = delete;
  InterruptionWatch& operator=(const InterruptionWatch&) = delete;

  // The signals to block while waiting; an argument for ppoll.
  const sigset_t& WaitMask() const { return before_; }
  // Restores the earlier signal handling in a forked child.
  void LetGoInChild() const;

 private:
  sigset_t before_;
};

// The signal that was remembered; 0 if there was none.
int Interruption();

}  // namespace replay

#endif  // REPLAY_INTERRUPTION_H_
