// Counts this process's changes to the file system, and can end it at any one of them.
//
// The functions of the C library that change files are defined anew in FileCalls.cpp, for the whole
// executable. Threads: for processes of one thread.
#pragma once

namespace qx {

/// From now on: SIGKILL in place of the `n`th call (the first is 1). `half`: if that call is a
/// write, after half of its bytes are written. 0: never.
void killAtFileCall(int n, bool half);

}  // namespace qx
