// Command type 3: pages requested, sub-resources seen on them, preloads withdrawn. Command thread.
#ifndef LEARNING_NAVIGATION_HANDLER_H_
#define LEARNING_NAVIGATION_HANDLER_H_

#include "plugin/corvane.h"

namespace kiv {

// Actions 5 (sub-resource seen), 8 (withdraw the preloads of a URL hash) and 9 (page requested): 1. Others:
// 0. A command without a URL that it needs is taken and ignored.
int32_t HandleNavigation(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // LEARNING_NAVIGATION_HANDLER_H_
