// Ctrl-C and its like as a request to finish early. One thread.
#ifndef REPLAY_INTERRUPTION_H_
#define REPLAY_INTERRUPTION_H_

#include <signal.h>

namespace replay {

// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process: they are blocked, except in calls that
// wait with WaitMask(), and the first of them is remembered. Afterwards they act as before, so that a second
// one ends the process at once. One at a time.
class InterruptionWatch {
 public:
  InterruptionWatch();
  ~InterruptionWatch();
  InterruptionWatch(const InterruptionWatch&) = delete;
  InterruptionWatch& operator=(const InterruptionWatch&) = delete;

  // The signals to block while waiting, as ppoll takes them.
  const sigset_t& WaitMask() const { return before_; }
  // Gives a forked child the signals as they were before.
  void LetGoInChild() const;

 private:
  sigset_t before_;
};

// The signal that came while somebody watched; 0 when none did.
int Interruption();

}  // namespace replay

#endif  // REPLAY_INTERRUPTION_H_
