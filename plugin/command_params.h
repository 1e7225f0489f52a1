// Reads a command's parameters: absent numbers are 0, absent texts and pointers are null. Command thread.
#ifndef PLUGIN_COMMAND_PARAMS_H_
#define PLUGIN_COMMAND_PARAMS_H_

#include <cstddef>
#include <cstdint>

#include "plugin/commands.h"
#include "plugin/corvane.h"

namespace kiv {

// A view of a command, which must outlive the view. The texts belong to the host and end with the command.
class CommandParams {
 public:
  explicit CommandParams(const CorvaneCmd* cmd)
      : params_(cmd->paramsBegin), count_(static_cast<size_t>(cmd->paramsEnd - cmd->paramsBegin)) {}

  uint32_t operator[](NumberParam param) const { return static_cast<uint32_t>(Value(param.position)); }
  const char* operator[](TextParam param) const {
    return reinterpret_cast<const char*>(Value(param.position));
  }
  template <typename Object>
  Object* operator[](PointerParam<Object> param) const {
    return reinterpret_cast<Object*>(Value(param.position));
  }

 private:
  uintptr_t Value(size_t position) const {
    return position < count_ && params_[position] != nullptr ? params_[position]->value : 0;
  }

  CorvaneCmdParam* const* params_;
  size_t count_;
};

}  // namespace kiv

#endif  // PLUGIN_COMMAND_PARAMS_H_
