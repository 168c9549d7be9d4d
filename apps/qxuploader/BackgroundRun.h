// Background uploads under way: hands files over, keeps the count, says what happened.
//
// The library tells the outcome of each attempt through one callback that knows the task's extra
// values only. A file's task is found again by the extra values that this program adds to it, an
// image by its digest and item.
// Threads: see Session.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Session.h"
#include "StoredTasks.h"
#include "UnknownScopes.h"

namespace qx::app {

class BackgroundRun : public Session {
 protected:
  BackgroundRun(const Context& context, std::optional<std::int64_t> concurrent);

  struct OpenOptions {
    /// What earlier runs stored is what this run is about: its exit status tells of it.
    bool allOfThisRun = false;
    /// Names of stored tasks that get all their attempts back and are of this run.
    std::vector<std::string> retried;
  };
  /// Makes the library ready and takes up what earlier runs stored, or drops it with --forget.
  /// False when that failed, and then the run has ended.
  bool open(const OpenOptions& options);
  /// Hands a file over; what cannot be read is reported and counted as failed.
  void submit(const std::string& file, const std::string& scope);
  /// The same for an item's original image.
  struct ImageOptions {
    std::string scope;
    std::int64_t itemId = 0;
    bool det = false;
    std::vector<std::string> tags;
  };
  void submitImage(const std::string& file, const ImageOptions& options);

  /// True when every file of this run has been tried once.
  bool allTried() const { return untried_ == 0; }
  /// True when nothing waits, runs, or is stored.
  bool nothingLeft() const { return active_ == 0 && retrying_ == 0; }
  /// True while the backend is being told of an image.
  bool reporting() { return host().messagesUnderWay() > 0; }
  /// Called after each change of the counts, and about once a second.
  virtual void changed() = 0;

  /// Files that were named and have not had their turn.
  virtual std::size_t notHandedOver() const { return 0; }

  void failedBeforeStart(const std::string& file, const std::string& what, const Event& error);
  /// The last words and the exit status.
  void finishWithSummary();
  void interrupted() override;

 private:
  void onMessageEnded(const APIRequest& message, const std::optional<Error>& error) override;

  enum class State { active, retrying, done, failed };
  struct Item {
    std::string label;
    State state = State::active;
    std::int64_t attempts = 0;
    /// Stored by an earlier run.
    bool adopted = false;
    /// Named by the user of this run.
    bool ofThisRun = true;
    bool tried = false;
    /// False when only this process knows the task: it is not tried again.
    bool stored = true;
    /// The log was without it when last looked at.
    bool missed = false;
  };

  /// The bytes of a file that may be handed over, or nothing when that was refused and reported.
  std::optional<Data> bytesOf(const std::string& file);
  bool forget(const StoredTasks& before);
  void adoptAll(const StoredTasks& before, const OpenOptions& options);
  void adopt(const StoredTask& task, std::int64_t attempts, bool ofThisRun);
  Item& add(const std::string& id, Item item);
  /// Sends the action that stores the item's task, and notes whether that went well.
  void store(Item& item, const std::string& action, const Dictionary& parameters);
  void ended(const std::string& scope, const std::optional<std::string>& url,
             const std::map<std::string, std::string>& extra, const std::optional<Error>& error);
  void setState(Item& item, State state);
  Item* find(const std::string& id);
  /// True when an earlier run stored this, with the same content and these extra values; that is
  /// told then.
  bool alreadyStored(const std::string& source, const std::string& file, const std::string& scope,
                     const Data& bytes, const std::map<std::string, std::string>& extra);
  StoredLog log();
  StoredTasks stored() { return log().read(); }
  std::string userId();
  UnknownScopes& unknownScopes();
  void tick();
  /// Finds the tasks that will not be tried again: the log no longer has them.
  void dropForgotten();
  void showLive();

  const std::int64_t limit_;
  std::deque<Item> items_;
  std::multimap<std::string, Item*> byId_;
  /// By file or image, whatever the content.
  std::multimap<std::string, StoredTask> adopted_;
  std::optional<UnknownScopes> unknownScopes_;
  std::size_t untried_ = 0;
  std::size_t active_ = 0;
  std::size_t retrying_ = 0;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  /// Of `failed_`: named by the user and never handed over.
  std::size_t refused_ = 0;
  /// Uploaded from memory because they could not be stored.
  std::size_t unstored_ = 0;
  std::size_t unreported_ = 0;
  double lastOutcome_ = 0;
  std::unique_ptr<Timer> timer_;
};

}  // namespace qx::app
