// What a real network costs beyond round trips and bandwidth, each with a switch. These costs apply if round
// trips and bandwidth come from a profile; recorded times already include them. Any thread.
#ifndef REPLAY_MODEL_NETWORK_COSTS_H_
#define REPLAY_MODEL_NETWORK_COSTS_H_

#include <cstdint>

namespace replay {

struct NetworkCosts {
  // A TLS set-up transfers the server's certificates over the link. This is on because connections that
  // nobody uses in the end would otherwise cost nothing, although they slow down a slow link.
  bool certificates = true;

  // The first connection to a host name waits for a name lookup. This is on because browsers remember
  // addresses for a minute, and visits are further apart.
  bool nameLookups = true;

  // A connection starts with a small window, which grows as bytes are acknowledged. This is on because most
  // responses of a page are complete before the window is large.
  bool slowStart = true;
};

// The size of the two or three certificates that most servers send in one set-up. Later connections of a
// group in the same visit resume the session of an earlier one, and need none.
inline constexpr int64_t kCertificateBytes = 4000;
inline constexpr int64_t kResumedBytes = 300;

// Ten segments of 1,460 bytes, as RFC 6928 has it.
inline constexpr int64_t kInitialWindow = 14'600;

}  // namespace replay

#endif  // REPLAY_MODEL_NETWORK_COSTS_H_
