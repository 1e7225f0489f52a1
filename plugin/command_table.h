// The command table: which handler answers which command type and actions. Command thread.
#ifndef PLUGIN_COMMAND_TABLE_H_
#define PLUGIN_COMMAND_TABLE_H_

#include <array>
#include <cstdint>
#include <vector>

#include "plugin/corvane.h"

namespace kiv {

// Handles one command, which is only valid during the call. The result is returned to the host unchanged.
using CommandHandler = int32_t (*)(CorvaneCmd* cmd);

struct CommandEntry {
  CorvaneCmdType commandType;
  CommandHandler handler;
  std::array<CorvaneActionType, 10> actions;
  uint32_t actionCount;  // how many of `actions` are in use
};

// The rows, in the order in which they are searched.
extern std::vector<CommandEntry> CommandTable;

// Appends the four rows and sets the bits 1 << type of the mask. Throws if there is no memory; the mask is
// then 0 and the table is unchanged. Always returns 1.
int32_t BuildCommandTable(uint32_t* mask);

// Calls the handler of the first row that lists the command's type and action. Returns 0 if there is none, or
// while the plugin is switched off.
int32_t DispatchCommand(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // PLUGIN_COMMAND_TABLE_H_
