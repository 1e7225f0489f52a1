// Which rule tells best what a page's late requests wait for: the one by which one load predicts another load
// of the same page. Any thread.
#ifndef REPLAY_MODEL_PARENT_CHOICE_H_
#define REPLAY_MODEL_PARENT_CHOICE_H_

#include <optional>
#include <vector>

#include "replay/model/parent_rule.h"
#include "replay/recording/recording.h"

namespace replay {

// From each load to the next one of the same page, and back.
StartErrors CompareRules(const std::vector<const Page*>& loads);

// `rule`: for all pages; nothing to choose for each page the one with the smaller median error. Where the
// loads of a page do not tell, the recording is believed: over the pages that tell, inferring is no better.
ParentChoice ChooseParents(const Recording& recording, std::optional<ParentRule> rule);

}  // namespace replay

#endif  // REPLAY_MODEL_PARENT_CHOICE_H_
