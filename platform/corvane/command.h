// Builds command records in the layout that the plugin reads.
#ifndef CORVANE_COMMAND_H_
#define CORVANE_COMMAND_H_

#include <memory>

#include "plugin/commands.h"

namespace corvane {

// Frees a record that was made here, and its texts. The record may be null.
void FreeCommand(CorvaneCmd* cmd);

// Owns a command record. One thread at a time.
class Command {
 public:
  explicit Command(kiv::CommandId id);

  // Set one parameter. Parameters before it that are not set are read as 0 or null. Texts are copied and
  // may be null.
  Command& Set(kiv::NumberParam param, uint32_t number);
  Command& Set(kiv::TextParam param, const char* text);
  template <typename Object>
  Command& Set(kiv::PointerParam<Object> param, Object* pointer) {
    return SetValue(param.position, reinterpret_cast<uintptr_t>(pointer));
  }
  // Sets a text that is not copied: it must outlive the record.
  Command& Lend(kiv::TextParam param, const char* text) {
    return SetValue(param.position, reinterpret_cast<uintptr_t>(text));
  }
  // Adds a null pointer to the record's array of parameters.
  Command& Omit(size_t position);

  CorvaneCmd* Get() const { return record_.get(); }
  // Transfers the record to the caller, who must free it with FreeCommand.
  CorvaneCmd* Release() { return record_.release(); }

 private:
  Command& SetValue(size_t position, uintptr_t value);

  struct Free {
    void operator()(CorvaneCmd* cmd) const { FreeCommand(cmd); }
  };
  std::unique_ptr<CorvaneCmd, Free> record_;
};

// Append one parameter to a record that was made here, as the plugin does. Texts are copied and may be null.
void AppendNumber(CorvaneCmd* cmd, uint32_t number);
void AppendText(CorvaneCmd* cmd, const char* text);

}  // namespace corvane

#endif  // CORVANE_COMMAND_H_
