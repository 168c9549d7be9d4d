// The name of the queue or thread that runs the caller.
//
// Threads: any.
#pragma once

#include <string>

namespace qx::app {

/// Remembers the calling thread as the main one.
void rememberMainThread();
/// "main", the label of one of the library's queues, or the thread's name.
std::string currentQueueName();

}  // namespace qx::app
