// A host application on the real platform, with the devstack as its servers.
//
// Threads: the test's main thread makes and uses it, and runs the main queue while it waits.
// Ownership: a process has one host, which is never destroyed, because the library's shared
// instances go on using it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Target_Uploader.h"
#include "Classes/UploadTokenModel.h"
#include "integration/Devstack.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx {

/// The arguments and the thread of a completion.
struct UploadOutcome {
  std::optional<std::string> url;
  std::int64_t itemId = 0;
  std::optional<Error> error;
  /// The text "main" on the main thread, else the name of the thread.
  std::string thread;
};

struct DownloadOutcome {
  std::optional<Url> location;
  std::optional<Error> error;
  std::vector<double> progress;
  /// The thread of the last progress report: "main" for the main thread, else its name.
  std::string progressThread;
};

struct BackgroundOutcome {
  std::string scope;
  std::optional<std::string> url;
  std::map<std::string, std::string> extra;
  std::optional<Error> error;
};

struct TestHostOptions {
  std::size_t user = 0;
  bool needServerResize = false;
  bool resumeStoredTasks = false;
  /// The address of the store. Absent: the proxy of the devstack's store.
  std::optional<std::string> storeEndpoint = {};
  std::optional<std::string> caFile = {};
  /// The documents directory. Absent: a temporary one.
  std::optional<std::string> documentsDirectory = {};
  /// Changes the credentials from the backend before the library gets them.
  std::function<void(UploadTokenModel&)> tamper = {};
  /// Takes the place of the library's 30 seconds, so that a test with a stalled server is short.
  std::optional<double> transferTimeout = {};
  /// The factor by which the library's timers tick faster than real time.
  double timerSpeed = 1;
};

class TestHost {
 public:
  static TestHost& start(Devstack& devstack, TestHostOptions options = {});

  /// Sends an action through the mediator, unchanged.
  void perform(const std::string& action, const Dictionary& parameters);
  void setUp();
  void signIn(const Devstack::User& user);

  /// Sends "Action_Upload:" and runs the main queue until it has called back. The host counts the
  /// calls of the completion as long as it lives: see completions().
  UploadOutcome upload(Data data, const std::string& scope = "avatar",
                       const std::string& suffix = "bin", const Dictionary& more = {});
  /// Sends all of them at once.
  std::vector<UploadOutcome> uploadAll(const std::vector<Data>& payloads,
                                       const std::string& scope = "avatar");
  /// Sends "Action_Download:" and runs the main queue until it has called back.
  DownloadOutcome download(const std::string& url, const std::string& scope = "avatar");
  /// The number of calls of completions of upload(), download() and uploadAll() so far.
  int completions();

  /// The outcomes of background attempts so far.
  std::vector<BackgroundOutcome> backgroundOutcomes();
  /// Runs the main queue until `condition` holds. False when `seconds` have passed before.
  bool waitUntil(const std::function<bool()>& condition, double seconds = 60);

  std::vector<LogRecord> logRecords();
  /// The dictionaries of all "qx_aws" events so far.
  std::vector<Dictionary> trackingEvents();
  /// The object key in a URL of the devstack's store.
  std::string keyOf(const std::string& url) const;
  const std::string& documents() const { return documents_; }

 private:
  class Logger;
  class Tampering;
  TestHost(Devstack& devstack, TestHostOptions options);

  Devstack& devstack_;
  const TestHostOptions options_;
  std::string documents_;
  std::unique_ptr<TemporaryDirectory> ownDocuments_;
  std::unique_ptr<Logger> logger_;
  std::unique_ptr<LinuxPlatform> platform_;
  std::unique_ptr<Tampering> tampering_;

  std::mutex mutex_;
  Devstack::User user_;
  int completions_ = 0;
  std::vector<Dictionary> trackingEvents_;
  std::vector<BackgroundOutcome> backgroundOutcomes_;
};

}  // namespace qx
