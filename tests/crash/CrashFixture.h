// The parts that the crash tests share: a run of 50 background uploads with "resumeStoredTasks" on
// the real files and property lists (all other seams are fakes), and checks of what must hold after
// the run was interrupted.
//
// Each run is a process of its own with one thread. It notes the tasks that were accepted and that
// have reached the store in memory that outlives the process.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "Classes/Target_Uploader.h"
#include "Sanitized.h"
#include "crash/FileCalls.h"
#include "fakes/FakePlatform.h"
#include "platforms/shared/LibplistPropertyLists.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {

constexpr int kTasks = 50;
/// Memory that outlives the processes that write to it.
struct Noted {
  /// True when the action has returned.
  bool accepted[kTasks];
  /// The number of times that the store has got the task.
  int arrived[kTasks];

  bool operator==(const Noted&) const = default;
};

/// The store. It notes what arrives before the uploader hears of it. Every seventh upload fails.
class NotingStore : public FakeObjectStore {
 public:
  NotingStore(Noted& noted, bool failsSome) : noted_(noted), failsSome_(failsSome) {}
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override {
    auto real = FakeObjectStore::S3TransferUtilityForKey(key);
    return real ? std::make_shared<Utility>(*this, std::move(real)) : nullptr;
  }

 private:
  class Utility : public AWSS3TransferUtility {
   public:
    Utility(NotingStore& store, std::shared_ptr<AWSS3TransferUtility> real)
        : store_(store), real_(std::move(real)) {}
    AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                       const std::string& contentType,
                       AWSS3TransferUtilityUploadExpression expression,
                       UploadCompletion completion) override {
      if (store_.failsSome_ && ++store_.uploads_ % 7 == 0) {
        store_.failOnce(Error{"ObjectStore", 3, "down"});
      } else {
        ++store_.noted_.arrived[std::stoi(std::string(data.text()))];
      }
      return real_->uploadData(std::move(data), bucket, key, contentType, std::move(expression),
                               std::move(completion));
    }
    AWSTask downloadToURL(const Url& location, const std::string& bucket, const std::string& key,
                          AWSS3TransferUtilityDownloadExpression expression,
                          DownloadCompletion completion) override {
      return real_->downloadToURL(location, bucket, key, std::move(expression),
                                  std::move(completion));
    }

   private:
    NotingStore& store_;
    const std::shared_ptr<AWSS3TransferUtility> real_;
  };

  Noted& noted_;
  const bool failsSome_;
  int uploads_ = 0;
};

/// The library in this process, on the real files below `documents`.
class Host {
 public:
  Host(const std::string& documents, Noted& noted, bool failsSome)
      : store_(noted, failsSome), files_({documents}) {
    fakes_.mediator.signIn("u1", "token", "https://backend.test");
    fakes_.messageClients.answer(
        "v3/storage/get_upload_config",
        Dictionary{{"upload_token_map",
                    Dictionary{{"avatar", Dictionary{{"access_key_id", "KEY"},
                                                     {"access_key_secret", "SECRET"},
                                                     {"security_token", "SESSION"},
                                                     {"expiration", 1'800'000'000},
                                                     {"bucket", "photos"},
                                                     {"region", "eu-west-1"},
                                                     {"authorized_path", "u/7/"},
                                                     {"download_url_prefix", "https://c"}}}}}});
    Platform::install(fakes_.seams().with(store_, files_, propertyLists_));
    Target_Uploader::registerWith(fakes_.mediator);
  }
  void perform(const std::string& action, const Dictionary& parameters) {
    fakes_.mediator.performTarget("Target_Uploader", action, parameters);
  }
  void run() { fakes_.dispatch.runUntilIdle(); }
  void pass(double seconds) {
    fakes_.clock.advance(seconds);
    run();
  }

 private:
  FakePlatform fakes_;
  NotingStore store_;
  PosixFiles files_;
  LibplistPropertyLists propertyLists_;
};

/// Runs `work` in a process of its own. True when the process ended by itself, false when SIGKILL
/// ended it.
inline bool endsByItself(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  EXPECT_TRUE(killed || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << "status " << status;
  return !killed;
}

inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The folders for the runs, and the notes.
class CrashFixture : public testing::TestWithParam<int> {
 protected:
  CrashFixture() {
    // The folders lie in memory where there is such a directory, because thousands of processes
    // write there.
    const std::filesystem::path below = std::filesystem::exists("/dev/shm")
                                            ? std::filesystem::path("/dev/shm")
                                            : std::filesystem::temp_directory_path();
    std::string pattern = (below / "qx-crash-XXXXXX").string();
    // The path as the kernel names it.
    documents_ = std::filesystem::canonical(::mkdtemp(pattern.data()));
    const auto shared = [] {
      return ::mmap(nullptr, sizeof(Noted), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                    0);
    };
    noted_ = new (shared()) Noted;
    notedAfter_ = new (shared()) Noted;
  }
  ~CrashFixture() override {
    std::filesystem::remove_all(documents_);
    ::munmap(noted_, sizeof(Noted));
    ::munmap(notedAfter_, sizeof(Noted));
  }

  /// The whole run below `documents`, in this process.
  void upload50(const std::string& documents) {
    auto& host = *new Host(documents, *noted_, /*failsSome=*/true);
    host.perform("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", true}});
    for (int i = 0; i < kTasks; ++i) {
      host.perform("Action_BackgroundUpload:",
                   {{"scope", "avatar"}, {"suffix", "bin"}, {"data", Data(std::to_string(i))}});
      noted_->accepted[i] = true;
      if (i % 5 == 4) host.run();
    }
    host.pass(60);
  }

