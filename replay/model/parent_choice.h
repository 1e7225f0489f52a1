// Which rule tells best what a page's late requests wait for: the one by which one load predicts another load
// of the same page. Any thread.
#ifndef REPLAY_MODEL_PARENT_CHOICE_H_
#define REPLAY_MODEL_PARENT_CHOICE_H_

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "replay/model/page_plan.h"
#include "replay/recording/recording.h"

namespace replay {

// How far off the starts are that the rules predict, for the requests about which they differ.
struct StartErrors {
  std::vector<double> recordedMs;  // one for each request that was compared
  std::vector<double> inferredMs;  // of the same requests
};

// From each load to the next one of the same page, and back.
StartErrors CompareRules(const std::vector<const Page*>& loads);

// A rule for each page of a recording, by the URL of its request.
struct ParentChoice {
  std::map<std::string, ParentRule> rules;
  size_t chosenPages = 0;  // those whose loads could be compared
  StartErrors errors;      // of these
};

// `rule`: for all pages; nothing to choose for each page the one with the smaller median error. Pages whose
// loads do not tell have their parents inferred, which predicts better on most pages that do.
ParentChoice ChooseParents(const Recording& recording, std::optional<ParentRule> rule);

}  // namespace replay

#endif  // REPLAY_MODEL_PARENT_CHOICE_H_
