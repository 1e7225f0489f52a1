// The interface between a running host and the stub's Corvane functions: libcorvane.so forwards them to the
// Api that is set here. A program that defines the functions itself (plain symbols) does not need it.
#ifndef CORVANE_API_H_
#define CORVANE_API_H_

#include "plugin/corvane.h"

namespace corvane {

// Answers the plugin's calls. The base class behaves like a running host that refuses every fetch, logs
// nothing and discards commands. Each function is called on the thread that plugin/corvane.h names for the
// function of the same name.
class Api {
 public:
  virtual ~Api();

  virtual uint32_t Hash(const char* url);
  virtual void HostPort(const std::string& url, std::string& hostPort);
  virtual int Fetch(void* cookie, net::URLRequestContext* context);
  virtual void* IoMessageLoop();
  virtual void* HttpCache();
  virtual int MaxSocketsPerGroup();
  virtual base::Time SystemTime();
  virtual int VerboseLevel();
  virtual bool VerboseEnabled();
  virtual CorvaneCmd* CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value);
  // Takes ownership of the command. The host frees it with FreeCommand after it was handled.
  virtual void CommitDelayed(CorvaneCmd* cmd, unsigned int delay);
};

// Sets the Api of this process; null restores the base class. Must not be called while the plugin runs.
void SetApi(Api* api);

}  // namespace corvane

#endif  // CORVANE_API_H_
