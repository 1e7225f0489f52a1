#include "tests/support/scripted_host.h"

#include <cstring>

#include "android/log.h"
#include "corvane/command.h"
#include "net/http/http_response_headers.h"
#include "plugin/properties.h"

namespace tests {
namespace {

constexpr std::string_view kPrefix = "netstack: KIV_PROC - ";

ScriptedHost* g_current = nullptr;  // the log's sink carries no context

std::string OrNull(const char* text) {
  return text != nullptr ? text : "null";
}

}  // namespace

std::string RawHeaders(const std::vector<std::string>& lines) {
  std::string raw;
  for (const std::string& line : lines) raw += line + '\0';
  return raw + '\0';
}

ScriptedHost::ScriptedHost() : library_(std::in_place, KIV_PLUGIN_PATH), plugin(library_->Functions()) {
  EXPECT_EQ(g_current, nullptr) << "two hosts would share one library";
  g_current = this;
  android_log::SetSink(WriteLine);
  corvane::SetApi(this);
  for (const kiv::Property& row : kiv::property::kAll) property_set(row.name, nullptr);
}

ScriptedHost::~ScriptedHost() {
  library_.reset();
  for (CorvaneCmd* cmd : posted_) corvane::FreeCommand(cmd);
  corvane::SetApi(nullptr);
  android_log::SetSink(nullptr);
  g_current = nullptr;
}

void ScriptedHost::Start(const std::vector<std::pair<std::string, std::string>>& properties) {
  for (const auto& [name, value] : properties) {
    ASSERT_EQ(property_set(("net.cv.kiv." + name).c_str(), value.c_str()), 0);
  }
  uint32_t mask = 0;
  EXPECT_EQ(plugin.OnInit(0), 1);
  EXPECT_EQ(plugin.OnGetCmdMask(&mask), 1);
  EXPECT_EQ(mask, 0x30Cu);
  Take();
}

int32_t ScriptedHost::Send(kiv::CommandId id, const Params& params) {
  std::vector<std::unique_ptr<char[]>> texts;  // each a block of its own, so that sanitizers see its end
  corvane::Command command(id);
  command.Get()->word0 = 0xDEADBEEF;  // not the plugin's to read
  for (size_t i = 0; i < params.size(); ++i) {
    const Param& param = params[i];
    if (param.absent_) {
      command.Omit(i);
    } else if (param.text_) {
      const size_t size = param.text_->size() + 1;
      texts.push_back(std::make_unique<char[]>(size));
      std::memcpy(texts.back().get(), param.text_->c_str(), size);
      command.Lend(kiv::TextParam{i}, texts.back().get());
      sentTexts_.try_emplace(Hash(texts.back().get()), *param.text_);
    } else {
      command.Set(kiv::PointerParam<void>{i}, reinterpret_cast<void*>(param.value_));
    }
  }
  return plugin.OnCmd(command.Get());
}

void ScriptedHost::Learn(const std::string& page) {
  EXPECT_EQ(Send<PageRequested>({page, "GET", "X: y\r\n\r\n"}), 1);
  EXPECT_EQ(Send<RequestSeen>({page, "X: y\r\n\r\n", 0, &contexts[0]}), 1);
}

void ScriptedHost::Order(const std::string& url, const std::string& page, uint32_t priority, uint32_t flags) {
  EXPECT_EQ(Send<OrderPreload>({priority, url, Hash(page.c_str()), flags}), 1);
}

void ScriptedHost::Launch(const std::string& url) {
  Learn(kPage);
  Take();
  Order(url, kPage);
  EXPECT_NE(Take().find("Fetch " + url + " context 0\n"), std::string::npos);
}

void* ScriptedHost::Cookie(const std::string& url) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(Hash(url.c_str())));
}

std::unique_ptr<net::HttpRequestInfo> ScriptedHost::RequestInfo(const std::string& url) {
  return std::unique_ptr<net::HttpRequestInfo>(plugin.FetchGetRequestInfo(Cookie(url)));
}

