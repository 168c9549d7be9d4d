#include "TokenCommand.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>

namespace qx::app {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostBytes = std::size_t{64} << 10;
constexpr std::chrono::seconds kMostTime{30};

Error fault(std::string why) {
  return {"qxuploader", 0, std::move(why)};
}

/// Starts the command with its standard output on `write`. Yields its process id, or nothing.
std::optional<pid_t> started(const std::string& command, int write) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, write, STDOUT_FILENO);
  std::string shell = "sh";
  std::string option = "-c";
  std::string text = command;
  std::array<char*, 4> arguments = {shell.data(), option.data(), text.data(), nullptr};
  pid_t pid = 0;
  // The command stays in the process group of this program, so that it may ask on the terminal and
  // gets Ctrl-C.
  const int code = ::posix_spawn(&pid, "/bin/sh", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return code == 0 ? std::optional(pid) : std::nullopt;
}

/// Waits until `fd` can be read. False when the time is over.
bool readableInTime(int fd, Clock::time_point end) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) return false;
    pollfd entry = {fd, POLLIN, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return true;  // Reading will tell the reason.
  }
}

/// The output from `fd` up to its end.
Result<std::string> printedOn(int fd, Clock::time_point end) {
  std::string printed;
  std::array<char, 4096> buffer;
  for (;;) {
    if (!readableInTime(fd, end)) return fault("took over 30 s");
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n == 0) return printed;
    if (n < 0 && errno != EINTR) return fault("could not be read");
    if (n > 0) printed.append(buffer.data(), static_cast<std::size_t>(n));
    if (printed.size() > kMostBytes) return fault("printed more than 64 KiB");
  }
}

/// The exit status of the command once it has ended. Nothing when the time is over before.
std::optional<int> endedInTime(pid_t pid, Clock::time_point end) {
  for (;;) {
    int status = 0;
    const pid_t ended = ::waitpid(pid, &status, WNOHANG);
    if (ended == pid) return status;
    if (ended < 0 && errno != EINTR) return 0;
    if (Clock::now() >= end) return std::nullopt;
    ::poll(nullptr, 0, 5);
  }
}

}  // namespace

Result<std::string> outputOfTokenCommand(const std::string& command) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return fault("could not be started");
  const Clock::time_point end = Clock::now() + kMostTime;
  const auto pid = started(command, ends[1]);
  ::close(ends[1]);
  auto printed = pid ? printedOn(ends[0], end) : fault("could not be started");
  ::close(ends[0]);
  if (!pid) return printed;
  std::optional<int> status;
  if (printed) {
    status = endedInTime(*pid, end);
    if (!status) printed = fault("took over 30 s");
  }
  if (!status) {
    ::kill(*pid, SIGKILL);
    ::waitpid(*pid, nullptr, 0);
    return printed;
  }
  if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) {
    return fault("failed" +
                 (WIFEXITED(*status) ? " with exit status " + std::to_string(WEXITSTATUS(*status))
                                     : std::string(" on a signal")) +
                 "; run it by hand to see why");
  }
  std::string text = *std::move(printed);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  if (text.empty()) return fault("printed nothing");
  return text;
}

}  // namespace qx::app
