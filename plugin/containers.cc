// The process-wide containers. They are in one file because the language defines their order only within a
// file: each is constructed after, and destroyed before, the ones above it.
#include "cache/preload_cache.h"
#include "learning/host_map.h"
#include "plugin/command_table.h"
#include "reflector/cached_url_map.h"

namespace kiv {

std::map<uint32_t, CachedUrlEntry> CachedUrlMap;
std::map<std::string, HostEntry> HostMap;
std::map<uint32_t, std::unique_ptr<PreloadEntry>> PreloadCache;
std::multimap<uint32_t, std::unique_ptr<PreloadEntry>> ParkedEntries;
base::Lock PreloadLock;
std::vector<CommandEntry> CommandTable;

}  // namespace kiv
