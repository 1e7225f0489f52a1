#include "fuzz/fuzz_host.h"

#include <string_view>

#include "android/log.h"
#include "corvane/command.h"
#include "fuzz/check.h"

namespace {

FuzzHost* g_host = nullptr;  // the log's sink carries no context

// What follows the prefix; null when the line is another one.
const char* After(const std::string& line, std::string_view prefix) {
  return line.starts_with(prefix) ? line.c_str() + prefix.size() : nullptr;
}

}  // namespace

FuzzHost::FuzzHost(CacheModel& model) : model_(model) {
  g_host = this;
  corvane::SetApi(this);
  android_log::SetSink(WriteLine);
}

FuzzHost::~FuzzHost() {
  android_log::SetSink(nullptr);
  corvane::SetApi(nullptr);
}

uint32_t FuzzHost::Hash(const char* url) {
  uint32_t index = 0;
  while (index < std::size(kUrls) && std::string_view(kUrls[index]) != url) ++index;
  if (index == std::size(kUrls)) return Api::Hash(url);
  switch (hashing) {
    case Hashing::Own:
      return Api::Hash(url);
    case Hashing::Colliding:
      return 1 + index % 3;
    case Hashing::FromZero:
      return index;
    default:
      return 0xFFFFFFFF - index;
  }
}

int FuzzHost::Fetch(void* cookie, net::URLRequestContext* context) {
  FUZZ_CHECK(context == &contexts[0] || context == &contexts[1]);
  const auto value = reinterpret_cast<uintptr_t>(cookie);
  FUZZ_CHECK(value <= UINT32_MAX);
  if (startsDelayed_.empty()) {
    FUZZ_CHECK(value == Hash(launching_.c_str()));
    model_.Launched(static_cast<uint32_t>(value), launching_, ModelState::Pending, nowMs);
    return fetchAnswer;
  }
  ModelEntry* const entry = model_.Find(value);
  FUZZ_CHECK(entry != nullptr && entry->state == ModelState::Delayed && entry->url + "." == startsDelayed_);
  entry->state = ModelState::Pending;
  startsDelayed_.clear();
  return fetchAnswer;
}

CorvaneCmd* FuzzHost::CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) {
  FUZZ_CHECK(type == 8 && action == 21 && value == 0);
  return canCreateCommands ? Api::CmdCreate(type, action, value) : nullptr;
}

void FuzzHost::CommitDelayed(CorvaneCmd* cmd, unsigned int /*delay*/) {
  posted.push_back(cmd);
}

void FuzzHost::WriteLine(int bufferId, int priority, const char* tag, const char* text) {
  constexpr std::string_view kPrefix = "netstack: KIV_PROC - ";
  FUZZ_CHECK(bufferId == LOG_ID_SYSTEM && tag == nullptr && std::string_view(text).starts_with(kPrefix));
  FUZZ_CHECK(priority >= ANDROID_LOG_DEBUG && priority <= ANDROID_LOG_ERROR);
  g_host->Logged(text + kPrefix.size());
}

void FuzzHost::Logged(const std::string& line) {
  if (const char* const launched = After(line, "Do Preload - ")) {
    launching_ = launched;
  } else if (const char* const delayed = After(line, "Delayed Fetch: ")) {
    FUZZ_CHECK(delayed == launching_ && !(hasLoop && hasHttpCache));
    model_.Launched(Hash(delayed), delayed, ModelState::Delayed, nowMs);
  } else if (const char* const started = After(line, "Process Delayed Fetch: ")) {
    startsDelayed_ = std::string(started) + ".";  // so that the empty URL is one as well
  } else if (const char* const known = After(line, "URL is already in KIV cache ")) {
    FUZZ_CHECK(model_.Find(Hash(known)) != nullptr);
  } else if (const char* const stuck = After(line, "OnFlushDb - Stuck preload: ")) {
    stuckLines.emplace_back(stuck);
  } else if (const char* const left = After(line, "Clean URL cache done (")) {
    FUZZ_CHECK(std::string_view(left) == "0)");
  }
}
