// The parts that the tests of the transfer utility share: a store above a real engine, and one
// upload or download through it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fakes/FakeClock.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "s3/S3ObjectStore.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {

inline constexpr double kNow = 1795219560;  // 2026-11-21T00:06:00Z

inline Turn errorRecord(int status, const std::string& code, const std::string& headers = "") {
  return answerWith(
      status,
      "<Error><Code>" + code + "</Code><Message>said</Message><RequestId>R1</RequestId></Error>",
      headers);
}

inline Turn silence(Turn::Then then) {
  Turn turn;
  turn.answer.clear();
  turn.then = then;
  return turn;
}

class TransferFixture : public ::testing::Test {
 protected:
  /// See LinuxSettings::resourceTimeoutCountsStandstillOnly.
  explicit TransferFixture(bool countsStandstillOnly = false)
      : store_({engine_, digests_, files_, dispatch_.globalQueue(), clock_},
               "https://store.example", countsStandstillOnly) {}

  void SetUp() override {
    std::string name = ::testing::TempDir() + "qx-transfer-XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::shared_ptr<AWSS3TransferUtility> utility(const std::string& endpoint) {
    auto configuration = store_.makeServiceConfiguration(
        AWSEndpoint::regionTypeFromRegionName(region_), region_, {endpoint},
        {"AKIDOFUSERFORTYTWO", "the-secret-key-of-user-42", token_});
    configuration->timeoutIntervalForRequest = requestTimeout_;
    configuration->timeoutIntervalForResource = resourceTimeout_;
    configuration->maxRetryCount = retries_;
    store_.registerS3TransferUtility(*configuration, "key");
    return store_.S3TransferUtilityForKey("key");
  }

  std::optional<Error> upload(const std::string& endpoint, const std::string& bytes = "payload",
                              const std::string& key = "folder/a b.jpg",
                              const std::string& contentType = "") {
    std::promise<std::optional<Error>> promise;
    const AWSTask task =
        utility(endpoint)->uploadData(Data(bytes), "bucket", key, contentType, {},
                                      [&](const auto& error) { promise.set_value(error); });
    if (task.error) return task.error;
    return promise.get_future().get();
  }

  /// Sends through a proxy, which sees the requests to a host that does not exist.
  std::optional<Error> uploadThrough(const ScriptedServer& proxy, const std::string& endpoint,
                                     const std::string& bucket) {
    HttpEngine engine({std::nullopt, proxy.url(), std::nullopt});
    S3ObjectStore store({engine, digests_, files_, dispatch_.globalQueue(), clock_}, endpoint);
    store.registerS3TransferUtility(
        store
            .makeServiceConfiguration(AWSRegionType{25}, "eu-north-1", {endpoint},
                                      {"AKID", "secret", "token"})
            .value(),
        "key");
    std::promise<std::optional<Error>> promise;
    store.S3TransferUtilityForKey("key")->uploadData(
        Data(std::string("payload")), bucket, "a b", "", {},
        [&](const auto& error) { promise.set_value(error); });
    return promise.get_future().get();
  }

  struct Downloaded {
    std::optional<Url> url;
    std::optional<Error> error;
    std::vector<std::pair<std::int64_t, std::int64_t>> progress;
  };
  Downloaded download(const std::string& endpoint, const std::string& path) {
    Downloaded downloaded;
    std::promise<void> done;
    const AWSTask task = utility(endpoint)->downloadToURL(
        Url::file(path), "bucket", "k", {[&](const TransferProgress& progress) {
          downloaded.progress.emplace_back(progress.completedUnitCount, progress.totalUnitCount);
        }},
        [&](const std::optional<Url>& url, const std::optional<Error>& error) {
          downloaded.url = url;
          downloaded.error = error;
          done.set_value();
        });
    if (task.error) {
      downloaded.error = task.error;
    } else {
      done.get_future().get();
    }
    return downloaded;
  }

  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  static std::string content(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
      found.push_back(entry.path().filename());
    }
    return found;
  }

  double requestTimeout_ = 30;
  double resourceTimeout_ = 30;
  int retries_ = 1;
  std::string region_ = "eu-north-1";
  std::string token_ = "the-token-of-user-42";
  std::string folder_;
  FakeClock clock_{kNow};
  PosixDispatch dispatch_;
  OpenSslDigests digests_;
  PosixPartFiles files_;
  HttpEngine engine_{{}};
  S3ObjectStore store_;
};

}  // namespace qx
