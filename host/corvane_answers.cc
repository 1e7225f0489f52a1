#include "host/corvane_answers.h"

#include <algorithm>
#include <utility>

namespace host {

CorvaneAnswers::CorvaneAnswers(Executor& executor, const HostSettings& settings,
                               std::function<int(void*, net::URLRequestContext*)> fetch,
                               std::function<void(CorvaneCmd*, unsigned int)> comeBack)
    : executor_(executor), settings_(settings), fetch_(std::move(fetch)), comeBack_(std::move(comeBack)) {
  corvane::SetApi(this);
}

CorvaneAnswers::~CorvaneAnswers() {
  corvane::SetApi(nullptr);
}

int CorvaneAnswers::Fetch(void* cookie, net::URLRequestContext* context) {
  return fetch_(cookie, context);
}

void* CorvaneAnswers::IoMessageLoop() {
  return networkStackIsUp ? this : nullptr;
}

void* CorvaneAnswers::HttpCache() {
  return networkStackIsUp ? this : nullptr;
}

int CorvaneAnswers::MaxSocketsPerGroup() {
  if (settings_.pluginSockets > 0) return settings_.pluginSockets;
  return std::max(settings_.socketsPerGroup - settings_.reservedSockets, 1);
}

base::Time CorvaneAnswers::SystemTime() {
  return executor_.Now();
}

int CorvaneAnswers::VerboseLevel() {
  return settings_.verboseLevel;
}

bool CorvaneAnswers::VerboseEnabled() {
  return settings_.verboseLevel > 0;
}

void CorvaneAnswers::CommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  comeBack_(cmd, delay);
}

}  // namespace host
