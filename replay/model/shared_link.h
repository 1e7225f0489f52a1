// The access link, whose bandwidth all running transfers share. The browser's transfers get equal shares, and
// preloads get what host/link_policy.h leaves them. One thread.
#ifndef REPLAY_MODEL_SHARED_LINK_H_
#define REPLAY_MODEL_SHARED_LINK_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "host/settings.h"
#include "host/task_scope.h"
#include "host/transport.h"
#include "host/virtual_clock.h"

namespace replay {

class SharedLink {
 public:
  SharedLink(host::VirtualClock& clock, double bytesPerUs, const host::HostSettings& settings);

  // Starts a transfer. `done` is called in a task of its own when the last byte has arrived, but not after
  // the link was destroyed. The caller chooses the id.
  void Add(uint64_t id, int64_t bytes, host::Urgency urgency, std::function<void()> done);
  // Has no effect for an id that is not being transferred.
  void SetUrgency(uint64_t id, host::Urgency urgency);
  // Stops a transfer and returns how many of its bytes have arrived.
  int64_t Remove(uint64_t id);

 private:
  // Transfers of one urgency progress equally, so one number describes the progress of all: the bytes that a
  // transfer which has existed from the start would have received. Each transfer ends at a fixed value of it.
  struct Class {
    double progress = 0;
    std::set<std::pair<double, uint64_t>> ends;  // by progress at the end
  };
  struct Flow {
    host::Urgency urgency;
    double bytes;
    double end;  // progress of its class when it is complete
    std::function<void()> done;
  };

  Class& ClassOf(host::Urgency urgency) { return classes_[static_cast<size_t>(urgency)]; }
  double RateOf(host::Urgency urgency) const;  // bytes per microsecond of each transfer
  static void StartOver(Class& flows);
  void Settle();
  void Schedule();
  void Finish();

  host::VirtualClock& clock_;
  const double bytesPerUs_;
  const host::HostSettings settings_;
  std::array<Class, 2> classes_;
  std::map<uint64_t, Flow> flows_;
  int64_t settledUs_ = 0;
  host::Timer wakeUp_;
};

}  // namespace replay

#endif  // REPLAY_MODEL_SHARED_LINK_H_
