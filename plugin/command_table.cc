#include "plugin/command_table.h"

#include <algorithm>
#include <cassert>

#include "learning/navigation_handler.h"
#include "learning/transaction_handler.h"
#include "plugin/commands.h"
#include "plugin/plugin_state.h"
#include "preload/prefetch_handler.h"
#include "reflector/cache_status_handler.h"

namespace kiv {
namespace {

using namespace command;

constexpr CorvaneActionType kEndOfActions = 23;

constexpr CorvaneActionType kNavigationActions[] = {ResourceSeen::kId.action, WithdrawPreloads::kId.action,
                                                    PageRequested::kId.action, kEndOfActions};
constexpr CorvaneActionType kCacheStatusActions[] = {CacheStatus::kId.action, kEndOfActions};
constexpr CorvaneActionType kPrefetchActions[] = {RequestSeen::kId.action, CheckPreloads::kId.action,
                                                  OrderPreload::kId.action, StartDelayedFetches::kId.action,
                                                  kEndOfActions};
constexpr CorvaneActionType kTransactionActions[] = {TransactionStarted::kId.action,
                                                     TransactionDone::kId.action, kEndOfActions};

CommandEntry MakeRow(CorvaneCmdType type, CommandHandler handler, const CorvaneActionType* actions) {
  CommandEntry row = {type, handler, {}, 0};
  for (; *actions != kEndOfActions; ++actions) {
    assert(row.actionCount < row.actions.size());
    row.actions[row.actionCount++] = *actions;
  }
  return row;
}

bool Answers(const CommandEntry& row, CorvaneCmdType type, CorvaneActionType action) {
  if (row.commandType != type || row.handler == nullptr) return false;
  const auto end = row.actions.begin() + row.actionCount;
  return std::find(row.actions.begin(), end, action) != end;
}

}  // namespace

int32_t BuildCommandTable(uint32_t* mask) {
  *mask = 0;
  const CommandEntry rows[] = {
      MakeRow(kPageType, HandleNavigation, kNavigationActions),
      MakeRow(kDiskCacheType, SetCacheStatus, kCacheStatusActions),
      MakeRow(kPreloadType, HandlePrefetch, kPrefetchActions),
      MakeRow(kTransactionType, HandleTransaction, kTransactionActions),
  };
  CommandTable.insert(CommandTable.end(), std::begin(rows), std::end(rows));  // all four or none
  for (const CommandEntry& row : rows) *mask |= 1U << row.commandType;
  return 1;
}

int32_t DispatchCommand(CorvaneCmd* cmd) {
  if (!GetPluginState().enabled) return 0;
  for (const CommandEntry& row : CommandTable) {
    if (Answers(row, cmd->type, cmd->action)) return row.handler(cmd);
  }
  return 0;
}

}  // namespace kiv
