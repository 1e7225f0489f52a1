// The folder of the certificate authority that a browser is told to trust. Any thread.
#ifndef LIVE_PROGRAM_AUTHORITY_FOLDER_H_
#define LIVE_PROGRAM_AUTHORITY_FOLDER_H_

#include <string>
#include <vector>

#include "live/proxy/ca/authority.h"

namespace live {

// Reads the authority in the folder, or makes one if there is none; `onlyHosts` is for a new one. Also writes
// the file "spki" with the value for Chromium's --ignore-certificate-errors-spki-list. Throws
// std::runtime_error with one line.
Authority OpenAuthority(const std::string& folder, const std::vector<std::string>& onlyHosts = {});

// Several lines that say how to make a browser profile trust it.
std::string HowToTrust(const Authority& authority, const std::string& folder);

}  // namespace live

#endif  // LIVE_PROGRAM_AUTHORITY_FOLDER_H_
