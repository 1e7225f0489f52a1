// A front server, a handler that does what the test says, and clients that send any bytes.
#ifndef TESTS_LIVE_PROXY_FRONT_FRONT_FIXTURE_H_
#define TESTS_LIVE_PROXY_FRONT_FRONT_FIXTURE_H_

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "live/loop/event_loop.h"
#include "live/proxy/front/front_server.h"
#include "live/proxy/request_handler.h"
#include "tests/live/support/raw_client.h"

namespace tests {

// What the handler answers.
struct Reply {
  std::vector<std::string> informational;  // heads, written as in `head`
  std::string head = "HTTP/1.1 200 OK\n";  // lines with '\n'; empty for no response at all
  std::vector<std::string> body;
  int32_t result = host::kOk;
  bool waits = false;  // for Answer instead of going on by itself
};

// Reads each upload to its end (or to its failure), answers, and keeps what it was asked. Body pieces are
// handed out while the front reads.
class ScriptedHandler final : public live::RequestHandler {
 public:
  explicit ScriptedHandler(live::EventLoop& loop) : loop_(loop) {}

  host::LoadId Start(const live::BrowserRequest& request, host::LoadClient& client) override;
  void Cancel(host::LoadId id) override;
  void SetReading(host::LoadId id, bool reading) override;
  live::AddressRule AddressesFor(const live::BrowserRequest& request) override {
    tunnelled = request.url + "|" + request.headers;
    return addressRule;
  }

  // By URL; others are answered with what was asked, so that answers cannot be mixed up unseen.
  std::map<std::string, Reply> replies;
  // Instead of `body`: pieces are made as long as they are asked for; empty ends the body.
  std::function<std::string()> nextPiece;
  live::AddressRule addressRule;  // of upgrades
  std::string tunnelled;          // "URL|header lines" of the last upgrade
  bool readsUploads = true;       // while false, an upload waits

  void Answer(host::LoadId id);  // one that waits
  void ReadUploads();            // again

  std::vector<std::string>
      asked;  // "METHOD URL|header lines|body", with '|' for line ends; once it is complete
  size_t started = 0, cancelled = 0;
  size_t uploaded = 0;     // bytes
  bool wasPaused = false;  // SetReading(false) has been called at least once
  size_t Open() const { return loads_.size(); }

 private:
  struct Load {
    live::BrowserRequest request;
    host::LoadClient* client;
    Reply reply;
    std::string upload;
    size_t nextBody = 0;
    bool reading = true;
    bool answering = false;
  };
  void Post(host::LoadId id, void (ScriptedHandler::*step)(host::LoadId));
  void ReadUpload(host::LoadId id);
  void Begin(host::LoadId id);
  void SendBody(host::LoadId id);
  void Finish(host::LoadId id, int32_t result);

  live::EventLoop& loop_;
  host::LoadId lastId_ = 0;
  std::map<host::LoadId, Load> loads_;
};

class FrontTest : public testing::Test {
 protected:
  void Listen() {
    front.emplace(loop, handler, settings, live::FrontObserver{.onMessage = [this](const std::string& text) {
                    messages.push_back(text);
                  }});
  }
  // Runs `talk` on a thread of its own, and the loop until it is through.
  void Client(const std::function<void(RawClient&)>& talk);
  // Sends it on a new connection; all that comes until the proxy closes.
  std::string Exchange(const std::string& bytes);
  // Runs `task` on the loop's thread while a client talks, and waits for it.
  void OnLoop(const std::function<void()>& task);
  // Looks from a client's thread until the loop's thread finds that it is so; ten seconds at most.
  bool Becomes(const std::function<bool()>& condition);

  live::EventLoop loop;
  ScriptedHandler handler{loop};
  live::FrontSettings settings;
  std::optional<live::FrontServer> front;
  std::vector<std::string> messages;
};

}  // namespace tests

#endif  // TESTS_LIVE_PROXY_FRONT_FRONT_FIXTURE_H_
