// How urgent a request is to the network stack: smaller is more urgent.
#ifndef NET_BASE_REQUEST_PRIORITY_H_
#define NET_BASE_REQUEST_PRIORITY_H_

namespace net {

enum RequestPriority {
  HIGHEST = 0,
  MEDIUM = 1,
  LOW = 2,
  LOWEST = 3,
  IDLE = 4,
};

}  // namespace net

#endif  // NET_BASE_REQUEST_PRIORITY_H_
