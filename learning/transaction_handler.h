// Command type 9: the browser's own network transactions, counted per host. Command thread.
#ifndef LEARNING_TRANSACTION_HANDLER_H_
#define LEARNING_TRANSACTION_HANDLER_H_

#include "plugin/corvane.h"

namespace kiv {

// Actions 1 (a transaction starts) and 4 (it is done): 1. Others: 0. A command without URL is taken and
// ignored.
int32_t HandleTransaction(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // LEARNING_TRANSACTION_HANDLER_H_
