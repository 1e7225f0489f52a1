// Keeps reports from overwriting what is not theirs, before any work is done.
#ifndef REPLAY_OUTPUT_CHECK_H_
#define REPLAY_OUTPUT_CHECK_H_

#include <string>
#include <vector>

namespace replay {

struct PlannedOutput {
  const char* option;     // which asked for it
  std::string path;       // "-" is standard output
  const char* signature;  // by which a file that this program may replace is known
};

// Throws std::runtime_error with one line that names the option and the path, when an output is one of the
// `inputs` by any path or link (standard input and output count, where they are files), when two outputs are
// one file, when one cannot be written, and when a file exists that holds something else than an earlier
// report; `force` allows only the last. Empty files may be replaced. Changes nothing.
void CheckOutputs(const std::vector<PlannedOutput>& outputs, const std::vector<std::string>& inputs,
                  bool force);

}  // namespace replay

#endif  // REPLAY_OUTPUT_CHECK_H_
