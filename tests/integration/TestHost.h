// A host application on the real platform, against the devstack.
//
// Threads: made and used by the test's main thread, which runs the main queue while it waits.
// Ownership: one per process and never destroyed; the library's shared instances go on using it.
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

/// What a completion received, and where.
struct UploadOutcome {
  std::optional<std::string> url;
  std::int64_t itemId = 0;
  std::optional<Error> error;
  /// "main" on the main thread, else the thread's name.
  std::string thread;
};

struct DownloadOutcome {
  std::optional<Url> location;
  std::optional<Error> error;
  std::vector<double> progress;
  /// Where progress was reported: "main" on the main thread, else the last thread's name.
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
  /// Absent: the devstack's store through its proxy.
  std::optional<std::string> storeEndpoint = {};
  std::optional<std::string> caFile = {};
  /// Absent: a temporary one.
  std::optional<std::string> documentsDirectory = {};
  /// Changes what the backend has handed out before the library sees it.
  std::function<void(UploadTokenModel&)> tamper = {};
  /// In place of the library's 30 seconds, so that a test of a stalled server is short.
  std::optional<double> transferTimeout = {};
  /// How much faster than real time the library's timers tick.
  double timerSpeed = 1;
};

class TestHost {
 public:
  static TestHost& start(Devstack& devstack, TestHostOptions options = {});

  /// Sends an action through the mediator as it stands.
  void perform(const std::string& action, const Dictionary& parameters);
  void setUp();
  void signIn(const Devstack::User& user);

  /// Sends "Action_Upload:" and runs the main queue until it has called back. The completion is
  /// watched for as long as the host lives: see completions().
  UploadOutcome upload(Data data, const std::string& scope = "avatar",
                       const std::string& suffix = "bin", const Dictionary& more = {});
  /// All of them at once.
  std::vector<UploadOutcome> uploadAll(const std::vector<Data>& payloads,
                                       const std::string& scope = "avatar");
  /// Sends "Action_Download:" and runs the main queue until it has called back.
  DownloadOutcome download(const std::string& url, const std::string& scope = "avatar");
  /// How often completions of upload(), download() and uploadAll() have been called so far.
  int completions();

  /// Outcomes of background attempts so far.
  std::vector<BackgroundOutcome> backgroundOutcomes();
  /// Runs the main queue until `condition` holds; false when `seconds` have passed first.
  bool waitUntil(const std::function<bool()>& condition, double seconds = 60);

  std::vector<LogRecord> logRecords();
  /// The dictionaries of all "qx_aws" events so far.
  std::vector<Dictionary> trackingEvents();
  /// The object key that a URL of the devstack's store names.
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
