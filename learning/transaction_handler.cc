#include "learning/transaction_handler.h"

#include <string>
#include <utility>

#include "learning/host_map.h"
#include "plugin/command_params.h"
#include "plugin/log.h"
#include "preload/preload_queue.h"
#include "preload/preload_scheduling.h"

namespace kiv {
namespace {

using namespace command;

void HandleStarted(const CommandParams& params) {
  const char* const url = params[TransactionStarted::kUrl];
  const uint32_t id = params[TransactionStarted::kTransactionId];
  if (url == nullptr) return;

  const uint32_t urlHash = CorvaneHash(url);
  CachedUrlEntry transaction = {.url = url};
  HostEntry& host = HostMap[HostKey(transaction.url)];
  RemoveFromQueue(host, urlHash);  // the browser was faster than the queue
  KIV_DEBUG("Start NET trans (%08X): %s", id, url);
  host.transactions.try_emplace(id, std::move(transaction));
}

void HandleDone(const CommandParams& params) {
  const char* const url = params[TransactionDone::kUrl];
  const uint32_t id = params[TransactionDone::kTransactionId];
  if (url == nullptr) return;

  if (HostEntry* const host = FindHost(HostKey(url))) host->transactions.erase(id);
  KIV_DEBUG("NET trans (%08X) done: %s", id, url);
  CheckPreload();
}

}  // namespace

int32_t HandleTransaction(CorvaneCmd* cmd) {
  const CommandParams params(cmd);
  switch (cmd->action) {
    case TransactionStarted::kId.action:
      HandleStarted(params);
      return 1;
    case TransactionDone::kId.action:
      HandleDone(params);
      return 1;
    default:
      return 0;
  }
}

}  // namespace kiv
