// What the plugin asks of Corvane, answered: the running side behind the stand-in's functions. The answers
// are given inside the plugin's own calls, some of them with its lock held, so nothing here calls the plugin.
#ifndef HOST_CORVANE_ANSWERS_H_
#define HOST_CORVANE_ANSWERS_H_

#include <functional>

#include "corvane/api.h"
#include "host/executor.h"
#include "host/settings.h"

namespace host {

// One at a time per process: while it lives, it answers the functions of plugin/corvane.h.
class CorvaneAnswers final : public corvane::Api {
 public:
  // `fetch` is CorvaneFetch; `comeBack` takes over a command that the plugin has posted, with its delay in
  // milliseconds.
  CorvaneAnswers(Executor& executor, const HostSettings& settings,
                 std::function<int(void* cookie, net::URLRequestContext* context)> fetch,
                 std::function<void(CorvaneCmd* cmd, unsigned int delayMs)> comeBack);
  ~CorvaneAnswers() override;
  CorvaneAnswers(const CorvaneAnswers&) = delete;
  CorvaneAnswers& operator=(const CorvaneAnswers&) = delete;

  // Whether the IO message loop and the HTTP cache exist.
  bool networkStackIsUp = false;

  int Fetch(void* cookie, net::URLRequestContext* context) override;
  void* IoMessageLoop() override;
  void* HttpCache() override;
  int MaxSocketsPerGroup() override;
  base::Time SystemTime() override;
  int VerboseLevel() override;
  bool VerboseEnabled() override;
  void CommitDelayed(CorvaneCmd* cmd, unsigned int delay) override;

 private:
  Executor& executor_;
  const HostSettings settings_;
  const std::function<int(void*, net::URLRequestContext*)> fetch_;
  const std::function<void(CorvaneCmd*, unsigned int)> comeBack_;
};

}  // namespace host

#endif  // HOST_CORVANE_ANSWERS_H_
