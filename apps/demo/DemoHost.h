// The host side of the demo: the answers, the logger and the tracker of an application that uses
// the uploader.
//
// Threads: the main thread makes and installs the host and then runs the main queue. The logger,
// the tracker and the answers are called from any thread.
#pragma once

#include <qxawsuploader/LinuxPlatform.h>
#include <qxawsuploader/Mutex.h>
#include <qxawsuploader/Platform.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace demo {

/// The addresses of the servers, and the signed-in user.
struct Account {
  std::string backend;
  std::string uploadServer;
  std::string store;
  std::string userId;
  std::string accessToken;
};

/// Writes each log record as one line to standard error.
class Logger : public qx::QXLogger {
 public:
  explicit Logger(int threshold) : threshold_(threshold) {}
  int threshold() override { return threshold_; }
  void write(const qx::LogRecord& record) override;

 private:
  const int threshold_;
};

/// Keeps the tracking events and item tags in the order they came.
class Tracker : public qx::QXTrackingEvents {
 public:
  using Event = std::pair<std::string, qx::Dictionary>;

  void add(std::string name, qx::Dictionary parameters) QX_EXCLUDES(mutex_);
  std::vector<Event> events() const QX_EXCLUDES(mutex_);

  void tagItem(const std::string& itemType, std::int64_t itemId, const std::string& imageUrl,
               const std::optional<std::vector<std::string>>& tags, std::int64_t imageSource,
               const std::optional<qx::Dictionary>& fields) override;
  void updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                  const std::optional<std::vector<std::string>>& tags,
                  const std::optional<qx::Dictionary>& fields) override;
  std::optional<qx::Dictionary> anyCodable(const qx::Dictionary& values) override {
    return values;  // This host puts only values into "fields" that JSON can hold.
  }

 private:
  mutable qx::Mutex mutex_;
  std::vector<Event> events_ QX_GUARDED_BY(mutex_);
};

/// The host: platform, answers and installed library in one object that lives as long as the
/// process.
class DemoHost {
 public:
  DemoHost(const Account& account, const std::string& documents, int logThreshold);

  /// Sends an action to the uploader.
  void send(std::string_view action, const qx::Dictionary& parameters);
  qx::LinuxPlatform& platform() { return platform_; }
  const Tracker& tracker() const { return tracker_; }

 private:
  void registerAnswers();

  const Account account_;
  Logger logger_;
  Tracker tracker_;
  std::atomic<std::int64_t> nextItemId_;
  qx::LinuxPlatform platform_;
};

}  // namespace demo
