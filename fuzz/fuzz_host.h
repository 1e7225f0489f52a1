// The host of the plugin's fuzz target: answers from fields, and keeps the model up to date with what the
// plugin launches. One thread.
#ifndef FUZZ_FUZZ_HOST_H_
#define FUZZ_FUZZ_HOST_H_

#include <string>
#include <vector>

#include "corvane/api.h"
#include "fuzz/cache_model.h"
#include "net/url_request/url_request_context.h"

class FuzzHost : public corvane::Api {
 public:
  explicit FuzzHost(CacheModel& model);
  ~FuzzHost() override;
  FuzzHost(const FuzzHost&) = delete;
  FuzzHost& operator=(const FuzzHost&) = delete;

  // Every URL that is ever sent, in two groups per host, one of no host and the empty one.
  static constexpr const char* kUrls[] = {
      "http://page.test/", "http://page.test/2", "http://a.test/1", "http://a.test/2",
      "https://a.test/3",  "http://b.test:81/4", "no host",         ""};

  // How texts are hashed: as the stand-in does, few hashes for all, none and up, or from the highest down.
  enum class Hashing : uint8_t { Own, Colliding, FromZero, FromHighest };
  Hashing hashing = Hashing::Own;
  int fetchAnswer = 1;
  bool hasLoop = true;
  bool hasHttpCache = true;
  int maxSockets = 6;
  int64_t nowMs = 1'000'000;
  bool verboseEnabled = true;
  bool canCreateCommands = true;
  net::URLRequestContext contexts[2];

  // --- What the plugin did since the test last emptied it
  std::vector<std::string> stuckLines;  // what follows "Stuck preload: "
  std::vector<CorvaneCmd*> posted;      // the test's to free

  uint32_t Hash(const char* url) override;
  int Fetch(void* cookie, net::URLRequestContext* context) override;
  void* IoMessageLoop() override { return hasLoop ? this : nullptr; }
  void* HttpCache() override { return hasHttpCache ? this : nullptr; }
  int MaxSocketsPerGroup() override { return maxSockets; }
  base::Time SystemTime() override { return base::Time::FromInternalValue(nowMs * 1000); }
  int VerboseLevel() override { return 4; }  // the model follows the lines
  bool VerboseEnabled() override { return verboseEnabled; }
  CorvaneCmd* CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) override;
  void CommitDelayed(CorvaneCmd* cmd, unsigned int delay) override;

 private:
  static void WriteLine(int bufferId, int priority, const char* tag, const char* text);
  void Logged(const std::string& line);

  CacheModel& model_;
  std::string launching_;      // the URL of the last "Do Preload" line
  std::string startsDelayed_;  // the URL whose delayed fetch starts next
};

#endif  // FUZZ_FUZZ_HOST_H_
