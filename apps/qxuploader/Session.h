// A run of a command that uses the library: the host, the output, and the end of the run.
//
// Threads: everything except the HostListener's operations happens on the main thread. Reports that
// arrive on other threads are posted to it first. When run() returns, no callback of the library
// comes any more.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Host.h"
#include "Output.h"
#include "Settings.h"
#include "WholeFile.h"

namespace qx::app {

inline constexpr int kAllDone = 0;
inline constexpr int kSomeFailed = 1;
inline constexpr int kWrongUsage = 2;

/// The parts that every command gets.
struct Context {
  const Settings& settings;
  Output& out;
  std::string token;
  /// True: shows the library's log records.
  bool verbose = false;
  /// True: drops the tasks that earlier runs have stored.
  bool forget = false;
};

class Session : public HostListener {
 public:
  explicit Session(const Context& context);

  /// Runs until finish() and yields the exit status.
  int run();

  void onLog(const LogRecord& record) override;
  /// Writes to standard error, because scripts read standard output.
  void onPrint(const std::string& line) override;

 protected:
  /// Called as the first work on the main queue.
  virtual void begin() = 0;
  /// Called when a person wants to stop: reports what is left and finishes.
  virtual void interrupted() = 0;

  void finish(int status);
  bool finished() const { return status_.has_value(); }

  const Context& context() const { return context_; }
  Output& out() { return context_.out; }
  Host& host() { return host_; }
  double now() { return host_.seams().clock.now(); }
  /// The directory of stored tasks and downloads, as the user has written it.
  std::string documents() const;
  std::string userId() const;
  /// Makes the documents directory when it is missing. False when that failed; the run has ended
  /// then.
  bool makeDocuments();
  /// The reason why the stored tasks cannot be read, with advice for a damaged log.
  static std::string unreadableText(const Error& error);
  /// True when an error says that another process uses the stored tasks, or that a symbolic link
  /// takes the place of the lock.
  static bool refusesStored(const Error& error);
  /// Reports this error, with advice.
  void tellRefusal(const Error& error);

 private:
  const Context context_;
  Host host_;
  std::optional<int> status_;
};

}  // namespace qx::app
