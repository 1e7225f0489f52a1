// Checks before any work is done that reports will not overwrite other files.
#ifndef REPLAY_OUTPUT_CHECK_H_
#define REPLAY_OUTPUT_CHECK_H_

#include <string>
#include <vector>

namespace replay {

struct PlannedOutput {
  const char* option;     // that asked for this output
  std::string path;       // "-" is standard output
  const char* signature;  // identifies a file that this option may replace
};

// Throws std::runtime_error with one line that names the option and the path if an output is one of the
// `inputs` by any path or link (standard input and output count if they are files), if two outputs are the
// same file, if an output cannot be written, or if it exists and is not an earlier report. `force` allows
// only the last of these. Empty files may be replaced. Changes nothing.
void CheckOutputs(const std::vector<PlannedOutput>& outputs, const std::vector<std::string>& inputs,
                  bool force);

}  // namespace replay

#endif  // REPLAY_OUTPUT_CHECK_H_
