#include "learning/navigation_handler.h"

#include <cstring>
#include <string>

#include "learning/host_map.h"
#include "net/http/http_request_headers.h"
#include "plugin/command_params.h"
#include "plugin/log.h"
#include "plugin/plugin_state.h"
#include "preload/preload_queue.h"
#include "reflector/cached_url_map.h"

namespace kiv {
namespace {

using namespace command;

// Asks the host to send the page's own URL back as a preload order. The order is ignored if the request is
// seen in the meantime.
void PostBypass(const char* url, const char* headers) {
  CorvaneCmd* const cmd = CorvaneCmdCreate(OrderPreload::kId.type, OrderPreload::kId.action, 0);
  if (cmd == nullptr) return;
  CorvaneCmdAddParamAsUint32(cmd, kDefaultPriority);
  CorvaneCmdAddParamAsString(cmd, url);
  CorvaneCmdAddParamAsUint32(cmd, 0);  // no page
  CorvaneCmdAddParamAsUint32(cmd, kDefaultLoadFlags);
  CorvaneCmdAddParamAsString(cmd, headers);
  CorvaneCmdCommitDelayed(cmd, static_cast<unsigned int>(GetPluginState().bypassDelay));
}

void HandlePageRequested(const CommandParams& params) {
  const char* const url = params[PageRequested::kUrl];
  const char* const method = params[PageRequested::kMethod];
  const char* const headers = params[PageRequested::kHeaders];
  if (url == nullptr) return;

  const uint32_t urlHash = CorvaneHash(url);
  if (method == nullptr || std::strcmp(method, net::HttpRequestHeaders::kGetMethod) != 0) {
    KIV_DEBUG("Not GET method: %s", url);
    return;
  }
  const auto known = CachedUrlMap.find(urlHash);
  if (known == CachedUrlMap.end()) {
    KIV_DEBUG("Main URL: %s", url);
    AddToCacheReflector(urlHash, url, 0);
  } else if (known->second.state == 0 && GetPluginState().bypassEnabled) {
    PostBypass(url, headers);
  }
}

void HandleResourceSeen(const CommandParams& params) {
  const char* const pageUrl = params[ResourceSeen::kPageUrl];
  const char* const url = params[ResourceSeen::kUrl];
  const bool wantsPreload = params[ResourceSeen::kNoPreload] == 0 && params[ResourceSeen::kPreload] != 0;
  if (pageUrl == nullptr || url == nullptr) return;

  const uint32_t pageHash = CorvaneHash(pageUrl);
  const uint32_t urlHash = CorvaneHash(url);
  if (CachedUrlMap.contains(urlHash)) return;
  if (wantsPreload) {
    KIV_INFO("Delayed preload : %s", url);
    SetForPreload(url, pageHash, kDefaultPriority, kDefaultLoadFlags, std::string());
  }
  AddToCacheReflector(urlHash, url, pageHash);
}

void HandleWithdrawPreloads(const CommandParams& params) {
  const uint32_t urlHash = params[WithdrawPreloads::kUrlHash];
  const auto known = CachedUrlMap.find(urlHash);
  if (known == CachedUrlMap.end()) return;
  known->second.state = 2;
  if (HostEntry* const host = FindHost(HostKey(known->second.url))) RemoveFromQueue(*host, urlHash);
}

}  // namespace

int32_t HandleNavigation(CorvaneCmd* cmd) {
  const CommandParams params(cmd);
  switch (cmd->action) {
    case PageRequested::kId.action:
      HandlePageRequested(params);
      return 1;
    case ResourceSeen::kId.action:
      HandleResourceSeen(params);
      return 1;
    case WithdrawPreloads::kId.action:
      HandleWithdrawPreloads(params);
      return 1;
    default:
      return 0;
  }
}

}  // namespace kiv
