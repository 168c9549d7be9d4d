// The configuration service of a signed-in host, with a backend that knows two scopes.
//
// Threads: everything runs on the test's own thread, in run().
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {

inline constexpr const char* kApi = "v3/storage/get_upload_config";
inline constexpr const char* kItemApi = "v3/item/update_item_original_image_url";
inline constexpr const char* kDetItemApi = "v3/item/update_item_original_det_image_url";
inline constexpr double kNow = 1'700'000'000.25;
inline constexpr double kLater = kNow + 3600;

inline const AWSCallbackStatus kMissing =
    AWSCallbackStatus::failure(AWSErrorCode::missParamters, "[Error] miss userId or accessToken");

inline AWSCallbackStatus serverError(std::string message) {
  return AWSCallbackStatus::failure(AWSErrorCode::serverError, std::move(message));
}

inline ConfigParameters identity(const std::string& user, const std::string& token = "t1") {
  return {user, token, Url::parse("https://backend.test")};
}

/// A credential record that its bucket tells from others.
inline Dictionary record(double expiration, const std::string& bucket = "b1",
                         const std::string& region = "eu-north-1") {
  return {{"access_key_id", "AK"},     {"access_key_secret", "SK"},
          {"security_token", "ST"},    {"expiration", expiration},
          {"bucket", bucket},          {"region", region},
          {"authorized_path", "u/1/"}, {"download_url_prefix", "https://cdn.test"}};
}

struct Answer {
  std::string scope;
  std::optional<UploadTokenModel> model;
  AWSCallbackStatus status = AWSCallbackStatus::success();
  std::string queue;
};

class AWSConfigureTest : public testing::Test {
 protected:
  AWSConfigureTest() {
    platform_.clock.set(kNow);
    platform_.mediator.signIn("u1", "t1", "https://backend.test");
    backendGives({{"avatar", record(kLater)}, {"item", record(kLater, "b2")}});
  }

  AWSConfigure& configure() { return library.configure; }

  void backendGives(Dictionary records) {
    platform_.messageClients.answer(kApi, Dictionary{{"upload_token_map", std::move(records)}});
  }
  void ask(const std::string& scope, bool skipCheckExpiration = false) {
    configure().getConfig(
        scope, skipCheckExpiration,
        [this, scope](const std::optional<UploadTokenModel>& model,
                      const AWSCallbackStatus& status) {
          answers_.push_back({scope, model, status, platform_.dispatch.currentQueueLabel()});
        });
  }
  void run() { platform_.dispatch.runUntilIdle(); }
  /// Asks for credentials, runs the queues and yields the only answer.
  Answer get(const std::string& scope, bool skipCheckExpiration = false) {
    answers_.clear();
    ask(scope, skipCheckExpiration);
    run();
    EXPECT_THAT(answers_, testing::SizeIs(1));
    return answers_.empty() ? Answer() : answers_.front();
  }
  std::size_t fetches() { return platform_.messageClients.requests(kApi).size(); }
  std::size_t runsOn(const std::string& queue) {
    return static_cast<std::size_t>(std::count(platform_.dispatch.history().begin(),
                                               platform_.dispatch.history().end(), queue));
  }
  std::vector<std::string> registeredKeys() {
    std::vector<std::string> keys;
    for (const auto& each : platform_.objectStore.registrations()) keys.push_back(each.key);
    return keys;
  }
  std::vector<std::string> answeredScopes() {
    std::vector<std::string> scopes;
    for (const Answer& answer : answers_) scopes.push_back(answer.scope);
    return scopes;
  }

  FakePlatform& platform_ = FakePlatform::kept();
  Library& library = keptLibrary(platform_.seams());
  std::vector<Answer> answers_;
};

}  // namespace qx
