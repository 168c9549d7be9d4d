// One run of a command that uses the library: the host, the output, and how the run ends.
//
// Threads: everything but the HostListener's operations happens on the main thread; what arrives
// elsewhere is posted there first.
// Ownership: a session lives until the process ends, for callbacks of the library may come that
// long.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "Host.h"
#include "Output.h"
#include "ScratchFolder.h"
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
  /// The documents directory of a command that leaves the stored tasks alone; removed at the end.
  const ScratchFolder* scratch = nullptr;
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
  /// The directory of stored tasks and downloads.
  std::string documents();

 private:
  void removeScratch() const;

  const Context context_;
  Host host_;
  std::optional<int> status_;
};

}  // namespace qx::app
