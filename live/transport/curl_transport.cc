#include "live/transport/curl_transport.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "host/connection_group.h"
#include "host/http/header_block.h"
#include "host/link_policy.h"
#include "host/task_scope.h"
#include "live/transport/response_lines.h"
#include "net/http/header_text.h"
#include "url/gurl.h"

namespace live {
namespace {

using host::TransferId;
using host::Urgency;

struct CurlDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Easy = std::unique_ptr<CURL, CurlDeleter>;
using StringList = std::unique_ptr<curl_slist, CurlDeleter>;

// Of a stream among those of its connection. Servers that heed it send the browser's own responses before
// what is preloaded, which gets the default weight and goes on slowly.
long StreamWeight(Urgency urgency) {
  return urgency == Urgency::Browser ? 256 : 16;
}

size_t Index(Urgency urgency) {
  return static_cast<size_t>(urgency);
}

int32_t ResultOf(CURLcode code) {
  switch (code) {
    case CURLE_OK:
      return host::kOk;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_URL_MALFORMAT:
      return host::kNameNotResolved;
    case CURLE_COULDNT_CONNECT:
      return host::kConnectionFailed;
    case CURLE_OPERATION_TIMEDOUT:
      return host::kTimedOut;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
      return host::kCertificateError;
    case CURLE_GOT_NOTHING:
      return host::kEmptyResponse;
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return host::kHttp2ProtocolError;
    case CURLE_OUT_OF_MEMORY:  // what libcurl says of a header line without end
    case CURLE_WRITE_ERROR:    // the response was refused here
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:
      return host::kInvalidResponse;
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_SEND_FAIL_REWIND:
      return host::kConnectionClosed;
    case CURLE_ABORTED_BY_CALLBACK:
    case CURLE_READ_ERROR:
      return host::kAborted;
    default:
      return host::kFailed;
  }
}

std::string AddressOf(const curl_sockaddr& address) {
  char text[INET6_ADDRSTRLEN] = "";
  if (address.family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address.addr).sin_addr, text, sizeof text);
  } else if (address.family == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address.addr).sin6_addr, text, sizeof text);
  }
  return text;
}

template <typename Value>
Value Info(CURL* easy, CURLINFO what) {
  Value value{};
  curl_easy_getinfo(easy, what, &value);
  return value;
}

// 0 when it is not connected.
int OwnPort(int socket) {
  sockaddr_storage own{};
  socklen_t length = sizeof own;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &length) != 0) return 0;
  // The port is at the same place in addresses of IPv4 and IPv6.
  return ntohs(reinterpret_cast<const sockaddr_in&>(own).sin_port);
}

int HttpVersion(CURL* easy) {
  switch (Info<long>(easy, CURLINFO_HTTP_VERSION)) {
    case CURL_HTTP_VERSION_1_0:
      return 10;
    case CURL_HTTP_VERSION_1_1:
      return 11;
    case CURL_HTTP_VERSION_2_0:
      return 20;
    default:
      return 0;
  }
}

// Libcurl's own calls fail without memory only. A handle that lacks an option must not be used: it would
// print bodies, or ask the environment for a proxy.
template <typename Value>
void Set(CURL* easy, CURLoption option, Value value) {
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) throw std::bad_alloc();
}

Easy NewHandle() {
  Easy easy(curl_easy_init());
  if (easy == nullptr) throw std::bad_alloc();
  return easy;
}

void Append(StringList& list, const std::string& text) {
  curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  (void)list.release();
  list.reset(longer);
}

// Callbacks of libcurl as it has to see them: no exception may pass through it.
template <auto kFunction, auto kFailure>
struct NoThrow;
template <typename Result, typename... Arguments, Result (*kFunction)(Arguments...), auto kFailure>
struct NoThrow<kFunction, kFailure> {
  static Result Call(Arguments... arguments) {
    try {
      return kFunction(arguments...);
    } catch (const std::exception&) {
      return kFailure;
    }
  }
};

// Whether the connection that the handle has does, which TLS agrees on.
bool SpeaksHttp2(CURL* easy) {
  const auto* const session = Info<curl_tlssessioninfo*>(easy, CURLINFO_TLS_SSL_PTR);
  if (session == nullptr || session->backend != CURLSSLBACKEND_OPENSSL || session->internals == nullptr)
    return false;
  const unsigned char* protocol = nullptr;
  unsigned length = 0;
  SSL_get0_alpn_selected(static_cast<const SSL*>(session->internals), &protocol, &length);
  return std::string_view(reinterpret_cast<const char*>(protocol), length) == "h2";
}

struct Response {
  std::string block;
  bool final;
};
// What a client has yet to hear.
using Event = std::variant<Response, std::string>;

}  // namespace

