#include "tests/live/support/fail_one_call.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

tests::FailControl* control = nullptr;

__attribute__((constructor)) void FindControl() {
  const int file = open(getenv("KIV_FAIL_CONTROL"), O_RDWR | O_CLOEXEC);
  void* const mapped = mmap(nullptr, sizeof(tests::FailControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (mapped != MAP_FAILED) control = static_cast<tests::FailControl*>(mapped);
}

bool Fails(const char* call) {
  if (control == nullptr || control->armed == 0 || std::strcmp(control->call, call) != 0) return false;
  if (++control->calls != control->failAt) return false;
  errno = control->error;
  return true;
}

template <typename Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// `failure` is what the function returns then. Names of ours, because headers declare some as variadic.
#define INTERPOSE(type, name, parameters, arguments, failure) \
  INTERPOSE_WHERE(true, type, name, parameters, arguments, failure)
#define INTERPOSE_WHERE(canFail, type, name, parameters, arguments, failure) \
  extern "C" type Interposed_##name parameters __asm__(#name);               \
  extern "C" type Interposed_##name parameters {                             \
    static const auto real = Real<type(*) parameters>(#name);                \
    return (canFail) && Fails(#name) ? failure : real arguments;             \
  }

// Memory has real functions under other names, because looking one up takes memory.
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
#define INTERPOSE_MEMORY(name, parameters, arguments)           \
  extern "C" void* Interposed_##name parameters __asm__(#name); \
  extern "C" void* Interposed_##name parameters {               \
    return Fails(#name) ? nullptr : __libc_##name arguments;    \
  }

// clang-format off
#ifndef KIV_SANITIZED  // sanitizers have functions of their own
INTERPOSE_MEMORY(calloc, (size_t count, size_t bytes), (count, bytes))
INTERPOSE_MEMORY(realloc, (void* old, size_t bytes), (old, bytes))
#endif

INTERPOSE(int, socket, (int domain, int kind, int protocol), (domain, kind, protocol), -1)
INTERPOSE(int, connect, (int socket, const sockaddr* to, socklen_t size), (socket, to, size), -1)
INTERPOSE(int, accept, (int socket, sockaddr* from, socklen_t* size), (socket, from, size), -1)
INTERPOSE(int, setsockopt, (int socket, int level, int name, const void* value, socklen_t size),
          (socket, level, name, value, size), -1)
INTERPOSE(int, getsockopt, (int socket, int level, int name, void* value, socklen_t* size),
          (socket, level, name, value, size), -1)
INTERPOSE(int, getpeername, (int socket, sockaddr* name, socklen_t* size), (socket, name, size), -1)
INTERPOSE(ssize_t, recv, (int socket, void* bytes, size_t count, int flags), (socket, bytes, count, flags), -1)
INTERPOSE(ssize_t, send, (int socket, const void* bytes, size_t count, int flags), (socket, bytes, count, flags), -1)
INTERPOSE(int, poll, (pollfd* sockets, nfds_t count, int timeout), (sockets, count, timeout), -1)
INTERPOSE_WHERE(what == EPOLL_CTL_ADD, int, epoll_ctl, (int set, int what, int file, epoll_event* event), (set, what, file, event), -1)
INTERPOSE(int, epoll_wait, (int set, epoll_event* events, int count, int timeout), (set, events, count, timeout), -1)
INTERPOSE(ssize_t, pwrite64, (int file, const void* bytes, size_t count, off_t at), (file, bytes, count, at), -1)

INTERPOSE(CURL*, curl_easy_init, (), (), nullptr)
INTERPOSE(CURLcode, curl_easy_setopt, (CURL* easy, CURLoption option, void* value), (easy, option, value),
          CURLE_OUT_OF_MEMORY)
INTERPOSE(curl_slist*, curl_slist_append, (curl_slist* list, const char* text), (list, text), nullptr)
INTERPOSE(CURLMcode, curl_multi_add_handle, (CURLM* multi, CURL* easy), (multi, easy), CURLM_OUT_OF_MEMORY)
INTERPOSE(CURLMcode, curl_multi_remove_handle, (CURLM* multi, CURL* easy), (multi, easy), CURLM_BAD_EASY_HANDLE)
INTERPOSE(CURLMcode, curl_multi_socket_action, (CURLM* multi, curl_socket_t socket, int what, int* running),
          (multi, socket, what, running), CURLM_INTERNAL_ERROR)
// clang-format on
