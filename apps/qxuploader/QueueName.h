// The name of the queue or thread that runs the caller.
//
// Threads: the functions may be called from any thread.
#pragma once

#include <string>

namespace qx::app {

/// Remembers the calling thread as the main thread.
void rememberMainThread();
/// The text "main", the label of one of the library's queues, or the name of the thread.
std::string currentQueueName();

}  // namespace qx::app
