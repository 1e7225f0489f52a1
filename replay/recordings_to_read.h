// From the arguments of the command line to the files that are read. Any thread.
#ifndef REPLAY_RECORDINGS_TO_READ_H_
#define REPLAY_RECORDINGS_TO_READ_H_

#include <string>
#include <vector>

namespace replay {

struct RecordingsToRead {
  std::vector<std::string> recordings;  // one path each, in the order of the arguments; "-" is standard input
  std::vector<std::string> lists;       // the files that "@FILE" named
};

// A file stands for itself, whatever its name and whether it exists. A folder stands for the files in it and
// in its folders whose names end in .har, .har.gz or .har.zst in any case, in the order of their paths; links
// to folders are not followed. "@FILE" stands for the files and folders that the lines of FILE name, "@-" for
// those that the lines of standard input name. Throws std::runtime_error with one line when a folder or a
// list cannot be read, when a folder has no recording, and when standard input would be read twice.
RecordingsToRead FindRecordings(const std::vector<std::string>& arguments);

}  // namespace replay

#endif  // REPLAY_RECORDINGS_TO_READ_H_
