#include "replay/interruption.h"

#include <array>

namespace replay {
namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t caughtSignal = 0;
std::array<struct sigaction, kSignals.size()> actionsBefore;

void Remember(int number) {
  if (caughtSignal == 0) caughtSignal = number;
}

}  // namespace

InterruptionWatch::InterruptionWatch() {
  sigset_t watched;
  sigemptyset(&watched);
  struct sigaction action {};
  action.sa_handler = Remember;
  for (size_t index = 0; index < kSignals.size(); ++index) {
    sigaction(kSignals[index], nullptr, &actionsBefore[index]);
    if (actionsBefore[index].sa_handler == SIG_IGN) continue;  // as nohup asks for
    sigaddset(&watched, kSignals[index]);
    sigaction(kSignals[index], &action, nullptr);
  }
  sigprocmask(SIG_BLOCK, &watched, &before_);
}

InterruptionWatch::~InterruptionWatch() {
  LetGoInChild();
}

void InterruptionWatch::LetGoInChild() const {
  sigprocmask(SIG_SETMASK, &before_, nullptr);  // what is pending is remembered now
  for (size_t index = 0; index < kSignals.size(); ++index) {
    sigaction(kSignals[index], &actionsBefore[index], nullptr);
  }
}

int Interruption() {
  return caughtSignal;
}

}  // namespace replay
