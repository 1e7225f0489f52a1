// What a late request, one that follows its initiator by more than a moment, is taken to wait for. Plain
// values; any thread.
#ifndef REPLAY_MODEL_PARENT_RULE_H_
#define REPLAY_MODEL_PARENT_RULE_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace replay {

enum class ParentRule {
  Recorded,  // what the recording names as its initiator, however long ago that ended
  Inferred,  // the script, stylesheet, data or frame that ended last before it, if that was just before
};

// How far off the starts of another load are that the rules predict, for the requests about which they
// differ.
struct StartErrors {
  std::vector<double> recordedMs;  // one for each request that was compared
  std::vector<double> inferredMs;  // of the same requests
};

// A rule for each page of a recording, by the URL of its request.
struct ParentChoice {
  std::map<std::string, ParentRule> rules;
  StartErrors errors;  // of the pages whose loads could be compared
};

}  // namespace replay

#endif  // REPLAY_MODEL_PARENT_RULE_H_
