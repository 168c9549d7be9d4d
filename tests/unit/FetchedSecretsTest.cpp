// The time for which the credentials of a fetch stay in memory. Texts from which the secrets in
// force are removed show it.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "fakes/FakeHttp.h"
#include "http/Redaction.h"
#include "platform/PartFile.h"
#include "s3/S3ObjectStore.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

class NoPartFiles : public PartFiles {
 public:
  Result<std::unique_ptr<PartFile>> create(const std::string& /*path*/) override {
    return Error{"ObjectStore", 0, "no files here"};
  }
};

class FetchedSecretsTest : public UploadFixture {
 protected:
  /// The credentials of the next fetch, which expire at once.
  void backendGivesSecret(const std::string& secret) {
    Dictionary expired = recordWith("access_key_secret", secret);
    expired["expiration"] = 0;
    backendGives(std::move(expired));
  }
  void fetch() {
    library_.configure.getConfig("avatar", false, nullptr);
    run();
  }
  void startUpload() {
    library_.uploader
        .makeExecutor(
            std::make_shared<DataTask>("a.jpg", "avatar", Data("bytes"), AWSParameterMap()),
            UploadKind::direct)
        ->execute();
    run();
  }
  static bool isInForce(const std::string& secret) {
    return SecretsInForce::leftOutOf("a text with " + secret, {}) == "a text with ...";
  }

  FakeHttp& http_ = *new FakeHttp;
  S3ObjectStore& store_ = *new S3ObjectStore(
      {http_, platform.digests, *new NoPartFiles, platform.dispatch.globalQueue(), platform.clock},
      "https://store.test");
  Library& library_ = keptLibrary(platform.seams().with(store_));
};

TEST_F(FetchedSecretsTest, NextFetchLetsGoOfTheEarlierSecrets) {
  backendGivesSecret("secret-of-the-first-fetch");
  fetch();
  EXPECT_TRUE(isInForce("secret-of-the-first-fetch"));
  backendGivesSecret("secret-of-the-second-fetch");
  fetch();
  EXPECT_FALSE(isInForce("secret-of-the-first-fetch"));
  EXPECT_TRUE(isInForce("secret-of-the-second-fetch"));
}

TEST_F(FetchedSecretsTest, UploadUnderWayKeepsItsSecretsUntilItEnds) {
  backendGivesSecret("secret-of-a-slow-upload");
  startUpload();
  ASSERT_EQ(http_.requests().size(), 1U);
  backendGivesSecret("secret-of-a-later-fetch");
  fetch();
  EXPECT_TRUE(isInForce("secret-of-a-slow-upload"));
  HttpAnswer answer;
  answer.begun = true;
  answer.framed = true;
  answer.status = 200;
  http_.answer(std::move(answer));
  http_.run();
  run();
  EXPECT_FALSE(isInForce("secret-of-a-slow-upload"));
  EXPECT_TRUE(isInForce("secret-of-a-later-fetch"));
}

}  // namespace
}  // namespace qx
