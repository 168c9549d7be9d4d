#include "Interrupts.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace qx::app {
namespace {

sigset_t watchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

void Interrupts::block() {
  const sigset_t set = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

Interrupts::Interrupts(std::function<void()> handler)
    : handler_(std::move(handler)), thread_([this] { watch(); }) {}

Interrupts::~Interrupts() {
  ending_ = true;
  // One of the watched signals, sent to this thread alone, ends its wait.
  pthread_kill(thread_.native_handle(), SIGINT);
  thread_.join();
}

void Interrupts::watch() {
  const sigset_t set = watchedSignals();
  for (bool first = true;; first = false) {
    int signal = 0;
    sigwait(&set, &signal);
    if (ending_) return;
    if (!first) ::_exit(kInterrupted);
    handler_();
  }
}

}  // namespace qx::app
