#include "live/program/authority_folder.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace live {

Authority OpenAuthority(const std::string& folder, const std::vector<std::string>& onlyHosts) {
  const std::string place = folder + "/authority.pem";
  const bool exists = std::filesystem::exists(place);
  if (exists && !onlyHosts.empty()) {
    throw std::runtime_error(place + ": exists already; name another folder for one with --only");
  }
  if (!exists) StoreAuthority(MakeAuthority(onlyHosts), folder);
  Authority authority = LoadAuthority(folder);
  std::ofstream file(folder + "/spki");
  file << RootKeyHash(authority) << '\n';
  if (!file.flush()) throw std::runtime_error(folder + "/spki: cannot be written");
  return authority;
}

std::string HowToTrust(const Authority& authority, const std::string& folder) {
  return "The root certificate of the authority is " + folder +
         "/root.pem.\n"
         "Trust it in a browser profile that is used for nothing else:\n\n"
         "  chromium --user-data-dir=/tmp/kiv_profile --proxy-server=127.0.0.1:8080 \\\n"
         "    '--proxy-bypass-list=<-loopback>' \\\n"
         "    --ignore-certificate-errors-spki-list=" +
         RootKeyHash(authority) +
         "\n\n"
         "Nothing was installed in the system. Whoever can read " +
         folder +
         "/authority.pem can\n"
         "impersonate any site to that profile; remove the folder when you have finished.\n";
}

}  // namespace live
