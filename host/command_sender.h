// Everything that the host tells the plugin by command. For each command there is a function that builds and
// sends it. Command thread.
#ifndef HOST_COMMAND_SENDER_H_
#define HOST_COMMAND_SENDER_H_

#include <cstdint>
#include <functional>
#include <string>

#include "corvane/command.h"
#include "host/plugin_functions.h"

namespace host {

class CommandSender {
 public:
  // `afterEach` is called after each command that the plugin has handled, to process what the plugin asked
  // for meanwhile. It may send commands.
  CommandSender(const PluginFunctions& plugin, std::function<void()> afterEach);

  // Initialises the plugin and asks for the types that it handles. Commands of other types are not sent.
  void Start();

  void PageRequested(const std::string& url, const std::string& method, const std::string& headers);
  // A page's request was sent: its context and headers are used for its preloads.
  void RequestSeen(const std::string& url, const std::string& headers, net::URLRequestContext* context);
  void ResourceSeen(const std::string& pageUrl, const std::string& url);
  void OrderPreload(const std::string& url, const std::string& pageUrl, uint32_t priority);
  void StartDelayedFetches();
  void TransactionStarted(const std::string& url, uint32_t id);
  void TransactionDone(const std::string& url, uint32_t id);
  void CacheStatus(const std::string& url, bool held);
  // Returns a command to the plugin that has posted it.
  void SendBack(CorvaneCmd* cmd);

  // The plugin's main switch at its initialisation.
  bool IsOn() const { return isOn_; }
  uint64_t CommandCount() const { return commandCount_; }
  // How many commands of the plugin's types it has not handled.
  uint64_t UnansweredCount() const { return unansweredCount_; }

 private:
  void Send(CorvaneCmd* cmd);

  const PluginFunctions& plugin_;
  const std::function<void()> afterEach_;
  uint32_t mask_ = 0;
  bool isOn_ = false;
  uint64_t commandCount_ = 0;
  uint64_t unansweredCount_ = 0;
};

}  // namespace host

#endif  // HOST_COMMAND_SENDER_H_
