// Determines from the arguments of the command line which files are read. Any thread.
#ifndef REPLAY_RECORDINGS_TO_READ_H_
#define REPLAY_RECORDINGS_TO_READ_H_

#include <string>
#include <vector>

namespace replay {

struct RecordingsToRead {
  std::vector<std::string> recordings;  // one path each, in the order of the arguments; "-" is standard input
  std::vector<std::string> lists;       // the files that "@FILE" named
};

// A file stands for itself, whatever its name and whether or not it exists. A folder stands for the files in
// it and its subfolders whose names end in .har, .har.gz or .har.zst (upper or lower case), in the order of
// their paths; links to folders are not followed. "@FILE" stands for the files and folders that the lines of
// FILE name, and "@-" for those that the lines of standard input name. Throws std::runtime_error with one
// line if a folder or a list cannot be read, if a folder has no recording, or if standard input would be read
// twice.
RecordingsToRead FindRecordings(const std::vector<std::string>& arguments);

}  // namespace replay

#endif  // REPLAY_RECORDINGS_TO_READ_H_
