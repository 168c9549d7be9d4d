// Background uploads under way: hands files to the library, counts them, and says what becomes of
// them.
//
// The library's events tell what becomes of a file. An event names the object. Only the event of
// the acceptance is found by the tag, because the library chooses the name with it.
//
// Threads: see Session.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ListedTask.h"
#include "Session.h"
#include "UnknownScopes.h"
#include "UploadTag.h"

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
  /// Sets the library up, and takes up the tasks that earlier runs have stored, or drops them with
  /// --forget. Then calls opened(). After a failure the run ends instead.
  void open(OpenOptions options);
  /// Files may be handed over.
  virtual void opened() = 0;
  /// Hands a file to the library, as the original image of `item` unless `item` is null. A file
  /// that cannot be read is reported and counted as failed.
  void submit(const std::string& file, const std::string& scope, const ImageItem* item = nullptr);
  /// Ends the run once nothing runs or waits any more.
  void finishWhenIdle();

  /// True when every file of this run has been tried once.
  bool allTried() const { return untried_ == 0; }
  /// True while the backend is being told of an image.
  bool reporting() const { return !reporting_.empty(); }
  /// Called after each change of the counts, and about once a second.
  virtual void changed() = 0;

  /// Files that were named and have not had their turn.
  virtual std::size_t notHandedOver() const { return 0; }

  void failedBeforeStart(const std::string& file, const std::string& what, const Event& error);
  /// The last words and the exit status.
  void finishWithSummary();
  /// True when the run only has its last words to say, or has said them.
  bool ending() const { return ending_ || finished(); }
  void interrupted() override;

 private:
  enum class State { active, retrying, done, failed };
  struct Item {
    std::string label;
    std::string scope;
    State state = State::active;
    /// Named by the user of this run.
    bool ofThisRun = true;
    /// An item's image: the backend is told of it once it is uploaded.
    bool isImage = false;
    std::int64_t attempts = 0;
    bool running = false;
    bool tried = false;
    /// False when only this process knows the task: it is not tried again.
    bool stored = true;
    /// HTTP status of the backend's answer behind the last failure, else 0.
    int backendStatus = 0;
  };

  void onEvent(const Dictionary& event) override;
  void accepted(const Dictionary& event);
  void started(const Dictionary& event);
  void attemptFailed(const Dictionary& event);
  void givenUp(const Dictionary& event);
  void uploaded(const Dictionary& event);
  void dropped(const Dictionary& event);
  void dropFailed(const Dictionary& event);
  void imageReported(const Dictionary& event);
  void imageReportFailed(const Dictionary& event);
  void storeUnavailable(const Dictionary& event);

  void listed(const std::vector<ListedTask>& tasks);
  void forget(const std::vector<ListedTask>& tasks);
  void cannotForget(const Error& why);
  void forgot();
  void setUp();
  void takeUp(const std::vector<ListedTask>& tasks);
  void retry(const std::vector<ListedTask>& tasks);
  /// The bytes of a file that may be handed over, or nothing when that was refused and reported.
  std::optional<Data> contentOf(const std::string& file, const ImageItem* item);
  Item& add(Item item);
  /// The task that an event is about; one that nobody knew is added.
  Item& itemOf(const Dictionary& event);
  /// True when an earlier run stored this; that is told then.
  bool alreadyStored(const std::string& file, const std::string& scope, const std::string& tag);
  /// An attempt has ended.
  void tried(Item& item);
  void failed(Item& item, State state, const Dictionary& event, const std::string& tail);
  /// The library has let it go without an outcome.
  void lost(Item& item);
  /// The image that the backend was to be told of; null when it is none of this run's.
  Item* reported(const Dictionary& event);
  void setState(Item& item, State state);
  UnknownScopes& unknownScopes();
  void tick();
  void showLive();
  void endWithSummary(std::size_t stored);

  const std::int64_t limit_;
  OpenOptions options_;
  /// Addresses stay as they are.
  std::deque<Item> items_;
  std::map<std::string, Item*> byName_;
  /// By tag: handed over and not yet accepted.
  std::map<std::string, std::deque<Item*>> handedOver_;
  /// What earlier runs stored, by tag.
  std::multimap<std::string, Item*> adopted_;
  /// What --forget drops, and why it could not.
  std::set<std::string> forgetting_;
  std::optional<Error> unforgotten_;
  /// Why what is stored could not be opened.
  std::optional<Error> unavailable_;
  std::optional<UnknownScopes> unknownScopes_;
  bool ending_ = false;
  /// The backend is being told of these images, by address.
  std::map<std::string, Item*> reporting_;
  std::size_t untried_ = 0;
  std::size_t running_ = 0;
  std::size_t active_ = 0;
  std::size_t retrying_ = 0;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  /// Of `failed_`: named by the user and never handed over.
  std::size_t refused_ = 0;
  /// Uploaded from memory because they could not be stored.
  std::size_t unstored_ = 0;
  std::size_t unreported_ = 0;
  std::unique_ptr<Timer> timer_;
};

}  // namespace qx::app
