#include "QueueName.h"

#include <pthread.h>

#include <array>
#include <string_view>

namespace qx::app {
namespace {

pthread_t mainThread;

}  // namespace

void rememberMainThread() {
  mainThread = pthread_self();
}

std::string currentQueueName() {
  if (pthread_equal(mainThread, pthread_self()) != 0) return "main";
  std::array<char, 16> name{};
  if (pthread_getname_np(pthread_self(), name.data(), name.size()) != 0) return "";
  // The system keeps 15 characters of a name. The library's labels are longer.
  for (const std::string_view label :
       {"com.aws.get.config", "com.aws.fetch", "com.aws.change.config"}) {
    if (label.substr(0, name.size() - 1) == name.data()) return std::string(label);
  }
  return name.data();
}

}  // namespace qx::app
