#include "live/program/run_proxy.h"

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <boost/asio/signal_set.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "android/log.h"
#include "cutils/properties.h"
#include "host/plugin_functions.h"
#include "live/journal/journal.h"
#include "live/loop/event_loop.h"
#include "live/program/authority_folder.h"
#include "live/program/no_plugin.h"
#include "live/proxy/front/front_server.h"
#include "live/proxy/proxy_engine.h"
#include "live/state/page_store.h"

namespace live {
namespace {

constexpr int64_t kLookForForgottenUs = 1'000'000;
constexpr rlim_t kMostFiles = 16'384;
constexpr size_t kOtherFiles = 512;  // connections to servers and what the libraries open

void Tell(const std::string& message) {
  std::fprintf(stderr, "kiv_proxy: %s\n", message.c_str());
}

// Without a reader the proxy goes on.
void Print(FILE* stream, const std::string& line) {
  std::fprintf(stream, "%s\n", line.c_str());
  std::fflush(stream);
}

int64_t NowUs() {
  using namespace std::chrono;
  return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

void PrintPluginLog(int /*buffer*/, int /*priority*/, const char* /*tag*/, const char* text) {
  std::fprintf(stderr, "%s\n", text);
}

std::string PluginPath(const ProxyOptions& options) {
  if (!options.pluginPath.empty()) return options.pluginPath;
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib" /
         "libkiv_proc_plugin.so";
}

// The plugin, or what stands in for it.
class Plugin {
 public:
  explicit Plugin(const std::string& path) {
    try {
      loaded_.emplace(path);
    } catch (const std::runtime_error& error) {
      Tell(std::string(error.what()) + "; nothing is preloaded");
    }
  }
  const host::PluginFunctions& Functions() const { return loaded_ ? loaded_->Functions() : none_; }

 private:
  std::optional<host::LoadedPlugin> loaded_;
  const host::PluginFunctions none_ = NoPlugin();
};

// Each connection is a file, and by default a program may have few. Returns how many there may be.
size_t RaiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  const rlim_t wanted = std::min(limit.rlim_max, kMostFiles);
  if (limit.rlim_cur < wanted) {
    const rlimit raised{.rlim_cur = wanted, .rlim_max = limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit.rlim_cur = wanted;
  }
  return static_cast<size_t>(std::min(limit.rlim_cur, kMostFiles));
}

EngineSettings SettingsOf(const ProxyOptions& options) {
  EngineSettings settings;
  settings.host.preconnect = options.preconnect;
  settings.host.verboseLevel = options.logLevel.value_or(0);
  settings.upstream.caFile = options.upstreamCa;
  settings.upstream.connectTo = options.connectTo;
  settings.preload = options.preload;
  settings.allowPrivate = options.allowPrivate;
  settings.mark = options.mark;
  return settings;
}

FrontSettings FrontSettingsOf(const ProxyOptions& options) {
  FrontSettings settings;
  settings.address = options.address;
  settings.port = options.port;
  settings.listenAnywhere = options.listenAnywhere;
  settings.password = options.password;
  settings.connectTo = options.connectTo;
  settings.tunnelPorts.insert(settings.tunnelPorts.end(), options.tunnelPorts.begin(),
                              options.tunnelPorts.end());
  settings.upstreamCaFile = options.upstreamCa;
  // A tunnel takes two.
  const size_t files = std::max<size_t>(RaiseFileLimit(), 2 * kOtherFiles);
  settings.maxConnections = std::min(settings.maxConnections, (files - kOtherFiles) / 2);
  if (options.intercept) settings.authority = std::make_shared<Authority>(OpenAuthority(options.caFolder));
  return settings;
}

}  // namespace

void RunProxy(const ProxyOptions& options) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);  // a file that cannot grow is an error of its write
  for (const auto& [name, value] : options.properties) property_set(name.c_str(), value.c_str());
  if (options.logLevel) android_log::SetSink(PrintPluginLog);
  const Plugin plugin(PluginPath(options));
  const EngineSettings settings = SettingsOf(options);

  EventLoop loop;
  boost::asio::signal_set signals(loop.Io(), SIGINT, SIGTERM);
  signals.async_wait([&loop](const boost::system::error_code& error, int /*signal*/) {
    if (!error) loop.Stop();
  });
  FILE* const terminal = options.jsonPath == "-" ? stderr : stdout;
  Journal journal(
      loop, NowUs, [terminal](const std::string& line) { Print(terminal, line); }, Tell);
  PageStore store(options.statePath, settings.host.maxPages, Tell);
  ProxyEngine engine(loop, plugin.Functions(), settings, NowUs, journal.Observer());
  FrontServer front(loop, engine, FrontSettingsOf(options), {.onMessage = Tell});
  // Nothing has been written where it cannot begin.
  journal.Open({.jsonPath = options.jsonPath, .harPath = options.harPath});
  store.Attach(engine.Pages());

  host::Timer lookForForgotten(loop);
  std::function<void()> look = [&] {
    store.FollowOthers();
    lookForForgotten.Start(kLookForForgottenUs, look);
  };
  look();
  Print(stdout, front.Address());
  loop.Run();
}

}  // namespace live
