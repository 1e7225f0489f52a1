#include "tests/live/proxy/front/front_fixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "tests/live/support/run_until.h"
#include "tests/support/scripted_transport.h"

namespace tests {
namespace {

std::string Describe(const live::BrowserRequest& request, const std::string& upload) {
  std::string text = request.method + " " + request.url + "|" + request.headers + "|" + upload;
  for (size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n"))
    text.replace(at, 2, "|");
  return text;
}

}  // namespace

host::LoadId ScriptedHandler::Start(const live::BrowserRequest& request, host::LoadClient& client) {
  ++started;
  const host::LoadId id = ++lastId_;
  loads_.emplace(id, Load{.request = request, .client = &client});
  Post(id, &ScriptedHandler::ReadUpload);
  return id;
}

void ScriptedHandler::Cancel(host::LoadId id) {
  cancelled += loads_.erase(id);
}

void ScriptedHandler::SetReading(host::LoadId id, bool reading) {
  const auto load = loads_.find(id);
  if (load == loads_.end()) return;
  load->second.reading = reading;
  wasPaused = wasPaused || !reading;
  if (reading) Post(id, &ScriptedHandler::SendBody);
}

void ScriptedHandler::Answer(host::LoadId id) {
  const auto load = loads_.find(id);
  if (load == loads_.end()) return;
  load->second.reply.waits = false;
  Post(id, &ScriptedHandler::Begin);
}

void ScriptedHandler::ReadUploads() {
  readsUploads = true;
  for (const auto& [id, load] : loads_) Post(id, &ScriptedHandler::ReadUpload);
}

void ScriptedHandler::Post(host::LoadId id, void (ScriptedHandler::*step)(host::LoadId)) {
  loop_.PostDelayed(0, [this, id, step] {
    if (loads_.count(id) > 0) (this->*step)(id);
  });
}

void ScriptedHandler::ReadUpload(host::LoadId id) {
  Load& load = loads_.at(id);
  const auto body = load.request.body;
  if (body != nullptr) {
    if (!readsUploads) return;
    body->onReadable = [this, id] { Post(id, &ScriptedHandler::ReadUpload); };
    char buffer[4096];
    int64_t count = 0;
    while ((count = body->Read(buffer, sizeof buffer)) > 0) {
      uploaded += static_cast<size_t>(count);
      if (load.upload.size() < 100'000) load.upload.append(buffer, static_cast<size_t>(count));
    }
    if (count == -1) return;
    if (count == -2) load.upload += "(broken)";
    asked.push_back(Describe(load.request, load.upload));
    if (count == -2) return Finish(id, host::kFailed);
  } else {
    asked.push_back(Describe(load.request, ""));
  }
  const auto reply = replies.find(load.request.url);
  load.reply = reply != replies.end() ? reply->second : Reply{.body = {asked.back()}};
  if (!load.reply.waits) Begin(id);
}

void ScriptedHandler::Begin(host::LoadId id) {
  Load& load = loads_.at(id);
  load.answering = true;
  for (const std::string& head : load.reply.informational)
    load.client->OnInformational(ResponseHeaders(head));
  if (load.reply.head.empty()) return Finish(id, load.reply.result);
  load.client->OnResponse({.id = id}, ResponseHeaders(load.reply.head));
  Post(id, &ScriptedHandler::SendBody);
}

void ScriptedHandler::SendBody(host::LoadId id) {
  while (true) {
    const auto found = loads_.find(id);  // the front may cancel it
    if (found == loads_.end() || !found->second.answering || !found->second.reading) return;
    Load& load = found->second;
    const bool made = nextPiece != nullptr;
    if (!made && load.nextBody == load.reply.body.size()) break;
    const std::string piece = made ? nextPiece() : load.reply.body[load.nextBody++];
    if (made && piece.empty()) break;
    load.client->OnBody(piece.data(), static_cast<int32_t>(piece.size()));
  }
  Finish(id, loads_.at(id).reply.result);
}

void ScriptedHandler::Finish(host::LoadId id, int32_t result) {
  host::LoadClient* const client = loads_.at(id).client;
  loads_.erase(id);
  client->OnDone({.id = id}, result, {});
}

void FrontTest::Client(const std::function<void(RawClient&)>& talk) {
  if (!front) Listen();
  std::atomic<bool> through = false;
  std::thread thread([&] {
    RawClient client(front->Port());
    talk(client);
    through = true;
  });
  RunUntil(loop, [&] { return through.load(); });
  thread.join();
}

std::string FrontTest::Exchange(const std::string& bytes) {
  std::string received;
  Client([&](RawClient& client) {
    client.Send(bytes);
    received = client.ReadAll();
  });
  return received;
}

void FrontTest::OnLoop(const std::function<void()>& task) {
  std::promise<void> done;
  loop.PostFromAnywhere([&] {
    task();
    done.set_value();
  });
  done.get_future().wait();
}

bool FrontTest::Becomes(const std::function<bool()>& condition) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    bool met = false;
    OnLoop([&] { met = condition(); });
    if (met) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

}  // namespace tests