// Clients are called only after libcurl has returned (Deliver), so that they may do as they like; and what
// they ask for is done in a task of its own (Pump), so that nothing is ever asked of libcurl from inside it.
class CurlTransport::Impl {
 public:
  Impl(EventLoop& loop, const host::HostSettings& settings, const UpstreamSettings& upstream)
      : loop_(loop), settings_(settings), upstream_(upstream), timer_(loop), tasks_(loop) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi_ = curl_multi_init();
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, OnSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, OnTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(upstream_.maxConnections));
    curl_multi_setopt(multi_, CURLMOPT_MAX_CONCURRENT_STREAMS, static_cast<long>(upstream_.maxStreams));
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    for (const std::string& rule : upstream_.connectTo) {
      Append(connectTo_, rule);
    }
  }

  ~Impl() {
    for (auto& [id, transfer] : transfers_) {
      if (transfer->easy != nullptr) RemoveUnfinished(transfer->easy.get());
      if (transfer->request.body != nullptr) transfer->request.body->onReadable = nullptr;
    }
    RemoveDoomed();
    for (const auto& [easy, warming] : warming_) curl_multi_remove_handle(multi_, easy);
    transfers_.clear();
    doomed_.clear();
    warming_.clear();
    curl_multi_cleanup(multi_);
    curl_share_cleanup(share_);
    for (const auto& [key, sockets] : spare_) {
      for (const Spare& spare : sockets) close(spare.socket);
    }
    curl_global_cleanup();
  }

  TransferId Start(const host::TransferRequest& request, host::TransferClient& client) {
    auto transfer = std::make_unique<Transfer>(*this, ++lastId_, request, client);
    transfer->report.started = loop_.Now();
    groups_[transfer->group].waiting[Index(request.urgency)].push_back(transfer->id);
    const TransferId id = transfer->id;
    transfers_[id] = std::move(transfer);
    Pump();
    return id;
  }

  void SetUrgency(TransferId id, Urgency urgency) {
    Transfer* const transfer = Find(id);
    if (transfer == nullptr || transfer->request.urgency == urgency) return;
    if (transfer->easy == nullptr && !transfer->result) {
      Group& group = groups_[transfer->group];
      std::erase(group.waiting[Index(transfer->request.urgency)], id);
      group.waiting[Index(urgency)].push_back(id);
      Pump();
    } else {
      curl_easy_setopt(transfer->easy.get(), CURLOPT_STREAM_WEIGHT, StreamWeight(urgency));
    }
    transfer->request.urgency = urgency;
  }

  void SetReading(TransferId id, bool reading) {
    Transfer* const transfer = Find(id);
    if (transfer == nullptr || std::exchange(transfer->reading, reading) == reading || !reading) return;
    tasks_.Post([this, id] { Deliver(id); });
  }

  host::TransferReport Cancel(TransferId id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) return {};
    const std::unique_ptr<Transfer> transfer = std::move(found->second);
    transfers_.erase(found);
    Group& group = groups_[transfer->group];
    if (transfer->easy == nullptr) {
      std::erase(group.waiting[Index(transfer->request.urgency)], id);
    } else {
      FillReport(*transfer);
      if (!transfer->result) {
        --group.active;
        // libcurl must not find the transfer that is gone; the handle itself is removed outside of it.
        curl_easy_setopt(transfer->easy.get(), CURLOPT_PRIVATE, nullptr);
        for (const CURLoption data : {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_READDATA,
                                      CURLOPT_PREREQDATA, CURLOPT_OPENSOCKETDATA, CURLOPT_SSL_CTX_DATA}) {
          curl_easy_setopt(transfer->easy.get(), data, nullptr);
        }
        doomedLists_.push_back(std::move(transfer->headers));
        doomed_.push_back(std::move(transfer->easy));
      }
    }
    if (transfer->request.body != nullptr) transfer->request.body->onReadable = nullptr;
    transfer->report.ended = loop_.Now();
    Pump();
    return transfer->report;
  }

  void Preconnect(const std::string& url, size_t count, net::URLRequestContext* context) {
    Plan plan{.key = host::ConnectionGroup(url), .count = count, .policy = nullptr};
    if (const auto* const policy = dynamic_cast<const ConnectPolicy*>(context)) {
      plan.policy = policy->weak_from_this().lock();
      if (plan.policy == nullptr) return;
    }
    if (planned_.size() >= upstream_.maxPlannedPreconnects) planned_.pop_front();
    planned_.push_back(std::move(plan));
    OpenPlanned();
  }

  ConnectionCounts Connections() const { return counts_; }

 private:
  struct Group {
    std::deque<TransferId> waiting[2];  // by urgency
    size_t active = 0;                  // transfers that libcurl has
    size_t warming = 0;                 // connections being set up for nobody yet
    bool isKnown = false;               // it has answered, or has said in TLS what it speaks
    bool multiplexes = false;
    bool asksForCertificate = false;
  };
  // Who opens sockets.
  struct Opener {
    Impl& owner;
    const std::string group;
    const ConnectPolicy* policy;  // null for none
    // Connections for later need sockets of their own. Besides, libcurl 7.88 connects a socket again that it
    // is told is connected, which the kernel lets pass only the first time.
    bool takesSpares;
    bool refused = false;  // an address, by the policy
  };
  struct Transfer {
    Transfer(Impl& o, TransferId i, const host::TransferRequest& r, host::TransferClient& c)
        : owner(o),
          id(i),
          request(r),
          client(c),
          opener{o, host::ConnectionGroup(r.url), dynamic_cast<const ConnectPolicy*>(r.context), true},
          group(opener.group),
          lines(o.upstream_.maxHeaderBytes) {}

    Impl& owner;
    const TransferId id;
    host::TransferRequest request;
    host::TransferClient& client;
    Opener opener;
    const std::string& group;
    Easy easy;  // null while it waits
    StringList headers;
    base::Time begun;
    ResponseLines lines;
    std::deque<Event> events;
    size_t buffered = 0;  // bytes of body in events
    bool reading = true;
    bool delivering = false;
    bool responded = false;  // with a status other than 1xx
    bool receivePaused = false;
    bool sendPaused = false;
    bool needsNewConnection = false;  // the one that libcurl has chosen is of no use
    std::optional<int32_t> result;    // once libcurl is done with it
    host::TransferReport report;
  };
  // What is to be opened when its turn comes.
  struct Plan {
    std::string key;  // of the group
    size_t count;
    std::shared_ptr<const ConnectPolicy> policy;
    size_t tried = 0;
  };
  struct Warming {
    std::string key;
    std::shared_ptr<const ConnectPolicy> policy;
    bool multiplexed;  // TLS and all; else the socket alone
    Opener opener;
    Easy easy;
    std::optional<bool> speaksHttp2;  // as its TLS has said
  };
  struct Spare {
    int socket;
    base::Time until;
  };

  Transfer* Find(TransferId id) const {
    const auto found = transfers_.find(id);
    return found != transfers_.end() ? found->second.get() : nullptr;
  }
  size_t SocketLimit() const { return static_cast<size_t>(std::max(settings_.socketsPerGroup, 1)); }

  // --- What clients have asked for, in a task of its own

  void Pump() {
    if (std::exchange(pumpPosted_, true)) return;
    tasks_.Post([this] {
      pumpPosted_ = false;
      RemoveDoomed();
      for (auto place = groups_.begin(); place != groups_.end();) {
        Dispatch(place->second);
        const Group& group = place->second;
        const bool idle =
            group.active + group.warming + group.waiting[0].size() + group.waiting[1].size() == 0;
        place = idle && groups_.size() > kMostGroups ? groups_.erase(place) : std::next(place);
      }
      AfterCurl();
    });
  }

  void RemoveDoomed() {
    for (const Easy& easy : doomed_) RemoveUnfinished(easy.get());
    doomed_.clear();
    doomedLists_.clear();
  }

  // libcurl 7.88 loses the body that it has buffered for a paused transfer unless the transfer goes on before
  // it is removed; nobody hears of that body.
  void RemoveUnfinished(CURL* easy) {
    curl_easy_setopt(
        easy, CURLOPT_WRITEFUNCTION, +[](char*, size_t size, size_t count, void*) { return size * count; });
    curl_easy_setopt(
        easy, CURLOPT_HEADERFUNCTION, +[](char*, size_t size, size_t count, void*) { return size * count; });
    curl_easy_pause(easy, CURLPAUSE_CONT);
    curl_multi_remove_handle(multi_, easy);
  }

  // Hands waiting transfers to libcurl, the browser's first, as far as there are connections for them.
  void Dispatch(Group& group) {
    const size_t most = group.multiplexes ? upstream_.maxStreams : SocketLimit();
    for (auto& waiting : group.waiting) {
      while (!waiting.empty() && group.active < most) {
        Transfer& transfer = *transfers_.at(waiting.front());
        waiting.pop_front();
        ++group.active;
        Begin(transfer, group);
      }
    }
  }

  void Begin(Transfer& transfer, Group& group) {
    try {
      HandOver(transfer, group);
    } catch (const std::bad_alloc&) {
      --group.active;
      transfer.result = host::kFailed;
      ready_.insert(transfer.id);
    }
  }

  void HandOver(Transfer& transfer, const Group& group) {
    transfer.easy = NewHandle();
    CURL* const easy = transfer.easy.get();
    const host::TransferRequest& request = transfer.request;
    transfer.begun = loop_.Now();
    SetUp(easy, request.url, transfer.opener);
    Set(easy, CURLOPT_PRIVATE, &transfer);
    // Where a server multiplexes, or may do so, one connection is waited for instead of opening several. Not
    // over plain http: there libcurl 7.88 would wait for the end of the first response.
    const bool mayMultiplex = group.multiplexes || (!group.isKnown && transfer.group.starts_with("https:"));
    Set(easy, CURLOPT_PIPEWAIT, mayMultiplex ? 1L : 0L);
    Set(easy, CURLOPT_STREAM_WEIGHT, StreamWeight(request.urgency));
    Set(easy, CURLOPT_HEADERFUNCTION, (NoThrow<OnHeader, 0>::Call));
    Set(easy, CURLOPT_HEADERDATA, &transfer);
    Set(easy, CURLOPT_WRITEFUNCTION, (NoThrow<OnBody, 0>::Call));
    Set(easy, CURLOPT_WRITEDATA, &transfer);
    Set(easy, CURLOPT_PREREQFUNCTION, (NoThrow<OnConnected, CURL_PREREQFUNC_ABORT>::Call));
    Set(easy, CURLOPT_PREREQDATA, &transfer);
    SetMethod(transfer);
    SetHeaders(transfer);
    if (curl_multi_add_handle(multi_, easy) != CURLM_OK) throw std::bad_alloc();
  }

  void SetUp(CURL* easy, const std::string& url, Opener& opener) {
    Set(easy, CURLOPT_URL, url.c_str());
    Set(easy, CURLOPT_NOSIGNAL, 1L);
    Set(easy, CURLOPT_QUICK_EXIT, 1L);  // a transfer's end waits for no name to be resolved
    Set(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    Set(easy, CURLOPT_PROXY, "");  // the environment must not lead back to here
    Set(easy, CURLOPT_PATH_AS_IS, 1L);
    Set(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    Set(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(upstream_.connectTimeoutMs));
    Set(easy, CURLOPT_SHARE, share_);
    Set(easy, CURLOPT_BUFFERSIZE, 64 * 1024L);
    Set(easy, CURLOPT_OPENSOCKETFUNCTION, (NoThrow<OnOpenSocket, CURL_SOCKET_BAD>::Call));
    Set(easy, CURLOPT_OPENSOCKETDATA, &opener);
    Set(easy, CURLOPT_SSL_CTX_FUNCTION, (NoThrow<OnTlsContext, CURLE_OUT_OF_MEMORY>::Call));
    Set(easy, CURLOPT_SSL_CTX_DATA, &opener);
    Set(easy, CURLOPT_SOCKOPTFUNCTION, OnSocketOptions);
    Set(easy, CURLOPT_SOCKOPTDATA, this);
    Set(easy, CURLOPT_CLOSESOCKETFUNCTION, OnCloseSocket);
    Set(easy, CURLOPT_CLOSESOCKETDATA, this);
    if (connectTo_ != nullptr) Set(easy, CURLOPT_CONNECT_TO, connectTo_.get());
    if (!upstream_.caFile.empty()) Set(easy, CURLOPT_CAINFO, upstream_.caFile.c_str());
    // What libcurl has read from a file serves all connections. With a folder besides, all of it would be
    // read for each connection, which keeps everybody waiting for 20 ms.
    const char* const file = Info<const char*>(easy, CURLINFO_CAINFO);
    if (!upstream_.caFile.empty() || (file != nullptr && access(file, R_OK) == 0)) {
      Set(easy, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
  }

  void SetMethod(Transfer& transfer) {
    CURL* const easy = transfer.easy.get();
    const host::TransferRequest& request = transfer.request;
    if (request.body != nullptr) {
      Set(easy, CURLOPT_UPLOAD, 1L);
      Set(easy, CURLOPT_READFUNCTION, (NoThrow<OnUpload, CURL_READFUNC_ABORT>::Call));
      Set(easy, CURLOPT_READDATA, &transfer);
      Set(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request.body->Length()));
      request.body->onReadable = [this, id = transfer.id] { tasks_.Post([this, id] { ResumeSending(id); }); };
    } else if (request.method == "HEAD") {
      Set(easy, CURLOPT_NOBODY, 1L);
    }
    if ((request.method != "GET" && request.method != "HEAD") || request.body != nullptr) {
      Set(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
  }

  // Exactly the request's own headers: those that libcurl would add by itself are switched off.
  void SetHeaders(Transfer& transfer) {
    const auto add = [&transfer](const std::string& line) { Append(transfer.headers, line); };
    bool hasAccept = false;
    http::ForEachHeader(transfer.request.headers, [&](std::string_view name, std::string_view value) {
      for (const char* const own : {"host", "content-length", "transfer-encoding", "connection", "expect"}) {
        if (net::EqualsIgnoringCase(name, own)) return;  // libcurl's own matter
      }
      hasAccept = hasAccept || net::EqualsIgnoringCase(name, "accept");
      add(std::string(name) + (value.empty() ? ";" : ": " + std::string(value)));
    });
    if (!hasAccept) add("Accept:");
    add("Expect:");
    const bool hasLength = transfer.request.body == nullptr && transfer.request.method == "POST";
    if (hasLength) add("Content-Length: 0");
    Set(transfer.easy.get(), CURLOPT_HTTPHEADER, transfer.headers.get());
  }

  void ResumeSending(TransferId id) {
    Transfer* const transfer = Find(id);
    if (transfer == nullptr || transfer->easy == nullptr || !std::exchange(transfer->sendPaused, false))
      return;
    curl_easy_pause(transfer->easy.get(), transfer->receivePaused ? CURLPAUSE_RECV : CURLPAUSE_CONT);
    AfterCurl();
  }

  // --- What libcurl tells

  static int OnSocket(CURL* /*easy*/, curl_socket_t socket, int what, void* data, void* /*perSocket*/) {
    auto& self = *static_cast<Impl*>(data);
    if (what == CURL_POLL_REMOVE) {
      self.unwatched_.erase(socket);
      self.loop_.Unwatch(socket);
      return 0;
    }
    const bool in = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
    const bool out = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
    try {
      self.loop_.Watch(socket, in, out, [&self, socket](bool readable, bool writable) {
        self.Act(socket, (readable ? CURL_CSELECT_IN : 0) | (writable ? CURL_CSELECT_OUT : 0));
      });
      self.unwatched_.erase(socket);
    } catch (const std::exception&) {  // there is no room for it
      self.unwatched_[socket] = what;
      self.tasks_.Post([&self, socket] { self.WatchAgain(socket); }, kTryAgainUs);
    }
    return 0;
  }

  void WatchAgain(curl_socket_t socket) {
    const auto place = unwatched_.find(socket);
    if (place != unwatched_.end()) OnSocket(nullptr, socket, place->second, this, nullptr);
  }

  static int OnTimer(CURLM* /*multi*/, long timeoutMs, void* data) {
    auto& self = *static_cast<Impl*>(data);
    if (timeoutMs < 0) {
      self.timer_.Stop();
    } else {
      self.timer_.Start(timeoutMs * 1000, [&self] { self.Act(CURL_SOCKET_TIMEOUT, 0); });
    }
    return 0;
  }

  static size_t OnHeader(char* bytes, size_t size, size_t count, void* data) {
    auto* const transfer = static_cast<Transfer*>(data);
    if (transfer == nullptr || !transfer->lines.Add({bytes, size * count})) return 0;
    if (auto block = transfer->lines.TakeBlock()) {
      transfer->responded = transfer->lines.Status() >= 200;
      transfer->events.emplace_back(Response{std::move(*block), transfer->responded});
      transfer->owner.ready_.insert(transfer->id);
    }
    return size * count;
  }

  static size_t OnBody(char* bytes, size_t size, size_t count, void* data) {
    auto* const transfer = static_cast<Transfer*>(data);
    if (transfer == nullptr) return 0;
    if (transfer->buffered >= transfer->owner.upstream_.maxBufferedBytes) {
      transfer->receivePaused = true;
      return CURL_WRITEFUNC_PAUSE;
    }
    transfer->events.emplace_back(std::string(bytes, size * count));
    transfer->buffered += size * count;
    transfer->owner.ready_.insert(transfer->id);
    return size * count;
  }

  static size_t OnUpload(char* buffer, size_t size, size_t count, void* data) {
    auto* const transfer = static_cast<Transfer*>(data);
    if (transfer == nullptr) return CURL_READFUNC_ABORT;
    const int64_t read = transfer->request.body->Read(buffer, size * count);
    if (read == -1) {
      transfer->sendPaused = true;
      return CURL_READFUNC_PAUSE;
    }
    return read < 0 ? CURL_READFUNC_ABORT : static_cast<size_t>(read);
  }

  // A connection for the transfer exists, new or old, and nothing is sent yet.
  static int OnConnected(void* data, char* address, char* /*own*/, int /*port*/, int ownPort) {
    auto* const transfer = static_cast<Transfer*>(data);
    if (transfer == nullptr) return CURL_PREREQFUNC_ABORT;
    transfer->needsNewConnection = transfer->owner.HoldsAnotherAnswer(*transfer, ownPort);
    if (transfer->needsNewConnection) return CURL_PREREQFUNC_ABORT;
    const ConnectPolicy* const policy = transfer->opener.policy;
    if (policy == nullptr) return CURL_PREREQFUNC_OK;
    if (!policy->MayConnectTo(address)) {
      transfer->opener.refused = true;
      return CURL_PREREQFUNC_ABORT;
    }
    transfer->opener.refused = false;  // another address of the server was
    policy->SendsTo(address);
    return CURL_PREREQFUNC_OK;
  }

  // Whether the server has sent something on an old connection that nothing was asked on. libcurl 7.88 would
  // take it for the answer to the request that is sent next.
  bool HoldsAnotherAnswer(const Transfer& transfer, int ownPort) {
    CURL* const easy = transfer.easy.get();
    if (Info<long>(easy, CURLINFO_NUM_CONNECTS) > 0 || SpeaksHttp2(easy)) return false;
    return std::any_of(sockets_.begin(), sockets_.end(), [ownPort](auto& entry) {
      auto& [socket, port] = entry;
      if (port == 0) port = OwnPort(socket);
      if (port != ownPort) return false;
      pollfd state = {.fd = socket, .events = POLLIN, .revents = 0};
      return poll(&state, 1, 0) > 0;
    });
  }

  // The connection stands. What its server speaks is known, and nothing is to be sent.
  static int OnWarm(void* data, char* /*address*/, char* /*own*/, int /*port*/, int /*ownPort*/) {
    auto& warming = *static_cast<Warming*>(data);
    warming.speaksHttp2 = SpeaksHttp2(warming.easy.get());
    return CURL_PREREQFUNC_ABORT;
  }

  // Of one connection, which may live longer than the transfer that has set it up.
  struct TlsOwner {
    Impl& owner;
    std::string group;
  };
  static int TlsOwnerIndex() {
    static const int index = SSL_CTX_get_ex_new_index(
        0, nullptr, nullptr, nullptr,
        +[](void*, void* data, CRYPTO_EX_DATA*, int, long, void*) { delete static_cast<TlsOwner*>(data); });
    return index;
  }
  static CURLcode OnTlsContext(CURL* /*easy*/, void* context, void* data) {
    const auto* const opener = static_cast<const Opener*>(data);
    if (opener == nullptr) return CURLE_ABORTED_BY_CALLBACK;
    auto* const tls = static_cast<SSL_CTX*>(context);
    auto owner = std::make_unique<TlsOwner>(TlsOwner{opener->owner, opener->group});
    if (SSL_CTX_set_ex_data(tls, TlsOwnerIndex(), owner.get()) != 1) return CURLE_OUT_OF_MEMORY;
    owner.release();
    SSL_CTX_set_client_cert_cb(tls, OnCertificateAsked);
    return CURLE_OK;
  }
  // Goes on without one, as a browser does that has none.
  static int OnCertificateAsked(SSL* tls, X509** /*certificate*/, EVP_PKEY** /*key*/) {
    const auto& [owner, group] =
        *static_cast<const TlsOwner*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(tls), TlsOwnerIndex()));
    const auto place = owner.groups_.find(group);
    if (place != owner.groups_.end()) place->second.asksForCertificate = true;
    return 0;
  }

  static curl_socket_t OnOpenSocket(void* data, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto* const opener = static_cast<Opener*>(data);
    if (opener == nullptr) return CURL_SOCKET_BAD;
    if (opener->policy != nullptr && !opener->policy->MayConnectTo(AddressOf(*address))) {
      opener->refused = true;
      return CURL_SOCKET_BAD;
    }
    Impl& self = opener->owner;
    self.openedSpare_ = opener->takesSpares ? self.TakeSpare(*address) : -1;
    int opened = self.openedSpare_;
    if (opened < 0) {
      ++self.counts_.opened;
      opened = socket(address->family, address->socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address->protocol);
    }
    if (opened >= 0) self.sockets_[opened] = 0;
    return opened;
  }
  static int OnSocketOptions(void* data, curl_socket_t socket, curlsocktype /*purpose*/) {
    auto& self = *static_cast<Impl*>(data);
    const bool spare = std::exchange(self.openedSpare_, -1) == socket;
    return spare ? CURL_SOCKOPT_ALREADY_CONNECTED : CURL_SOCKOPT_OK;
  }
  static int OnCloseSocket(void* data, curl_socket_t socket) {
    auto& self = *static_cast<Impl*>(data);
    self.loop_.Unwatch(socket);
    self.sockets_.erase(socket);
    return close(socket);
  }

  void Act(curl_socket_t socket, int what) {
    int running = 0;
    if (curl_multi_socket_action(multi_, socket, what, &running) != CURLM_OK) {
      tasks_.Post([this] { ActOnAll(); }, kTryAgainUs);
    }
    AfterCurl();
  }

  // After a failure only libcurl knows which transfer it has left half-way.
  void ActOnAll() {
    int running = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    curl_multi_socket_all(multi_, &running);
#pragma GCC diagnostic pop
    AfterCurl();
  }

  // Looks at what is done and tells the clients.
  void AfterCurl() {
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* const easy = message->easy_handle;
      const CURLcode code = message->data.result;
      if (warming_.contains(easy)) {
        Warmed(easy, code);
      } else if (auto* const transfer = Info<Transfer*>(easy, CURLINFO_PRIVATE)) {
        Ended(*transfer, code);
      }
    }
    for (const TransferId id : std::exchange(ready_, {})) Deliver(id);
  }

  void Ended(Transfer& transfer, CURLcode code) {
    CURL* const easy = transfer.easy.get();
    if (std::exchange(transfer.needsNewConnection, false)) {
      curl_multi_remove_handle(multi_, easy);
      if (curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L) == CURLE_OK &&
          curl_multi_add_handle(multi_, easy) == CURLM_OK) {
        return;
      }
    }
    FillReport(transfer);
    Group& group = groups_[transfer.group];
    if (code == CURLE_OK && transfer.report.httpVersion != 0) {
      group.isKnown = true;
      group.multiplexes = transfer.report.httpVersion >= 20;
    }
    --group.active;
    // A connection that ends within the headers is no error to libcurl.
    const bool cut = code == CURLE_OK && !transfer.responded;
    const bool refused =
        (code == CURLE_COULDNT_CONNECT || code == CURLE_ABORTED_BY_CALLBACK) && transfer.opener.refused;
    transfer.result = cut ? host::kConnectionClosed : refused ? host::kBlocked : ResultOf(code);
    // The server says no more than that it ends the connection, during the set-up of TLS or later.
    const bool ended =
        code == CURLE_SSL_CONNECT_ERROR || code == CURLE_RECV_ERROR || code == CURLE_SEND_ERROR;
    const bool isNew = Info<long>(easy, CURLINFO_NUM_CONNECTS) > 0;
    if (ended && isNew && !transfer.responded && group.asksForCertificate) {
      transfer.result = host::kClientCertificateNeeded;
    }
    if (transfer.responded) group.asksForCertificate = false;  // it does without
    curl_multi_remove_handle(multi_, easy);
    ready_.insert(transfer.id);
    Pump();
  }

  void FillReport(Transfer& transfer) const {
    CURL* const easy = transfer.easy.get();
    host::TransferReport& report = transfer.report;
    const auto at = [&](CURLINFO what) {
      const auto us = Info<curl_off_t>(easy, what);
      return us > 0 ? base::Time::FromInternalValue(transfer.begun.ToInternalValue() + us) : base::Time();
    };
    report.sent = at(CURLINFO_PRETRANSFER_TIME_T);
    report.connect = Info<long>(easy, CURLINFO_NUM_CONNECTS) > 0 ? transfer.begun : report.sent;
    report.firstByte = at(CURLINFO_STARTTRANSFER_TIME_T);
    report.bodyBytes = Info<curl_off_t>(easy, CURLINFO_SIZE_DOWNLOAD_T);
    report.httpVersion = HttpVersion(easy);
    report.ended = loop_.Now();
  }

  // Tells the client what it has yet to hear, as long as it reads.
  void Deliver(TransferId id) {
    Transfer* transfer = Find(id);
    if (transfer == nullptr || std::exchange(transfer->delivering, true)) return;
    while (transfer != nullptr && !transfer->events.empty()) {
      const bool isBody = std::holds_alternative<std::string>(transfer->events.front());
      if (isBody && !transfer->reading) break;
      const Event event = std::move(transfer->events.front());
      transfer->events.pop_front();
      if (isBody) {
        const auto& bytes = std::get<std::string>(event);
        transfer->buffered -= bytes.size();
        transfer->client.OnBody(bytes.data(), static_cast<int32_t>(bytes.size()));
      } else if (const auto& response = std::get<Response>(event); response.final) {
        transfer->client.OnResponse(net::HttpResponseHeaders(response.block));
      } else {
        transfer->client.OnInformational(net::HttpResponseHeaders(response.block));
      }
      transfer = Find(id);
    }
    if (transfer == nullptr) return;
    transfer->delivering = false;
    if (transfer->events.empty() && transfer->result) return Finish(id);
    if (transfer->receivePaused && transfer->buffered == 0) tasks_.Post([this, id] { ResumeReceiving(id); });
  }

  void Finish(TransferId id) {
    const std::unique_ptr<Transfer> transfer = std::move(transfers_.at(id));
    transfers_.erase(id);
    if (transfer->request.body != nullptr) transfer->request.body->onReadable = nullptr;
    transfer->client.OnDone(*transfer->result, transfer->report);
  }

  void ResumeReceiving(TransferId id) {
    Transfer* const transfer = Find(id);
    if (transfer == nullptr || transfer->result || !std::exchange(transfer->receivePaused, false)) return;
    curl_easy_pause(transfer->easy.get(), transfer->sendPaused ? CURLPAUSE_SEND : CURLPAUSE_CONT);
    AfterCurl();
  }

  // --- Connections for later

  // As many as may be set up for nobody at a time.
  void OpenPlanned() {
    while (!planned_.empty()) {
      Plan& plan = planned_.front();
      const Group& group = groups_[plan.key];
      // A server that multiplexes keeps a connection that nothing was sent on; of the others only the socket
      // can be kept, and its TLS has to wait for the request.
      const bool multiplexed = plan.key.starts_with("https:") && (!group.isKnown || group.multiplexes);
      const size_t most = multiplexed ? 1 : std::min(plan.count, SocketLimit());
      if (plan.tried >= most || group.active + group.warming + SparesOf(plan.key) >= most) {
        planned_.pop_front();
        continue;
      }
      if (warming_.size() >= settings_.maxPreconnects) return;
      ++plan.tried;
      // Of those that multiplex, one that stands is found by libcurl, and one that has ended is replaced.
      try {
        Warm(plan, multiplexed);
      } catch (const std::bad_alloc&) {
        planned_.pop_front();
      }
    }
  }

  // A handle that sets up a connection and sends nothing.
  void Warm(const Plan& plan, bool multiplexed) {
    Easy easy = NewHandle();
    CURL* const handle = easy.get();
    Warming& warming = warming_
                           .emplace(handle, Warming{plan.key,
                                                    plan.policy,
                                                    multiplexed,
                                                    {*this, plan.key, plan.policy.get(), false},
                                                    std::move(easy),
                                                    {}})
                           .first->second;
    try {
      if (multiplexed) {
        SetUp(handle, plan.key + "/", warming.opener);
        Set(handle, CURLOPT_PREREQFUNCTION, OnWarm);
        Set(handle, CURLOPT_PREREQDATA, &warming);
      } else {
        // The socket alone, whatever is spoken on it later.
        SetUp(handle, "http" + plan.key.substr(plan.key.find(':')) + "/", warming.opener);
        Set(handle, CURLOPT_CONNECT_ONLY, 1L);
      }
      tasks_.Post([this, handle] {
        if (!warming_.contains(handle)) return;
        if (curl_multi_add_handle(multi_, handle) != CURLM_OK) Warmed(handle, CURLE_OUT_OF_MEMORY);
        AfterCurl();
      });
      ++groups_[plan.key].warming;
    } catch (const std::bad_alloc&) {
      warming_.erase(handle);
      throw;
    }
  }

  void Warmed(CURL* handle, CURLcode code) {
    const auto node = warming_.extract(handle);
    const Warming& warming = node.mapped();
    Group& group = groups_[warming.key];
    --group.warming;
    const bool opened = Info<long>(handle, CURLINFO_NUM_CONNECTS) > 0;
    if (opened) ++counts_.preconnected;
    if (warming.speaksHttp2) {
      group.isKnown = true;
      group.multiplexes = *warming.speaksHttp2;
      if (opened && !group.multiplexes) ++counts_.unused;  // libcurl does not keep it
    }
    if (!warming.multiplexed && code == CURLE_OK) {
      const auto socket = Info<curl_socket_t>(handle, CURLINFO_ACTIVESOCKET);
      const int kept = socket != CURL_SOCKET_BAD ? dup(socket) : -1;
      const base::Time until =
          base::Time::FromInternalValue(loop_.Now().ToInternalValue() + upstream_.keepPreconnectedMs * 1000);
      if (kept >= 0) KeepSpare(warming.key, {kept, until});
    }
    curl_multi_remove_handle(multi_, handle);
    Pump();
    OpenPlanned();
  }

  size_t SparesOf(const std::string& key) const {
    const auto found = spare_.find(key);
    return found != spare_.end() ? found->second.size() : 0;
  }

  void KeepSpare(const std::string& key, Spare spare) {
    spare_[key].push_back(spare);
    tasks_.Post([this] { CloseOldSpares(); }, upstream_.keepPreconnectedMs * 1000 + 1);
  }

  void CloseOldSpares() {
    const base::Time now = loop_.Now();
    for (auto place = spare_.begin(); place != spare_.end();) {
      std::erase_if(place->second, [&](const Spare& spare) {
        const bool old = spare.until <= now;
        if (old) close(spare.socket), ++counts_.unused;
        return old;
      });
      place = place->second.empty() ? spare_.erase(place) : std::next(place);
    }
  }

  // A socket that leads to that address and is still open; -1 when there is none.
  int TakeSpare(const curl_sockaddr& address) {
    for (auto place = spare_.begin(); place != spare_.end(); ++place) {
      for (auto spare = place->second.begin(); spare != place->second.end(); ++spare) {
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        if (getpeername(spare->socket, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
        if (length != address.addrlen || std::memcmp(&peer, &address.addr, length) != 0) continue;
        const int socket = spare->socket;
        place->second.erase(spare);
        if (place->second.empty()) spare_.erase(place);
        pollfd state = {.fd = socket, .events = POLLIN | POLLRDHUP, .revents = 0};
        if (poll(&state, 1, 0) == 0) return socket;
        close(socket);  // the server has closed it meanwhile
        ++counts_.unused;
        return -1;
      }
    }
    return -1;
  }

  static constexpr int64_t kTryAgainUs = 100'000;  // what has failed for want of memory
  static constexpr size_t kMostGroups = 1000;      // more are forgotten when nothing is under way for them

  EventLoop& loop_;
  const host::HostSettings settings_;
  const UpstreamSettings upstream_;
  CURLM* multi_;
  CURLSH* share_;
  StringList connectTo_;
  TransferId lastId_ = 0;
  std::map<TransferId, std::unique_ptr<Transfer>> transfers_;
  std::map<std::string, Group> groups_;
  std::set<TransferId> ready_;  // have events for their clients
  std::vector<Easy> doomed_;    // to be removed outside of libcurl
  std::vector<StringList> doomedLists_;
  std::deque<Plan> planned_;
  std::map<CURL*, Warming> warming_;
  std::map<std::string, std::vector<Spare>> spare_;  // by group
  std::map<int, int> unwatched_;                     // sockets that should be watched, and for what
  std::map<int, int> sockets_;  // that libcurl has, with their own ports once these are known
  int openedSpare_ = -1;        // the one that libcurl was given just now
  ConnectionCounts counts_;
  bool pumpPosted_ = false;
  host::Timer timer_;
  host::TaskScope tasks_;
};

CurlTransport::CurlTransport(EventLoop& loop, const host::HostSettings& settings,
                             const UpstreamSettings& upstream)
    : impl_(std::make_unique<Impl>(loop, settings, upstream)) {}
CurlTransport::~CurlTransport() = default;

TransferId CurlTransport::Start(const host::TransferRequest& request, host::TransferClient& client) {
  return impl_->Start(request, client);
}
void CurlTransport::SetUrgency(TransferId id, Urgency urgency) {
  impl_->SetUrgency(id, urgency);
}
void CurlTransport::SetReading(TransferId id, bool reading) {
  impl_->SetReading(id, reading);
}
host::TransferReport CurlTransport::Cancel(TransferId id) {
  return impl_->Cancel(id);
}
void CurlTransport::Preconnect(const std::string& url, size_t count, net::URLRequestContext* context) {
  impl_->Preconnect(url, count, context);
}
ConnectionCounts CurlTransport::Connections() const {
  return impl_->Connections();
}

}  // namespace live
