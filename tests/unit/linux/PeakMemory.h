// How much memory a piece of work takes at its worst, measured in a process of its own.
#pragma once

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "fakes/Sanitized.h"

namespace qx {

/// By how many KiB `work` raises the peak of the process's resident memory, or -1 when it does not
/// end well. Under a sanitizer, whose own memory cannot be told from the work's, 0 for work that
/// ends well.
inline long peakKiB(const std::function<void()>& work) {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    // Memory that the parent has freed would otherwise be used again without being counted.
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

constexpr long kMiB = 1024;  // in KiB

}  // namespace qx
