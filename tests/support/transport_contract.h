// What every transport promises, whatever is behind it: run against each of them.
#ifndef TESTS_SUPPORT_TRANSPORT_CONTRACT_H_
#define TESTS_SUPPORT_TRANSPORT_CONTRACT_H_

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/executor.h"
#include "host/transport.h"

namespace tests {

// A transport with one server behind it that answers "/1000" with 1000 bytes and "/missing" with 404. One
// connection at a time leads to it.
struct TransportWorld {
  host::Executor& executor;
  std::unique_ptr<host::Transport> transport;
  std::string server;                                          // "http://a.test"
  std::function<void(const std::function<bool()>& done)> run;  // until it is done, or nothing more happens
};

struct ContractClient : host::TransferClient {
  std::string heard;
  int64_t bodyBytes = 0;
  int32_t result = 1;  // until the end
  host::TransferReport report;
  std::function<void()> onResponse, onBody, onDone;

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    heard += std::to_string(headers.response_code());
    if (onResponse) onResponse();
  }
  void OnBody(const char* bytes, int32_t count) override {
    EXPECT_TRUE(bytes != nullptr && count > 0);
    if (heard.back() != 'b') heard += " b";
    bodyBytes += count;
    if (onBody) onBody();
  }
  void OnDone(int32_t ended, const host::TransferReport& now) override {
    heard += " done";
    result = ended;
    report = now;
    if (onDone) onDone();
  }
};

inline void ExpectTransportContract(TransportWorld world) {
  using host::Urgency;
  host::Transport& transport = *world.transport;
  std::deque<ContractClient> clients;
  std::vector<host::TransferId> ids;
  const auto start = [&](const std::string& path, Urgency urgency = Urgency::Browser) -> ContractClient& {
    ContractClient& client = clients.emplace_back();
    ids.push_back(transport.Start({.url = world.server + path, .method = "GET", .urgency = urgency}, client));
    EXPECT_NE(ids.back(), 0u);
    EXPECT_EQ(client.heard, "") << "never from inside";
    return client;
  };
  const auto runUntilDone = [&](const ContractClient& client) {
    world.run([&] { return client.result != 1; });
  };

  {
    SCOPED_TRACE("the whole response, and when it came");
    for (const auto& [path, heard, size] : {std::tuple("/1000", "200 b done", 1000),
                                            {"/300000", "200 b done", 300'000},
                                            {"/missing", "404", 0}}) {
      const ContractClient& client = start(path);
      runUntilDone(client);
      EXPECT_TRUE(client.heard.starts_with(heard) && client.heard.ends_with(" done")) << path << client.heard;
      EXPECT_EQ(client.result, host::kOk);
      EXPECT_TRUE(size == 0 || client.bodyBytes == size) << path;
      EXPECT_EQ(client.report.bodyBytes, client.bodyBytes);
      const host::TransferReport& report = client.report;
      const base::Time times[] = {report.started, report.connect, report.sent, report.firstByte,
                                  report.ended};
      for (size_t i = 1; i < std::size(times); ++i) EXPECT_LE(times[i - 1], times[i]) << path << " " << i;
    }
  }
  {
    SCOPED_TRACE("what is cancelled is heard of no more, and what is unknown is ignored");
    ContractClient& early = start("/1000");
    transport.Cancel(ids.back());
    ContractClient& late = start("/300000");
    const host::TransferId lateId = ids.back();
    late.onResponse = [&] { transport.Cancel(lateId); };
    const ContractClient& other = start("/1000");
    runUntilDone(other);
    EXPECT_EQ(early.heard, "");
    EXPECT_EQ(late.heard, "200");
    for (const host::TransferId id : {lateId, host::TransferId{123456}}) {
      transport.SetUrgency(id, Urgency::Preload);
      transport.SetReading(id, false);
      EXPECT_EQ(transport.Cancel(id).bodyBytes, 0);
    }
  }
  {
    SCOPED_TRACE("clients act from inside their callbacks");
    ContractClient& client = start("/300000");
    const host::TransferId own = ids.back();
    bool paused = false;
    client.onResponse = [&] { start("/1000"); };
    client.onBody = [&] {
      if (std::exchange(paused, true)) return;
      transport.SetReading(own, false);
      transport.SetReading(own, true);
      transport.SetUrgency(own, Urgency::Preload);
      start("/1000");
    };
    client.onDone = [&] { transport.Cancel(own), start("/1000"); };
    const size_t before = clients.size();
    world.run([&] { return clients.size() == before + 3 && clients.back().result != 1; });
    EXPECT_EQ(clients.size(), before + 3);
    for (size_t i = before - 1; i < clients.size(); ++i) EXPECT_EQ(clients[i].result, host::kOk);
  }
  {
    SCOPED_TRACE("no body while the client does not read");
    ContractClient& slow = start("/3000000");
    const host::TransferId slowId = ids.back();
    slow.onResponse = [&] { transport.SetReading(slowId, false); };
    world.run([&] { return slow.heard == "200"; });
    bool later = false;
    world.executor.PostDelayed(50'000, [&] { later = true; });
    world.run([&] { return later; });
    EXPECT_EQ(slow.heard, "200");
    transport.SetReading(slowId, true);
    runUntilDone(slow);
    EXPECT_EQ(slow.bodyBytes, 3'000'000);
  }
  {
    SCOPED_TRACE("one connection: the browser's transfers come before the preloads that wait");
    std::string order;
    const auto noted = [&](const char* name, const char* path, Urgency urgency) {
      ContractClient& client = start(path, urgency);
      client.onResponse = [&order, name] { order += name; };
    };
    noted("1", "/300000", Urgency::Preload);
    bool begun = false;
    clients.back().onBody = [&] { begun = true; };
    world.run([&] { return begun; });
    noted("5", "/1000", Urgency::Preload);
    noted("3", "/1000", Urgency::Browser);
    noted("4", "/1000", Urgency::Preload);
    noted("6", "/1000", Urgency::Preload);
    transport.SetUrgency(ids[ids.size() - 2], Urgency::Browser);
    ContractClient& last = clients.back();
    runUntilDone(last);
    EXPECT_TRUE(order == "13456" || order == "13465") << order;
  }
  {
    SCOPED_TRACE("a connection ahead of its use");
    transport.Preconnect(world.server + "/", 1, nullptr);
    const ContractClient& client = start("/1000");
    runUntilDone(client);
    EXPECT_EQ(client.result, host::kOk);
  }
  {
    SCOPED_TRACE("the transport goes in the middle of everything");
    ContractClient& running = start("/3000000");
    ContractClient& waiting = start("/1000");
    bool begun = false;
    running.onBody = [&] { begun = true; };
    world.run([&] { return begun; });
    transport.Preconnect(world.server + "/", 3, nullptr);
    world.transport.reset();
    running.heard = waiting.heard = "";
    bool later = false;
    world.executor.PostDelayed(20'000, [&] { later = true; });
    world.run([&] { return later; });
    EXPECT_EQ(running.heard + waiting.heard, "");
  }
}

}  // namespace tests

#endif  // TESTS_SUPPORT_TRANSPORT_CONTRACT_H_
