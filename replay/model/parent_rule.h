// What a late request is assumed to wait for. A request is late if it follows its initiator by more than a
// moment. Plain values; any thread.
#ifndef REPLAY_MODEL_PARENT_RULE_H_
#define REPLAY_MODEL_PARENT_RULE_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace replay {

enum class ParentRule {
  Recorded,  // the recorded initiator, however long ago it ended
  Inferred,  // the script, stylesheet, data or frame that ended last, if that was just before the request
};

// The errors with which the rules predict the starts of another load, for the requests on which the rules
// differ.
struct StartErrors {
  std::vector<double> recordedMs;  // one for each request that was compared
  std::vector<double> inferredMs;  // of the same requests
};

// A rule for each page of a recording, by the URL of its request.
struct ParentChoice {
  std::map<std::string, ParentRule> rules;
  StartErrors errors;  // over the pages whose loads could be compared
};

}  // namespace replay

#endif  // REPLAY_MODEL_PARENT_RULE_H_
