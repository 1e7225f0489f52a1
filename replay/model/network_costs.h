// What a real network costs beyond round trips and bandwidth, each with a switch. It applies where round
// trips and bandwidth are a profile's; what was recorded has it in its times. Any thread.
#ifndef REPLAY_MODEL_NETWORK_COSTS_H_
#define REPLAY_MODEL_NETWORK_COSTS_H_

#include <cstdint>

namespace replay {

struct NetworkCosts {
  // A TLS set-up brings the server's certificates over the link. On: connections that nobody ends up using
  // would be free otherwise, and a slow link notices them.
  bool certificates = true;

  // The first connection to a host name waits for its address. On: browsers remember addresses for a minute,
  // and visits are further apart.
  bool nameLookups = true;

  // A connection begins with a small window and widens it as its bytes are acknowledged. On: most responses
  // of a page are over before the window is wide.
  bool slowStart = true;
};

// Of one set-up: a chain of two or three certificates, as most servers send it. Within a visit, later
// connections of a group resume the session of an earlier one, which takes none.
inline constexpr int64_t kCertificateBytes = 4000;
inline constexpr int64_t kResumedBytes = 300;

// Ten segments of 1,460 bytes, as RFC 6928 has it.
inline constexpr int64_t kInitialWindow = 14'600;

}  // namespace replay

#endif  // REPLAY_MODEL_NETWORK_COSTS_H_
