// A secret of the store is removed from texts of the backend, and the user's token from texts of
// the store, because each server may have been told the other's secret.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>

#include "Classes/StorageGetUploadConfigRequest.h"
#include "fakes/FakeClock.h"
#include "http/MessageClient.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/NlohmannJson.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "s3/S3ObjectStore.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

constexpr const char* kUserToken = "access-token-of-user-42";
constexpr const char* kSessionToken = "session+token/of-a-scope==";

class SecretsAcross : public testing::Test {
 protected:
  SecretsAcross() {
    const auto configuration = store_.makeServiceConfiguration(
        AWSRegionType{25}, "eu-north-1", {storeServer_.url()},
        {"AKIDEXAMPLEEXAMPLE42", "secret-key-of-the-scope", kSessionToken});
    store_.registerS3TransferUtility(configuration.value(), "scope");
  }

  std::string backendSays() {
    std::promise<std::string> promise;
    manager_->request(std::make_shared<StorageGetUploadConfigRequest>(), std::nullopt, 30, nullptr,
                      [&](const QXNetworkingResponse& response) {
                        promise.set_value(response.error->description);
                      });
    return promise.get_future().get();
  }
  std::string storeSays() {
    std::promise<std::string> promise;
    store_.S3TransferUtilityForKey("scope")->uploadData(
        Data("x"), "bucket", "key", "", {},
        [&](const std::optional<Error>& error) { promise.set_value(error->description); });
    return promise.get_future().get();
  }

  ScriptedServer backendServer_{{answerWith(
      403,
      R"({"code":1000,"message":"t=session%2Btoken%2Fof-a-scope%3D%3D of AKIDEXAMPLEEXAMPLE42"})")}};
  ScriptedServer storeServer_{
      {answerWith(403,
                  "<Error><Code>X</Code><Message>Referer access-token-of-user-42, "
                  "YWNjZXNzLXRva2VuLW9mLXVzZXItNDI="
                  "</Message></Error>")}};
  FakeClock clock_{1'700'000'000};
  NlohmannJson json_;
  PosixDispatch dispatch_;
  HttpEngine engine_{{}};
  OpenSslDigests digests_;
  PosixPartFiles files_;
  SystemRandom random_;
  HttpMessageClients clients_{{engine_, digests_, random_, dispatch_.globalQueue(), clock_, json_}};
  S3ObjectStore store_{{engine_, digests_, files_, dispatch_.globalQueue(), clock_},
                       "https://s3.amazonaws.com"};
  std::shared_ptr<QXMessageAPINetworkingManager> manager_ = clients_.make(
      Url::parse(backendServer_.url()).value(), {{"ACCESS-TOKEN", kUserToken}}, std::nullopt, true);
};

TEST_F(SecretsAcross, StoresSecretsStayOutOfTheBackendsErrors) {
  EXPECT_EQ(backendSays(), "t=... of ...");
}

TEST_F(SecretsAcross, UsersTokenStaysOutOfTheStoresErrors) {
  EXPECT_EQ(storeSays(), "X: Referer ..., ...I= (HTTP 403)");
}

}  // namespace
}  // namespace qx
