// The simulated network keeps the contract of all transports, with what it costs and without.
#include "tests/support/transport_contract.h"

#include <map>

#include "replay/model/network_model.h"

namespace replay {
namespace {

TEST(NetworkModel, KeepsTheContractOfTransports) {
  for (const bool costs : {false, true}) {
    SCOPED_TRACE(costs);
    std::map<std::string, Request> server;
    for (const int64_t size : {1000, 300'000, 3'000'000}) {
      const std::string url = "https://a.test/" + std::to_string(size);
      server[url] = {.url = url, .method = "GET", .waitMs = 60, .status = 200, .bodyBytes = size};
      server[url].responseHeaders = std::string("HTTP/1.1 200 OK\0\0", 17);
    }
    host::VirtualClock clock;
    const RecordedNetwork recorded = {{"https://a.test:443", {.secure = true}}};
    const host::HostSettings settings = {.socketsPerGroup = 1};
    const auto find = [&server](const host::TransferRequest& request) {
      const auto found = server.find(request.url);
      return found != server.end() ? &found->second : nullptr;
    };
    tests::ExpectTransportContract({
        .executor = clock,
        .transport = std::make_unique<NetworkModel>(
            clock, NetworkProfile{"test", 100, 8},
            NetworkCosts{.certificates = costs, .nameLookups = costs, .slowStart = costs}, recorded, settings,
            find),
        .server = "https://a.test",
        .run =
            [&clock](const std::function<bool()>& done) {
              for (int milliseconds = 0; milliseconds < 60'000 && !done(); ++milliseconds) clock.RunFor(1000);
            },
    });
  }
}

}  // namespace
}  // namespace replay