  /// Lets a new process continue what the run has left in `documents`. Checks that no accepted task
  /// is lost, and that no task that is gone from the log comes again.
  void checkWhatIsLeft(const std::string& documents) {
    const std::string directory = documents + "/aws-0011/u1";
    const std::set<int> log = logged(directory);
    for (int i = 0; i < kTasks; ++i) {
      EXPECT_TRUE(!noted_->accepted[i] || noted_->arrived[i] > 0 || log.contains(i))
          << "task " << i << " is lost";
    }
    *notedAfter_ = *noted_;
    EXPECT_TRUE(endsByItself([&] {
      killAtFileCall(0, false);
      observeFileCalls(nullptr);
      auto& host = *new Host(documents, *notedAfter_, /*failsSome=*/false);
      host.perform("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", true}});
      host.run();
      host.pass(60);
    }));
    for (int i = 0; i < kTasks; ++i) {
      EXPECT_TRUE(!noted_->accepted[i] || notedAfter_->arrived[i] > 0) << "task " << i;
      const int again = notedAfter_->arrived[i] - noted_->arrived[i];
      EXPECT_EQ(again, log.contains(i) ? 1 : 0) << "task " << i;
    }
    EXPECT_TRUE(logged(directory).empty());
    for (const auto& file : std::filesystem::directory_iterator(directory)) {
      // This folder has the data files without an entry: those that were written before their
      // entry, or remained after their entry had been removed, when the run was interrupted.
      if (file.path().filename() == "unlogged-1") continue;
      EXPECT_EQ(file.path().filename(), "logs.plist") << "left behind";
    }
  }

  std::string documents_;
  Noted* noted_;

 private:
  /// The tasks in the log file, by the content of their data files. Checks the form of the log
  /// file.
  static std::set<int> logged(const std::string& directory) {
    std::set<int> tasks;
    if (!std::filesystem::exists(directory + "/logs.plist")) return tasks;
    const std::string text = readFile(directory + "/logs.plist");
    const auto log = LibplistPropertyLists().decode(Data(text));
    if (!log || log->asDictionary() == nullptr) {
      ADD_FAILURE() << "unreadable: " << text;
      return tasks;
    }
    std::size_t entries = 0;
    for (auto at = text.find("<key>base</key>"); at != std::string::npos;
         at = text.find("<key>base</key>", at + 1)) {
      ++entries;
    }
    EXPECT_EQ(entries, log->asDictionary()->size()) << "one entry per task";
    for (const auto& [name, entry] : *log->asDictionary()) {
      // An entry without its data file belongs to a task that was being deleted.
      const std::string path = directory + "/" + name;
      if (!std::filesystem::exists(path)) continue;
      const std::string bytes = readFile(path);
      EXPECT_FALSE(bytes.empty()) << "an entry is written after its file";
      if (bytes.empty()) continue;
      EXPECT_TRUE(tasks.insert(std::stoi(bytes)).second) << bytes << " twice";
    }
    return tasks;
  }

  Noted* notedAfter_;
};

}  // namespace qx
