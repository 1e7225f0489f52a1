#include "replay/recording/recording_names.h"

#include <algorithm>
#include <map>
#include <set>

namespace replay {
namespace {

// The last `parts` parts of the path, or the whole path if it has no more.
std::string Tail(const std::string& path, size_t parts) {
  size_t begin = path.size();
  for (; parts > 0; --parts) {
    while (begin > 0 && path[begin - 1] == '/') --begin;
    while (begin > 0 && path[begin - 1] != '/') --begin;
  }
  return path.substr(begin);
}

// Lengthens equal names of different paths until they differ. Equal paths keep equal names.
std::map<std::string, std::string> NamesByPath(const std::set<std::string>& paths) {
  std::map<std::string, std::string> names;
  std::set<std::string> open = paths;
  for (size_t parts = 1; !open.empty(); ++parts) {
    std::map<std::string, size_t> uses;
    for (const std::string& path : open) ++uses[names[path] = Tail(path, parts)];
    std::erase_if(open,
                  [&](const std::string& path) { return uses[names[path]] == 1 || names[path] == path; });
  }
  return names;
}

}  // namespace

std::vector<std::string> DistinctNames(const std::vector<std::string>& paths) {
  std::map<std::string, std::string> names = NamesByPath({paths.begin(), paths.end()});
  if (const auto input = names.find("-"); input != names.end()) input->second = "standard input";
  std::map<std::string, size_t> uses;
  std::vector<std::string> distinct;
  distinct.reserve(paths.size());
  for (const std::string& path : paths) {
    const size_t use = ++uses[path];
    distinct.push_back(use == 1 ? names[path] : names[path] + " (" + std::to_string(use) + ")");
  }
  return distinct;
}

}  // namespace replay
