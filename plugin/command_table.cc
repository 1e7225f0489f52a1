#include "plugin/command_table.h"

#include <algorithm>
#include <cassert>

#include "learning/navigation_handler.h"
#include "learning/transaction_handler.h"
#include "plugin/plugin_state.h"
#include "preload/prefetch_handler.h"
#include "reflector/cache_status_handler.h"

namespace kiv {
namespace {

constexpr CorvaneActionType kEndOfActions = 23;

constexpr CorvaneActionType kNavigationActions[] = {5, 8, 9, kEndOfActions};
constexpr CorvaneActionType kCacheStatusActions[] = {13, kEndOfActions};
constexpr CorvaneActionType kPrefetchActions[] = {1, 4, 21, 20, kEndOfActions};
constexpr CorvaneActionType kTransactionActions[] = {1, 4, kEndOfActions};

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
      MakeRow(3, HandleNavigation, kNavigationActions),
      MakeRow(2, SetCacheStatus, kCacheStatusActions),
      MakeRow(8, HandlePrefetch, kPrefetchActions),
      MakeRow(9, HandleTransaction, kTransactionActions),
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