int32_t ScriptedHost::StartComplete(const std::string& url, const std::string& rawHeaders) {
  const net::HttpResponseHeaders headers(rawHeaders);
  const CorvaneFetchResponse response = {&headers};
  return plugin.FetchStartComplete(Cookie(url), &response);
}

int32_t ScriptedHost::Read(const std::string& url, const std::string& bytes) {
  return plugin.FetchReadComplete(Cookie(url), bytes.data(), static_cast<int32_t>(bytes.size()));
}

int32_t ScriptedHost::Done(const std::string& url, int32_t result) {
  return plugin.FetchDone(Cookie(url), result);
}

void ScriptedHost::FetchOk(const std::string& url, const std::string& body,
                           std::vector<std::string> headerLines) {
  headerLines.insert(headerLines.begin(), "HTTP/1.1 200 OK");
  headerLines.push_back("Content-Length: " + std::to_string(body.size()));
  EXPECT_NE(RequestInfo(url), nullptr) << url;
  EXPECT_EQ(StartComplete(url, RawHeaders(headerLines)), 1) << url;
  EXPECT_EQ(Read(url, body), 1) << url;
  EXPECT_EQ(Done(url), 1) << url;
}

void ScriptedHost::Preload(const std::string& url, const std::string& body,
                           std::vector<std::string> headerLines) {
  Launch(url);
  FetchOk(url, body, std::move(headerLines));
}

Answer ScriptedHost::Ask(const std::string& url) {
  Answer answer = {0, "untouched", nullptr, -1};
  answer.result = plugin.IsPreloaded(url.c_str(), &answer.headers, &answer.bytes, &answer.length);
  return answer;
}

std::string ScriptedHost::Take() {
  const std::lock_guard hold(mutex_);
  return std::exchange(record_, {});
}

uint32_t ScriptedHost::Hash(const char* url) {
  const auto chosen = hashes.find(url);
  return chosen != hashes.end() ? chosen->second : Api::Hash(url);
}

int ScriptedHost::Fetch(void* cookie, net::URLRequestContext* context) {
  const auto url = sentTexts_.find(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie)));
  Record("Fetch " + (url != sentTexts_.end() ? url->second : "an unknown URL") + " context " +
         std::to_string(context - contexts));
  return fetchAnswer;
}

CorvaneCmd* ScriptedHost::CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) {
  Record("CmdCreate " + std::to_string(type) + " " + std::to_string(action) + " " + std::to_string(value));
  return canCreateCommands ? Api::CmdCreate(type, action, value) : nullptr;
}

void ScriptedHost::CommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  std::string line = "Commit " + std::to_string(static_cast<int>(delay)) + ":";
  for (auto param = cmd->paramsBegin; param != cmd->paramsEnd; ++param) {
    const auto index = static_cast<size_t>(param - cmd->paramsBegin);
    const uintptr_t value = (*param)->value;
    const bool isText = index == OrderPreload::kUrl.position || index == OrderPreload::kHeaders.position;
    line += index != 0 ? ", " : " ";
    line += isText ? OrNull(reinterpret_cast<const char*>(value)) : std::to_string(value);
  }
  Record(line);
  posted_.push_back(cmd);
}

void ScriptedHost::WriteLine(int bufferId, int priority, const char* tag, const char* text) {
  const bool wellFormed = bufferId == LOG_ID_SYSTEM && tag == nullptr && priority >= ANDROID_LOG_DEBUG &&
                          priority <= ANDROID_LOG_ERROR && std::string_view(text).starts_with(kPrefix);
  if (!wellFormed) {
    ADD_FAILURE() << "buffer " << bufferId << ", priority " << priority << ", tag " << OrNull(tag) << ": "
                  << text;
    return;
  }
  g_current->Record(std::string(1, "DIWE"[priority - ANDROID_LOG_DEBUG]) + " " + (text + kPrefix.size()));
}

void ScriptedHost::Record(const std::string& line) {
  const std::lock_guard hold(mutex_);
  record_ += line + "\n";
}

void* ScriptedHost::Asked(const char* question, bool exists) {
  if (recordQuestions) Record(question);
  return exists ? this : nullptr;
}

}  // namespace tests
