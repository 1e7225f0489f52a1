// The command table: which handler answers which command type and actions. Command thread.
#ifndef PLUGIN_COMMAND_TABLE_H_
#define PLUGIN_COMMAND_TABLE_H_

#include <array>
#include <cstdint>
#include <vector>

#include "plugin/corvane.h"

namespace kiv {

// Takes the command for the length of the call; its result goes back to the host unchanged.
using CommandHandler = int32_t (*)(CorvaneCmd* cmd);

struct CommandEntry {
  CorvaneCmdType commandType;
  CommandHandler handler;
  std::array<CorvaneActionType, 10> actions;
  uint32_t actionCount;  // how many of `actions` are in use
};

// The rows, in the order in which dispatch looks at them.
extern std::vector<CommandEntry> CommandTable;

// Appends the four rows and writes their mask, bits 1 << type. Without memory for the rows it throws, with
// the mask 0 and the table as it was. Always 1.
int32_t BuildCommandTable(uint32_t* mask);

// Calls the handler of the first row that lists the command's type and action; 0 when there is none, or while
// the plugin is switched off.
int32_t DispatchCommand(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // PLUGIN_COMMAND_TABLE_H_
