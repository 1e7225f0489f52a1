// Building command records in the layout that the plugin reads. A record and its texts belong to whoever
// holds the pointer, until FreeCommand. One thread at a time per record.
#ifndef CORVANE_COMMAND_H_
#define CORVANE_COMMAND_H_

#include "plugin/corvane.h"

namespace corvane {

// A record without parameters.
CorvaneCmd* NewCommand(CorvaneCmdType type, CorvaneActionType action);

// Append one parameter. Text is copied, null stays null; a pointer travels as a number.
void AddNumber(CorvaneCmd* cmd, uint32_t number);
void AddPointer(CorvaneCmd* cmd, const void* pointer);
void AddText(CorvaneCmd* cmd, const char* text);

// Frees the record with its texts. Null is fine.
void FreeCommand(CorvaneCmd* cmd);

}  // namespace corvane

#endif  // CORVANE_COMMAND_H_
