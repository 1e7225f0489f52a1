// The host's answers to the Corvane functions that the plugin calls. The plugin holds its lock during some of
// these calls, so nothing here may call the plugin.
#ifndef HOST_CORVANE_ANSWERS_H_
#define HOST_CORVANE_ANSWERS_H_

#include <functional>

#include "corvane/api.h"
#include "host/executor.h"
#include "host/settings.h"

namespace host {

// While it exists, it answers the functions of plugin/corvane.h. There must be only one in a process.
class CorvaneAnswers final : public corvane::Api {
 public:
  // `fetch` is CorvaneFetch; `comeBack` takes ownership of a command that the plugin has posted, with its
  // delay in milliseconds.
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
