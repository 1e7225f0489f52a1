#include "live/proxy/front/resolver.h"

#include <netdb.h>

#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace live {
namespace {

using boost::asio::ip::tcp;

// Names that are slow to resolve keep one thread busy each, and the others wait for the rest.
constexpr size_t kThreads = 4;

struct Question {
  uint64_t id = 0;
  std::string host;
  uint16_t port = 0;
};

}  // namespace

// What the threads know, and so what may outlive the resolver.
struct Resolver::Shared {
  explicit Shared(EventLoop& l, LookUp look) : lookUp(look), loop(&l) {}

  static void Work(const std::shared_ptr<Shared>& shared);

  const LookUp lookUp;
  std::map<uint64_t, std::function<void(const Endpoints&)>> waiting;  // the loop's thread only
  uint64_t lastId = 0;                                                // the same
  std::mutex mutex;                                                   // for what follows
  std::condition_variable changed;
  EventLoop* loop;  // null when the resolver is gone
  std::deque<Question> questions;
  size_t threads = 0, idle = 0;
};

void Resolver::Shared::Work(const std::shared_ptr<Shared>& shared) {
  std::unique_lock lock(shared->mutex);
  while (true) {
    ++shared->idle;
    shared->changed.wait(lock, [&] { return shared->loop == nullptr || !shared->questions.empty(); });
    --shared->idle;
    if (shared->loop == nullptr) return;
    const Question question = std::move(shared->questions.front());
    shared->questions.pop_front();
    lock.unlock();
    Endpoints endpoints;
    try {
      endpoints = shared->lookUp(question.host, question.port);
    } catch (const std::exception&) {  // without memory there is no address
    }
    lock.lock();
    if (shared->loop == nullptr) return;
    shared->loop->PostFromAnywhere([shared, id = question.id, endpoints = std::move(endpoints)] {
      const auto node = shared->waiting.extract(id);
      if (!node.empty()) node.mapped()(endpoints);
    });
  }
}

Resolver::Endpoints Resolver::AskSystem(const std::string& host, uint16_t port) {
  const addrinfo hints{.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG, .ai_socktype = SOCK_STREAM};
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  Endpoints endpoints;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    tcp::endpoint endpoint;
    if (entry->ai_addrlen > endpoint.capacity()) continue;
    std::memcpy(endpoint.data(), entry->ai_addr, entry->ai_addrlen);
    endpoint.resize(entry->ai_addrlen);
    endpoints.push_back(endpoint);
  }
  return endpoints;
}

Resolver::Resolver(EventLoop& loop, LookUp lookUp)
    : loop_(loop), shared_(std::make_shared<Shared>(loop, lookUp)) {}

Resolver::~Resolver() {
  shared_->waiting.clear();
  const std::lock_guard lock(shared_->mutex);
  shared_->loop = nullptr;
  shared_->changed.notify_all();
}

void Resolver::Resolve(const std::string& host, uint16_t port, std::function<void(const Endpoints&)> done) {
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(host, error);
  if (!error) {
    loop_.PostDelayed(
        0, [endpoint = tcp::endpoint(address, port), done = std::move(done)] { done({endpoint}); });
    return;
  }
  const uint64_t id = ++shared_->lastId;
  shared_->waiting[id] = std::move(done);
  const std::lock_guard lock(shared_->mutex);
  shared_->questions.push_back({id, host, port});
  if (shared_->questions.size() > shared_->idle && shared_->threads < kThreads) {
    try {
      std::thread(Shared::Work, shared_).detach();
      ++shared_->threads;
    } catch (const std::system_error&) {
      // The machine gives no more threads: it waits for one that there is, or until the next name.
    }
  }
  shared_->changed.notify_one();
}

}  // namespace live
