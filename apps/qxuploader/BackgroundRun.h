// Background uploads under way: passes files to the library, counts outcomes and reports them.
//
// The library's events tell the outcome of a file. An event names the object. Only the event of the
// acceptance is found by the tag, because the library chooses the name of the object when it
// accepts the file.
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
    /// True: this run is about the tasks that earlier runs have stored, and its exit status tells
    /// their outcome.
    bool allOfThisRun = false;
    /// The names of stored tasks that get all their attempts back and belong to this run.
    std::vector<std::string> retried;
  };
  /// Sets the library up and takes over the tasks that earlier runs have stored, or drops them with
  /// --forget. Then it calls opened(). After a failure the run ends instead.
  void open(OpenOptions options);
  /// Files may be passed to the library from now on.
  virtual void opened() = 0;
  /// Passes a file to the library, as the original image of `item` if that is not null. A file that
  /// cannot be read is reported and counted as failed.
  void submit(const std::string& file, const std::string& scope, const ImageItem* item = nullptr);
  /// Ends the run as soon as nothing runs or waits.
  void finishWhenIdle();

  /// True when every file of this run has been tried once.
  bool allTried() const { return untried_ == 0; }
  /// True while an image is being reported to the backend.
  bool reporting() const { return !reporting_.empty(); }
  /// Called after each change of the counts, and about once a second.
  virtual void changed() = 0;

  /// The number of files that were named and have not had their turn.
  virtual std::size_t notHandedOver() const { return 0; }

  void failedBeforeStart(const std::string& file, const std::string& what, const Event& error);
  /// The final message and the exit status.
  void finishWithSummary();
  /// True when the run only has its final message to print, or has printed it.
  bool ending() const { return ending_ || finished(); }
  void interrupted() override;

 private:
  enum class State { active, retrying, done, failed };
  struct Item {
    std::string label;
    std::string scope;
    State state = State::active;
    /// True when the user of this run has named the file.
    bool ofThisRun = true;
    /// True for an item's image, which is reported to the backend after its upload.
    bool isImage = false;
    std::int64_t attempts = 0;
    bool running = false;
    bool tried = false;
    /// False when only this process knows the task, so that it is not tried again.
    bool stored = true;
    /// The HTTP status of the backend's answer that caused the last failure, else 0.
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
  /// The bytes of a file that may be passed to the library. Nothing when that was refused and
  /// reported.
  std::optional<Data> contentOf(const std::string& file, const ImageItem* item);
  Item& add(Item item);
  /// The task of an event. A task that was unknown is added.
  Item& itemOf(const Dictionary& event);
  /// True when an earlier run has stored the task, which is reported then.
  bool alreadyStored(const std::string& file, const std::string& scope, const std::string& tag);
  /// Called when an attempt has ended.
  void tried(Item& item);
  void failed(Item& item, State state, const Dictionary& event, const std::string& tail);
  /// Called when the library has dropped the task without an outcome.
  void lost(Item& item);
  /// The task whose image was reported to the backend. Null when it does not belong to this run.
  Item* reported(const Dictionary& event);
  void setState(Item& item, State state);
  UnknownScopes& unknownScopes();
  void tick();
  void showLive();
  void endWithSummary(std::size_t stored);

  const std::int64_t limit_;
  OpenOptions options_;
  /// The tasks, whose addresses do not change.
  std::deque<Item> items_;
  std::map<std::string, Item*> byName_;
  /// The tasks that have been passed to the library and not been accepted yet, by tag.
  std::map<std::string, std::deque<Item*>> handedOver_;
  /// The tasks that earlier runs have stored, by tag.
  std::multimap<std::string, Item*> adopted_;
  /// The tasks that --forget drops, and the reasons why some cannot be dropped.
  std::set<std::string> forgetting_;
  std::optional<Error> unforgotten_;
  /// The reason why the stored tasks could not be opened.
  std::optional<Error> unavailable_;
  std::optional<UnknownScopes> unknownScopes_;
  bool ending_ = false;
  /// True while the image is being reported to the backend.
  std::map<std::string, Item*> reporting_;
  std::size_t untried_ = 0;
  std::size_t running_ = 0;
  std::size_t active_ = 0;
  std::size_t retrying_ = 0;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  /// The part of `failed_` that the user named and that were never passed to the library.
  std::size_t refused_ = 0;
  /// The number of files that are uploaded from memory because they could not be stored.
  std::size_t unstored_ = 0;
  std::size_t unreported_ = 0;
  std::unique_ptr<Timer> timer_;
};

}  // namespace qx::app
