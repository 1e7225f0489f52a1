// Reads a file with the addresses of host names, in the format of /etc/hosts. Any thread.
#ifndef LIVE_PROGRAM_HOSTS_FILE_H_
#define LIVE_PROGRAM_HOSTS_FILE_H_

#include <string>
#include <vector>

namespace live {

// Each line contains an address and names; "#" starts a comment. Returns rules for
// UpstreamSettings::connectTo with `port`, or with the port of the URL if `port` is empty. Throws
// std::runtime_error with one line that names the file and the line in it.
std::vector<std::string> ReadHostsFile(const std::string& path, const std::string& port = "");

}  // namespace live

#endif  // LIVE_PROGRAM_HOSTS_FILE_H_
