#include "Interrupts.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <thread>
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

void Interrupts::watch(std::function<void()> handler, std::function<void()> lastly) {
  std::thread([handler = std::move(handler), lastly = std::move(lastly)] {
    const sigset_t set = watchedSignals();
    int signal = 0;
    sigwait(&set, &signal);
    handler();
    sigwait(&set, &signal);
    lastly();
    ::_exit(kInterrupted);
  }).detach();
}

}  // namespace qx::app
