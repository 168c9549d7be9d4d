// Measures the largest amount of memory that a piece of work takes, in a process of its own.
#pragma once

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "Sanitized.h"

namespace qx {

/// The number of KiB by which `work` raises the peak of the process's resident memory, or -1 when
/// the work fails. Under a sanitizer, whose memory cannot be told from that of the work, 0 when the
/// work succeeds.
inline long peakKiB(const std::function<void()>& work) {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    // Otherwise the work could use memory that the parent has freed, and that would not be counted.
    ::malloc_trim(0);
    rusage before{};
    rusage after{};
    ::getrusage(RUSAGE_SELF, &before);
    work();
    ::getrusage(RUSAGE_SELF, &after);
    const long grown = kSanitized ? 0 : after.ru_maxrss - before.ru_maxrss;
    ::_exit(::write(ends[1], &grown, sizeof(grown)) == sizeof(grown) ? 0 : 1);
  }
  ::close(ends[1]);
  long grown = -1;
  if (::read(ends[0], &grown, sizeof(grown)) != sizeof(grown)) grown = -1;
  ::close(ends[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return grown;
}

constexpr long kMiB = 1024;  // In KiB.

}  // namespace qx
