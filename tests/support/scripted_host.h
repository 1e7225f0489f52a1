// The one fake host of the plugin's tests: it loads the real library, sends it commands, answers its calls
// from settable fields, and records every log line and every call that has an effect, in order. Any thread
// may record; everything else belongs to the test's thread.
#ifndef TESTS_SUPPORT_SCRIPTED_HOST_H_
#define TESTS_SUPPORT_SCRIPTED_HOST_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "corvane/api.h"
#include "host/plugin_functions.h"
#include "net/http/http_request_info.h"
#include "net/url_request/url_request_context.h"
#include "plugin/commands.h"

namespace tests {

using namespace kiv::command;

// One parameter of a command, as a test writes it: 5, "text", nullptr (a null text), &context, or kAbsent for
// a place of the record's array that points nowhere.
class Param {
 public:
  struct Absent {};

  Param(uint32_t number) : value_(number) {}
  Param(int number) : value_(static_cast<uint32_t>(number)) {}
  Param(const char* text) : text_(text) {}
  Param(const std::string& text) : text_(text) {}
  Param(net::URLRequestContext* context) : value_(reinterpret_cast<uintptr_t>(context)) {}
  Param(std::nullptr_t) {}
  Param(Absent) : absent_(true) {}

 private:
  friend class ScriptedHost;

  bool absent_ = false;
  uintptr_t value_ = 0;
  std::optional<std::string> text_;
};

inline constexpr Param::Absent kAbsent;
using Params = std::vector<Param>;

inline constexpr char kPage[] = "http://page.test/";  // that Launch learns
inline constexpr char kUrl[] = "http://a.test/1";

// A raw response header block: the lines, each ended by a NUL byte, and one more NUL.
std::string RawHeaders(const std::vector<std::string>& lines);
// Those of a response 200 with one further line, its length.
inline std::string OkHeaders(int64_t length) {
  return RawHeaders({"HTTP/1.1 200 OK", "Content-Length: " + std::to_string(length)});
}

// What IsPreloaded left in its outputs; `body` is empty when nothing was lent.
struct Answer {
  int32_t result;
  std::string headers;
  const char* bytes;
  int32_t length;

  std::string body() const { return bytes != nullptr ? std::string(bytes, size_t(length)) : std::string(); }
};

class ScriptedHost : public corvane::Api {
  std::optional<::host::LoadedPlugin> library_;  // first, because `plugin` below is filled from it

 public:
  // Loads the library anew, with no property set. It is unloaded, with all that it holds, by the destructor.
  ScriptedHost();
  ~ScriptedHost() override;
  ScriptedHost(const ScriptedHost&) = delete;
  ScriptedHost& operator=(const ScriptedHost&) = delete;

  // --- What the host answers
  int verbosity = 4;
  bool verboseEnabled = true;
  int maxSockets = 6;
  bool hasLoop = true;
  bool hasHttpCache = true;
  int fetchAnswer = 1;
  bool canCreateCommands = true;
  int64_t nowMs = 1'000'000;
  std::map<std::string, uint32_t> hashes;  // by URL, to force an order or a collision
  bool recordQuestions = false;            // also record calls that merely ask (sockets, loop, cache, time)

  // The requests' contexts; the record calls them by their index.
  net::URLRequestContext contexts[3];

  // --- The plugin. Its functions (before which a test may put its own), and the road to them in the host's
  // language.
  ::host::PluginFunctions plugin;

  // Sets properties by their last word ("cslimit"), initialises the plugin, asks for its mask, and forgets
  // what was recorded meanwhile.
  void Start(const std::vector<std::pair<std::string, std::string>>& properties = {});

  // Runs one command, its parameters given by position. Its texts are gone when this returns.
  int32_t Send(kiv::CommandId id, const Params& params = {});
  template <typename Command>
  int32_t Send(const Params& params = {}) {
    return Send(Command::kId, params);
  }
  // The same for one that has to be accepted: what was recorded since the last Take.
  template <typename Command>
  std::string Sent(const Params& params = {}) {
    EXPECT_EQ(Send(Command::kId, params), 1);
    return Take();
  }

  // A page is requested, and its request seen with context 0 and header text "X: y".
  void Learn(const std::string& page);
  // Orders the preload of a URL on behalf of a page.
  void Order(const std::string& url, const std::string& page, uint32_t priority = 512, uint32_t flags = 0);
  // Learns kPage and has a preload launched for it. Forgets what was recorded meanwhile.
  void Launch(const std::string& url);

  // The four callbacks of the fetch of a URL.
  void* Cookie(const std::string& url);
  std::unique_ptr<net::HttpRequestInfo> RequestInfo(const std::string& url);
  int32_t StartComplete(const std::string& url, const std::string& rawHeaders);
  int32_t Read(const std::string& url, const std::string& bytes);
  int32_t Done(const std::string& url, int32_t result = 0);
  // All four, for a response 200 that declares its length; each one has to be accepted.
  void FetchOk(const std::string& url, const std::string& body, std::vector<std::string> headerLines = {});
  // Launch and FetchOk.
  void Preload(const std::string& url, const std::string& body, std::vector<std::string> headerLines = {});

  // Asks IsPreloaded with outputs that hold "untouched", null and -1.
  Answer Ask(const std::string& url);

  // --- What was recorded since the last Take, one line each:
  //   "D ...", "I ...", "W ...", "E ..."       a log line, without the prefix that all share
  //   "Fetch <url> context <index>"            the cookie is shown as the first text sent that has its hash
  //   "CmdCreate 8 21 0", "Commit 50: 512, <url>, 0, 8388608, <headers>"
  //   "MaxSockets", "IoMessageLoop", "HttpCache", "SystemTime"   with recordQuestions
  std::string Take();

  // --- corvane::Api
  uint32_t Hash(const char* url) override;
  int Fetch(void* cookie, net::URLRequestContext* context) override;
  void* IoMessageLoop() override { return Asked("IoMessageLoop", hasLoop); }
  void* HttpCache() override { return Asked("HttpCache", hasHttpCache); }
  int MaxSocketsPerGroup() override { return Asked("MaxSockets"), maxSockets; }
  base::Time SystemTime() override {
    return Asked("SystemTime"), base::Time::FromInternalValue(nowMs * 1000);
  }
  int VerboseLevel() override { return verbosity; }
  bool VerboseEnabled() override { return verboseEnabled; }
  CorvaneCmd* CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) override;
  void CommitDelayed(CorvaneCmd* cmd, unsigned int delay) override;

 protected:
  // The sink of the log while this host lives.
  static void WriteLine(int bufferId, int priority, const char* tag, const char* text);

 private:
  void Record(const std::string& line);
  void* Asked(const char* question, bool exists = true);

  std::map<uint32_t, std::string> sentTexts_;  // by hash, the first one of each
  std::vector<CorvaneCmd*> posted_;
  std::mutex mutex_;
  std::string record_;
};

// A test with a host whose library was loaded just now, and started with no property set.
class PluginTest : public testing::Test {
 protected:
  PluginTest() { host.Start(); }

  ScriptedHost host;
};

}  // namespace tests

#endif  // TESTS_SUPPORT_SCRIPTED_HOST_H_
