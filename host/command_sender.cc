#include "host/command_sender.h"

#include <utility>

#include "plugin/commands.h"
#include "plugin/properties.h"

namespace host {

namespace command = kiv::command;
using corvane::Command;

CommandSender::CommandSender(const PluginFunctions& plugin, std::function<void()> afterEach)
    : plugin_(plugin), afterEach_(std::move(afterEach)) {}

void CommandSender::Start() {
  isOn_ = kiv::ReadProperty(kiv::property::kOn) != 0;
  plugin_.OnInit(0);
  plugin_.OnGetCmdMask(&mask_);
}

void CommandSender::PageRequested(const std::string& url, const std::string& method,
                                  const std::string& headers) {
  Send(Command(command::PageRequested::kId)
           .Set(command::PageRequested::kUrl, url.c_str())
           .Set(command::PageRequested::kMethod, method.c_str())
           .Set(command::PageRequested::kHeaders, headers.c_str())
           .Get());
}

void CommandSender::RequestSeen(const std::string& url, const std::string& headers,
                                net::URLRequestContext* context) {
  Send(Command(command::RequestSeen::kId)
           .Set(command::RequestSeen::kUrl, url.c_str())
           .Set(command::RequestSeen::kHeaders, headers.c_str())
           .Set(command::RequestSeen::kContext, context)
           .Get());
}

void CommandSender::ResourceSeen(const std::string& pageUrl, const std::string& url) {
  Send(Command(command::ResourceSeen::kId)
           .Set(command::ResourceSeen::kPageUrl, pageUrl.c_str())
           .Set(command::ResourceSeen::kUrl, url.c_str())
           .Set(command::ResourceSeen::kNoPreload, 1)  // the browser is about to request it itself
           .Set(command::ResourceSeen::kPreload, 0)
           .Get());
}

void CommandSender::OrderPreload(const std::string& url, const std::string& pageUrl, uint32_t priority) {
  Send(Command(command::OrderPreload::kId)
           .Set(command::OrderPreload::kPriority, priority)
           .Set(command::OrderPreload::kUrl, url.c_str())
           .Set(command::OrderPreload::kPageHash, CorvaneHash(pageUrl.c_str()))
           .Set(command::OrderPreload::kLoadFlags, command::kDefaultLoadFlags)
           .Get());
}

void CommandSender::StartDelayedFetches() {
  Send(Command(command::StartDelayedFetches::kId).Get());
}

void CommandSender::TransactionStarted(const std::string& url, uint32_t id) {
  Send(Command(command::TransactionStarted::kId)
           .Set(command::TransactionStarted::kUrl, url.c_str())
           .Set(command::TransactionStarted::kTransactionId, id)
           .Get());
}

void CommandSender::TransactionDone(const std::string& url, uint32_t id) {
  Send(Command(command::TransactionDone::kId)
           .Set(command::TransactionDone::kUrl, url.c_str())
           .Set(command::TransactionDone::kTransactionId, id)
           .Get());
}

void CommandSender::CacheStatus(const std::string& url, bool held) {
  Send(Command(command::CacheStatus::kId)
           .Set(command::CacheStatus::kUrlHash, CorvaneHash(url.c_str()))
           .Set(command::CacheStatus::kHeld, held ? 1 : 0)
           .Get());
}

void CommandSender::SendBack(CorvaneCmd* cmd) {
  Send(cmd);
}

void CommandSender::Send(CorvaneCmd* cmd) {
  if (!isOn_ || (mask_ >> cmd->type & 1U) == 0) return;
  ++commandCount_;
  if (plugin_.OnCmd(cmd) == 0) ++unansweredCount_;
  afterEach_();
}

}  // namespace host
