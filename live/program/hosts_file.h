// A file that says where names lead, in the form of /etc/hosts. Any thread.
#ifndef LIVE_PROGRAM_HOSTS_FILE_H_
#define LIVE_PROGRAM_HOSTS_FILE_H_

#include <string>
#include <vector>

namespace live {

// Lines of an address and the names that lead there, to `port`, or to the port asked for when that is empty;
// "#" begins a comment. As UpstreamSettings::connectTo wants them. Throws std::runtime_error with one line
// that names the file and the line in it.
std::vector<std::string> ReadHostsFile(const std::string& path, const std::string& port = "");

}  // namespace live

#endif  // LIVE_PROGRAM_HOSTS_FILE_H_
