#include "StopEvent.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "platform/Error.h"

namespace qx::app {

StopEvent::StopEvent() : fd_(::eventfd(0, EFD_CLOEXEC)) {
  if (fd_ < 0) fatal("there are no descriptors left");
}

StopEvent::~StopEvent() {
  ::close(fd_);
}

void StopEvent::set() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(fd_, &one, sizeof one);
}

bool StopEvent::waitFor(int fd) const {
  std::array<pollfd, 2> events = {pollfd{fd_, POLLIN, 0}, pollfd{fd, POLLIN, 0}};
  while (::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
  }
  return events[0].revents == 0;
}

}  // namespace qx::app
