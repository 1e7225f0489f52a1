// Where a running host plugs into the stand-in's Corvane functions: libcorvane.so answers them from the Api
// that is set here. A program that defines the functions itself (they are plain symbols) needs none of this.
#ifndef CORVANE_API_H_
#define CORVANE_API_H_

#include "plugin/corvane.h"

namespace corvane {

// Answers the plugin's calls. The base class is a host that is up, refuses every fetch, logs nothing and
// keeps no command. Each function is called on the thread that the function of the same name in
// plugin/corvane.h names.
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
  // Takes the command over: the host frees it with FreeCommand once it has been handled.
  virtual void CommitDelayed(CorvaneCmd* cmd, unsigned int delay);
};

// Sets the answers of this process; null restores the base class. Not while the plugin is running.
void SetApi(Api* api);

}  // namespace corvane

#endif  // CORVANE_API_H_
