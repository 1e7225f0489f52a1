#include "live/link/packet_shuttle.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>

#include "live/link/tun.h"

namespace live_link {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr int kReadsAtOnce = 64;  // then packets that have become due are delivered

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// For how long this thread has been ready to run without a processor, since it began.
int64_t TimeWithoutProcessorNs(const Link& link) {
  std::array<char, 128> text{};
  if (link.schedstat < 0 || pread(link.schedstat, text.data(), text.size() - 1, 0) <= 0) return 0;
  long long running = 0, waiting = 0;
  return sscanf(text.data(), "%lld %lld", &running, &waiting) == 2 ? waiting : 0;
}

void SetTimer(int timer, int64_t dueNs) {
  itimerspec when{};
  if (dueNs != kNever) {
    when.it_value.tv_sec = dueNs / kNsPerSecond;
    when.it_value.tv_nsec = dueNs % kNsPerSecond;
  }
  if (timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr) != 0) ThrowErrno("cannot set the timer");
}

void TakePackets(Direction& direction, int64_t readLateNs) {
  for (int reads = 0; reads < kReadsAtOnce; ++reads) {
    std::vector<std::byte> bytes = ReadPacket(direction.fromTun);
    if (bytes.empty()) return;
    const auto due = TakePacket(direction.queue, NowNs(), bytes.size());
    if (due) {
      direction.inFlight.push_back({.dueNs = *due, .readLateNs = readLateNs, .bytes = std::move(bytes)});
    } else {
      direction.counts.droppedPackets += 1;
      direction.counts.droppedBytes += bytes.size();
    }
  }
}

void DeliverDuePackets(Direction& direction, Lateness& lateness) {
  while (!direction.inFlight.empty()) {
    const PacketInFlight& packet = direction.inFlight.front();
    const int64_t nowNs = NowNs();
    if (packet.dueNs > nowNs) return;
    WritePacket(direction.toTun, packet.bytes);
    direction.counts.packets += 1;
    direction.counts.bytes += packet.bytes.size();
    const int64_t lateNs = packet.readLateNs + nowNs - packet.dueNs;
    lateness.packets += 1;
    lateness.latePackets += lateNs > lateness.boundNs ? 1 : 0;
    lateness.latestNs = std::max(lateness.latestNs, lateNs);
    direction.inFlight.pop_front();
  }
}

int64_t NextDue(const Direction& direction) {
  return direction.inFlight.empty() ? kNever : direction.inFlight.front().dueNs;
}

}  // namespace

int64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

Link MakeLink(int serverTun, int clientTun, const LinkSettings& down, const LinkSettings& up,
              int64_t lateBoundNs) {
  Link link;
  link.down = {.fromTun = serverTun, .toTun = clientTun, .queue = {.settings = down}};
  link.up = {.fromTun = clientTun, .toTun = serverTun, .queue = {.settings = up}};
  link.lateness.boundNs = lateBoundNs;
  link.timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  if (link.timer < 0) ThrowErrno("cannot create a timer");
  link.schedstat = open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC);
  return link;
}

void CarryPackets(Link& link, int wakeFd, std::optional<int64_t> deadlineNs) {
  std::array<pollfd, 4> sources = {{{.fd = wakeFd, .events = POLLIN, .revents = 0},
                                    {.fd = link.down.fromTun, .events = POLLIN, .revents = 0},
                                    {.fd = link.up.fromTun, .events = POLLIN, .revents = 0},
                                    {.fd = link.timer, .events = POLLIN, .revents = 0}}};
  const int64_t endNs = deadlineNs.value_or(kNever);
  int64_t timerNs = 0;  // an unknown time: the first round sets the timer
  int64_t withoutProcessorNs = TimeWithoutProcessorNs(link);
  do {
    const int64_t nextNs = std::min({NextDue(link.down), NextDue(link.up), endNs});
    if (nextNs != timerNs)
      SetTimer(link.timer, timerNs = nextNs);  // which also ends an expiry that nobody read
    if (poll(sources.data(), sources.size(), -1) < 0 && errno != EINTR) ThrowErrno("cannot wait for packets");
    const int64_t withoutProcessorBeforeNs = std::exchange(withoutProcessorNs, TimeWithoutProcessorNs(link));
    const int64_t readLateNs = withoutProcessorNs - withoutProcessorBeforeNs;
    TakePackets(link.down, readLateNs);
    TakePackets(link.up, readLateNs);
    DeliverDuePackets(link.down, link.lateness);
    DeliverDuePackets(link.up, link.lateness);
  } while ((sources[0].revents & POLLIN) == 0 && NowNs() < endNs);
}

}  // namespace live_link
