// Reading a command's parameters by position: an absent number is 0, an absent text null. Command thread.
#ifndef PLUGIN_COMMAND_PARAMS_H_
#define PLUGIN_COMMAND_PARAMS_H_

#include <cstddef>
#include <cstdint>

#include "plugin/corvane.h"

namespace kiv {

// A view of the command, which must outlive it. Texts stay the host's and end with the command.
class CommandParams {
 public:
  explicit CommandParams(const CorvaneCmd* cmd)
      : params_(cmd->paramsBegin), count_(static_cast<size_t>(cmd->paramsEnd - cmd->paramsBegin)) {}

  uint32_t Number(size_t index) const { return static_cast<uint32_t>(Value(index)); }
  const char* String(size_t index) const { return Pointer<const char>(index); }

  template <typename Object>
  Object* Pointer(size_t index) const {
    return reinterpret_cast<Object*>(Value(index));
  }

 private:
  uintptr_t Value(size_t index) const {
    return index < count_ && params_[index] != nullptr ? params_[index]->value : 0;
  }

  CorvaneCmdParam* const* params_;
  size_t count_;
};

}  // namespace kiv

#endif  // PLUGIN_COMMAND_PARAMS_H_
