#include "corvane/command.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace corvane {
namespace {

// What stands behind the pointer of a record made here. Deques, because parameters and texts must not move.
struct OwnedCommand : CorvaneCmd {
  OwnedCommand() : CorvaneCmd{} {}

  std::deque<CorvaneCmdParam> params;
  std::deque<std::string> texts;
  std::vector<CorvaneCmdParam*> order;
};

void Add(CorvaneCmd* cmd, uintptr_t value) {
  auto* const owned = static_cast<OwnedCommand*>(cmd);
  owned->params.push_back({value});
  owned->order.push_back(&owned->params.back());
  owned->paramsBegin = owned->order.data();
  owned->paramsEnd = owned->order.data() + owned->order.size();
}

}  // namespace

CorvaneCmd* NewCommand(CorvaneCmdType type, CorvaneActionType action) {
  auto owned = std::make_unique<OwnedCommand>();
  owned->type = type;
  owned->action = action;
  return owned.release();
}

void AddNumber(CorvaneCmd* cmd, uint32_t number) {
  Add(cmd, number);
}

void AddPointer(CorvaneCmd* cmd, const void* pointer) {
  Add(cmd, reinterpret_cast<uintptr_t>(pointer));
}

void AddText(CorvaneCmd* cmd, const char* text) {
  if (text == nullptr) {
    Add(cmd, 0);
    return;
  }
  auto* const owned = static_cast<OwnedCommand*>(cmd);
  owned->texts.emplace_back(text);
  Add(cmd, reinterpret_cast<uintptr_t>(owned->texts.back().c_str()));
}

void FreeCommand(CorvaneCmd* cmd) {
  delete static_cast<OwnedCommand*>(cmd);
}

}  // namespace corvane
