// The text of --sweep. Any thread.
#ifndef REPLAY_SWEEP_OPTION_H_
#define REPLAY_SWEEP_OPTION_H_

#include <string>
#include <vector>

namespace replay {

struct SweepRequest {
  std::string name;                 // of a property or an option, not checked
  std::vector<std::string> values;  // from two to 64, each once
};

// "NAME=VALUE,VALUE,..." or "NAME=FIRST..LAST", which stands for the whole numbers between them. Throws
// std::runtime_error with what is wrong.
SweepRequest ParseSweep(const std::string& text);

}  // namespace replay

#endif  // REPLAY_SWEEP_OPTION_H_
