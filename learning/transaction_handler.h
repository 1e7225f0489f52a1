// Command type 9: the browser's own network transactions, counted per host. Command thread.
#ifndef LEARNING_TRANSACTION_HANDLER_H_
#define LEARNING_TRANSACTION_HANDLER_H_

#include "plugin/corvane.h"

namespace kiv {

// Returns 1 for the actions 1 (a transaction starts) and 4 (it is done), and 0 for others. A command without
// a URL is ignored, but still returns 1.
int32_t HandleTransaction(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // LEARNING_TRANSACTION_HANDLER_H_
