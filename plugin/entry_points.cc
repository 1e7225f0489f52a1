// The exported functions. Each makes sure that the state exists, refuses invalid arguments, calls the folder
// that owns the matter, and lets no exception out.
#include "cache/fetch_callbacks.h"
#include "cache/maintenance.h"
#include "cache/serving.h"
#include "plugin/command_table.h"
#include "plugin/configuration.h"
#include "plugin/kiv_proc_plugin.h"
#include "plugin/plugin_state.h"
#include "plugin/version.h"

namespace {

// Returns what `body` returns, or `refused` if it runs out of memory.
template <typename Result, typename Body>
Result OrElse(Result refused, const Body& body) noexcept {
  try {
    return body();
  } catch (...) {
    return refused;
  }
}

}  // namespace

int32_t OnInit(uint32_t /*value*/) {
  kiv::PluginState& state = kiv::GetPluginState();
  return OrElse(1, [&] { return kiv::ReadConfiguration(state); });
}

int32_t OnGetCmdMask(uint32_t* mask) {
  kiv::GetPluginState();
  uint32_t unwanted = 0;
  return OrElse(1, [&] { return kiv::BuildCommandTable(mask != nullptr ? mask : &unwanted); });
}

int32_t OnCmd(CorvaneCmd* cmd) {
  kiv::GetPluginState();
  if (cmd == nullptr) return 0;
  return OrElse(0, [&] { return kiv::DispatchCommand(cmd); });
}

int32_t OnGetProcInfo(std::string& name, std::string& version) {
  kiv::GetPluginState();
  return OrElse(1, [&] {
    name = "kiv_plugin";
    version = KIV_VERSION;
    return 1;
  });
}

int32_t OnFetchDb() {
  kiv::GetPluginState();
  return 1;
}

int32_t OnFlushDb(uint32_t /*value*/) {
  const kiv::PluginState& state = kiv::GetPluginState();
  return OrElse(1, [&] { return kiv::Flush(state); });
}

int32_t OnClearDb(uint32_t /*value*/) {
  const kiv::PluginState& state = kiv::GetPluginState();
  return OrElse(1, [&] { return kiv::Clear(state); });
}

int32_t IsPreloaderEnabled() {
  const kiv::PluginState& state = kiv::GetPluginState();
  return state.cacheEnabled && state.preloaderEnabled ? 1 : 0;
}

net::HttpRequestInfo* FetchGetRequestInfo(void* cookie) {
  if (cookie == nullptr) return nullptr;
  return OrElse<net::HttpRequestInfo*>(nullptr, [&] { return kiv::FetchGetRequestInfo(cookie); });
}

int32_t FetchStartComplete(void* cookie, const CorvaneFetchResponse* response) {
  if (cookie == nullptr || response == nullptr || response->headers == nullptr) return 0;
  return OrElse(0, [&] { return kiv::FetchStartComplete(cookie, *response->headers); });
}

int32_t FetchReadComplete(void* cookie, const char* bytes, int32_t count) {
  if (cookie == nullptr || bytes == nullptr || count <= 0) return 0;
  return OrElse(0, [&] { return kiv::FetchReadComplete(cookie, bytes, static_cast<uint32_t>(count)); });
}

int32_t FetchDone(void* cookie, int32_t result) {
  if (cookie == nullptr) return 0;
  return OrElse(0, [&] { return kiv::FetchDone(cookie, result); });
}

int32_t IsPreloaded(const char* url, std::string* headers, const char** body, int32_t* length) {
  if (url == nullptr || headers == nullptr || body == nullptr || length == nullptr) return 0;
  return OrElse(0, [&] { return kiv::IsPreloaded(url, *headers, *body, *length); });
}

int32_t ReleasePreloaded(const char* url) {
  if (url == nullptr) return 0;
  return OrElse(0, [&] { return kiv::ReleasePreloaded(url); });
}

int32_t IsInDC(const char* url) {
  if (url == nullptr) return 0;
  return OrElse(0, [&] { return kiv::IsInDC(url); });
}
