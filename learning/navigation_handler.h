// Command type 3: pages requested, sub-resources seen on them, preloads withdrawn. Command thread.
#ifndef LEARNING_NAVIGATION_HANDLER_H_
#define LEARNING_NAVIGATION_HANDLER_H_

#include "plugin/corvane.h"

namespace kiv {

// Returns 1 for the actions 5 (sub-resource seen), 8 (withdraw the preloads of a URL hash) and 9 (page
// requested), and 0 for others. A command that lacks a required URL is ignored, but still returns 1.
int32_t HandleNavigation(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // LEARNING_NAVIGATION_HANDLER_H_
