// A network that the test answers by hand: it notes what it is asked for, and the test answers a transfer by
// its place in `transfers`. One thread.
#ifndef TESTS_SUPPORT_SCRIPTED_TRANSPORT_H_
#define TESTS_SUPPORT_SCRIPTED_TRANSPORT_H_

#include <algorithm>
#include <string>
#include <vector>

#include "host/transport.h"

namespace tests {

// A response header block: the lines, separated by line feeds here.
inline net::HttpResponseHeaders ResponseHeaders(const std::string& lines) {
  std::string raw = lines + "\n\n";
  std::replace(raw.begin(), raw.end(), '\n', '\0');
  return net::HttpResponseHeaders(raw);
}
// Those of a response 200, with more lines.
inline net::HttpResponseHeaders Ok(const std::string& lines = "Content-Length: 4") {
  return ResponseHeaders("HTTP/1.1 200 OK" + (lines.empty() ? "" : "\n" + lines));
}

struct ScriptedTransport : host::Transport {
  struct Transfer {
    host::TransferRequest request;
    host::TransferClient* client;  // null once it is cancelled or done
    bool reading = true;
    bool cancelled = false;
  };
  std::vector<Transfer> transfers;
  std::string preconnects;

  host::TransferId Start(const host::TransferRequest& request, host::TransferClient& client) override {
    transfers.push_back({request, &client});
    return transfers.size();
  }
  void SetUrgency(host::TransferId id, host::Urgency urgency) override { At(id).request.urgency = urgency; }
  void SetReading(host::TransferId id, bool reading) override { At(id).reading = reading; }
  host::TransferReport Cancel(host::TransferId id) override {
    At(id).client = nullptr;
    At(id).cancelled = true;
    return {.bodyBytes = 1};
  }
  void Preconnect(const std::string& url, size_t count, net::URLRequestContext*) override {
    preconnects += " " + url + "*" + std::to_string(count);
  }

  // The three things that a server can do. Nothing once the transfer is cancelled.
  void Respond(size_t place, const net::HttpResponseHeaders& headers) {
    if (auto* const client = transfers.at(place).client) client->OnResponse(headers);
  }
  void Body(size_t place, const std::string& bytes) {
    auto* const client = transfers.at(place).client;
    if (client != nullptr) client->OnBody(bytes.data(), static_cast<int32_t>(bytes.size()));
  }
  void Done(size_t place, int32_t result = host::kOk) {
    if (auto* const client = std::exchange(transfers.at(place).client, nullptr)) client->OnDone(result, {});
  }
  void Answer(size_t place, const std::string& body = "body",
              const net::HttpResponseHeaders& headers = Ok()) {
    Respond(place, headers);
    if (!body.empty()) Body(place, body);
    Done(place);
  }

  // "p" or "b" by urgency, and the last word of the URL, of each transfer from the given place on; with "x"
  // in front when it was cancelled.
  std::string Urls(size_t from = 0) const {
    std::string all;
    for (size_t place = from; place < transfers.size(); ++place) {
      const Transfer& transfer = transfers[place];
      const std::string& url = transfer.request.url;
      all += transfer.cancelled ? " x" : " ";
      all +=
          (transfer.request.urgency == host::Urgency::Preload ? "p:" : "b:") + url.substr(url.rfind('/') + 1);
    }
    return all;
  }

 private:
  Transfer& At(host::TransferId id) { return transfers.at(static_cast<size_t>(id - 1)); }
};

}  // namespace tests

#endif  // TESTS_SUPPORT_SCRIPTED_TRANSPORT_H_
