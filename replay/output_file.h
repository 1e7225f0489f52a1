// Writes a report to its place, wholly or not at all.
#ifndef REPLAY_OUTPUT_FILE_H_
#define REPLAY_OUTPUT_FILE_H_

#include <string>

namespace replay {

// Replaces the file at `path` in one step; "-" is standard output. What is no regular file (a device, a pipe)
// is written to directly. Throws std::runtime_error with one line that names the file; it is then as before.
void WriteOutput(const std::string& path, const std::string& text);

}  // namespace replay

#endif  // REPLAY_OUTPUT_FILE_H_
