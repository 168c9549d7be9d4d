#include "WatchCommand.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "Advice.h"
#include "Text.h"

namespace qx::app {

WatchCommand::WatchCommand(const Context& context, WatchOptions options)
    : BackgroundRun(context, options.concurrent), options_(std::move(options)) {}

WatchCommand::~WatchCommand() {
  stop_.set();
  if (waiting_.joinable()) waiting_.join();
  if (inotify_ >= 0) ::close(inotify_);
}

void WatchCommand::begin() {
  inotify_ = ::inotify_init1(IN_CLOEXEC);
  // A file counts when its writer has finished: when it has been closed, or moved here whole.
  if (inotify_ < 0 || ::inotify_add_watch(inotify_, options_.directory.c_str(),
                                          IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE_SELF |
                                              IN_MOVE_SELF | IN_ONLYDIR) < 0) {
    stopped(std::string("cannot be watched: ") + std::strerror(errno));
    return;
  }
  open({});
}

void WatchCommand::opened() {
  out().event({{"event", "watching"}, {"directory", options_.directory}},
              "watching " + options_.directory + "; Ctrl-C stops");
  waiting_ = std::thread([this] { waitForFiles(); });
}

void WatchCommand::waitForFiles() {
  alignas(inotify_event) std::array<char, 65536> buffer;
  while (stop_.waitFor(inotify_)) {
    const ssize_t size = ::read(inotify_, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) {
      host().post([this] { stopped("can no longer be watched"); });
      return;
    }
    for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
      at += sizeof(inotify_event) + event->len;
      if ((event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0) {
        host().post([this] { stopped("is gone"); });
        return;
      }
      if ((event->mask & IN_Q_OVERFLOW) != 0) {
        host().post([this] {
          out().note("too many files at once; some new files of " + options_.directory +
                     " were missed, hand them over with \"background\"");
        });
      } else if (event->len > 0 && (event->mask & IN_ISDIR) == 0) {
        host().post([this, name = std::string(event->name)] { appeared(name); });
      }
    }
  }
}

void WatchCommand::appeared(const std::string& name) {
  // Programs that write another file first and rename it use hidden names for unfinished files.
  if (ending() || name.front() == '.') return;
  const std::string path = options_.directory + "/" + name;
  const auto bytes = readWholeFile(path);
  if (!bytes) {
    // The file no longer exists. It was a temporary file of its writer.
    if (bytes.error().code == ENOENT) return;
    failedBeforeStart(path, readFailure(bytes.error()), errorFields(bytes.error()));
    return;
  }
  if (!host().seams().imageHeaders.size(*bytes)) {
    if (context().verbose) out().note(path + " is not an image and is left alone");
    return;
  }
  submit(path, options_.scope);
}

void WatchCommand::stopped(const std::string& why) {
  if (ending()) return;
  out().failure({{"event", "failed"}, {"file", options_.directory}},
                options_.directory + " " + why + "; name a directory that exists");
  finish(kSomeFailed);
}

}  // namespace qx::app
