// One run of a command that uses the library: the host, the output, and how the run ends.
//
// Threads: everything but the HostListener's operations happens on the main thread; what arrives
// elsewhere is posted there first. When run() returns, no callback of the library comes any more.
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

/// What every command is given.
struct Context {
  const Settings& settings;
  Output& out;
  std::string token;
  /// Show the library's log records.
  bool verbose = false;
  /// Drop the tasks that earlier runs stored.
  bool forget = false;
};

class Session : public HostListener {
 public:
  explicit Session(const Context& context);

  /// Runs until finish(); the exit status.
  int run();

  void onLog(const LogRecord& record) override;
  /// To standard error: scripts read standard output.
  void onPrint(const std::string& line) override;

 protected:
  /// The first work on the main queue.
  virtual void begin() = 0;
  /// A person wants to stop: say what is left and finish.
  virtual void interrupted() = 0;

  void finish(int status);
  bool finished() const { return status_.has_value(); }

  const Context& context() const { return context_; }
  Output& out() { return context_.out; }
  Host& host() { return host_; }
  double now() { return host_.seams().clock.now(); }
  /// The directory of stored tasks and downloads, as the user wrote it.
  std::string documents() const;
  std::string userId() const;
  /// Makes the documents directory when it is missing. False when that failed, and then the run has
  /// ended.
  bool makeDocuments();
  /// Why what is stored cannot be read, and what becomes of a log that is damaged.
  static std::string unreadableText(const Error& error);
  /// True when an error says that another process has what is stored, or that a symbolic link
  /// stands where the lock belongs.
  static bool refusesStored(const Error& error);
  /// Says so, and what to do about it.
  void tellRefusal(const Error& error);

 private:
  const Context context_;
  Host host_;
  std::optional<int> status_;
};

}  // namespace qx::app
