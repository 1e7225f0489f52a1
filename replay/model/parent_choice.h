// Chooses the rule that determines what a page's late requests wait for: the rule by which one load of the
// page predicts another load best. Any thread.
#ifndef REPLAY_MODEL_PARENT_CHOICE_H_
#define REPLAY_MODEL_PARENT_CHOICE_H_

#include <optional>
#include <vector>

#include "replay/model/parent_rule.h"
#include "replay/recording/recording.h"

namespace replay {

// Compares each load with the next load of the same page, in both directions.
StartErrors CompareRules(const std::vector<const Page*>& loads);

// `rule` is used for all pages. If it is absent, the rule with the smaller median error is chosen for each
// page. If the loads of a page do not show a difference, the recorded initiators are used, because over the
// pages that do, inferring is not better.
ParentChoice ChooseParents(const Recording& recording, std::optional<ParentRule> rule);

}  // namespace replay

#endif  // REPLAY_MODEL_PARENT_CHOICE_H_
