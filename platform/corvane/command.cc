#include "corvane/command.h"

#include <deque>
#include <string>
#include <vector>

namespace corvane {
namespace {

// The full object behind a record made here. It uses deques because parameters and texts must not move.
struct OwnedCommand : CorvaneCmd {
  OwnedCommand() : CorvaneCmd{} {}

  std::deque<CorvaneCmdParam> params;
  std::deque<std::string> texts;
  std::vector<CorvaneCmdParam*> order;
};

OwnedCommand& Owned(CorvaneCmd* cmd) {
  return *static_cast<OwnedCommand*>(cmd);
}

CorvaneCmdParam& ParamAt(OwnedCommand& owned, size_t position) {
  while (owned.params.size() <= position) {
    owned.params.push_back({0});
    owned.order.push_back(&owned.params.back());
  }
  owned.paramsBegin = owned.order.data();
  owned.paramsEnd = owned.order.data() + owned.order.size();
  return owned.params[position];
}

uintptr_t KeepText(OwnedCommand& owned, const char* text) {
  if (text == nullptr) return 0;
  owned.texts.emplace_back(text);
  return reinterpret_cast<uintptr_t>(owned.texts.back().c_str());
}

}  // namespace

void FreeCommand(CorvaneCmd* cmd) {
  delete static_cast<OwnedCommand*>(cmd);
}

Command::Command(kiv::CommandId id) : record_(new OwnedCommand) {
  record_->type = id.type;
  record_->action = id.action;
}

Command& Command::Set(kiv::NumberParam param, uint32_t number) {
  return SetValue(param.position, number);
}

Command& Command::Set(kiv::TextParam param, const char* text) {
  return SetValue(param.position, KeepText(Owned(record_.get()), text));
}

Command& Command::SetValue(size_t position, uintptr_t value) {
  ParamAt(Owned(record_.get()), position).value = value;
  return *this;
}

Command& Command::Omit(size_t position) {
  OwnedCommand& owned = Owned(record_.get());
  ParamAt(owned, position);
  owned.order[position] = nullptr;
  return *this;
}

void AppendNumber(CorvaneCmd* cmd, uint32_t number) {
  OwnedCommand& owned = Owned(cmd);
  ParamAt(owned, owned.params.size()).value = number;
}

void AppendText(CorvaneCmd* cmd, const char* text) {
  OwnedCommand& owned = Owned(cmd);
  const uintptr_t kept = KeepText(owned, text);
  ParamAt(owned, owned.params.size()).value = kept;
}

}  // namespace corvane
