// Fakes of the host's smaller services: logger, console, notification centre, item tags,
// reachability. Each remembers what it was told.
//
//     FakeLogger logger;
//     library(logger);                      // Code that logs.
//     EXPECT_THAT(logger.messages(), testing::ElementsAre("miss scope"));
//
// Threads: every operation may be called from any thread. Handlers run on the calling thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Console.h"
#include "platform/Host.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx {

class FakeLogger : public QXLogger {
 public:
  int threshold() override;
  void write(const LogRecord& record) override;

  /// The threshold is 0 by default, so that every record is wanted.
  void setThreshold(int threshold);
  std::vector<LogRecord> records();
  /// The messages of the records, in order.
  std::vector<std::string> messages();

 private:
  Mutex mutex_;
  int threshold_ QX_GUARDED_BY(mutex_) = 0;
  std::vector<LogRecord> records_ QX_GUARDED_BY(mutex_);
};

class FakeConsole : public Console {
 public:
  void printLine(std::string_view line) override;

  std::vector<std::string> lines();

 private:
  Mutex mutex_;
  std::vector<std::string> lines_ QX_GUARDED_BY(mutex_);
};

class FakeNotificationCentre : public NotificationCentre {
 public:
  void addObserver(std::string name, std::function<void()> handler) override;
  void post(std::string_view name) override;

  /// The number of handlers of `name`.
  std::size_t observerCount(std::string_view name);

 private:
  Mutex mutex_;
  std::map<std::string, std::vector<std::function<void()>>, std::less<>> observers_
      QX_GUARDED_BY(mutex_);
};

class FakeTrackingEvents : public QXTrackingEvents {
 public:
  struct TaggedItem {
    std::string itemType;
    std::int64_t itemId = 0;
    std::string imageUrl;
    std::optional<std::vector<std::string>> tags;
    std::int64_t imageSource = 0;
    std::optional<Dictionary> fields;
  };
  struct UpdatedItem {
    std::optional<std::string> itemType;
    std::int64_t itemId = 0;
    std::optional<std::vector<std::string>> tags;
    std::optional<Dictionary> fields;
  };

  void tagItem(const std::string& itemType, std::int64_t itemId, const std::string& imageUrl,
               const std::optional<std::vector<std::string>>& tags, std::int64_t imageSource,
               const std::optional<Dictionary>& fields) override;
  void updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                  const std::optional<std::vector<std::string>>& tags,
                  const std::optional<Dictionary>& fields) override;
  /// Yields the map itself unless setAnyCodable() has set something else.
  std::optional<Dictionary> anyCodable(const Dictionary& values) override;

  void setAnyCodable(std::function<std::optional<Dictionary>(const Dictionary&)> convert);
  std::vector<TaggedItem> tagged();
  std::vector<UpdatedItem> updated();

 private:
  Mutex mutex_;
  std::vector<TaggedItem> tagged_ QX_GUARDED_BY(mutex_);
  std::vector<UpdatedItem> updated_ QX_GUARDED_BY(mutex_);
  std::function<std::optional<Dictionary>(const Dictionary&)> convert_ QX_GUARDED_BY(mutex_);
};

class FakeReachability : public QXNetworkingReachabilityTool {
 public:
  bool isReachable() override;
  void startListening(Listener listener) override;

  /// The network is reachable at first. A change calls the listeners on the calling thread before
  /// it returns.
  void setReachable(bool reachable);
  std::size_t listenerCount();

 private:
  Mutex mutex_;
  bool reachable_ QX_GUARDED_BY(mutex_) = true;
  std::vector<Listener> listeners_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
