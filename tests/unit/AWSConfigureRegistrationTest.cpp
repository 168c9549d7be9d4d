#include <optional>
#include <string>
#include <vector>

#include "unit/AWSConfigureFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// ---- generateAWSConfiguration(key, model)

TEST_F(AWSConfigureTest, EachScopeIsRegisteredUnderItsNameAndTheFetchsUuid) {
  get("avatar");
  const std::string uuid = configure().session.load()->configUUID.value();
  EXPECT_EQ(uuid, "00000000-0000-4000-8000-000000000001");
  EXPECT_THAT(registeredKeys(), ElementsAre("avatar" + uuid, "item" + uuid));
}

TEST_F(AWSConfigureTest, RegisteredConfigurationHasTheFixedSettings) {
  get("avatar");
  const auto configuration = platform_.objectStore.registrations().at(0).configuration;
  EXPECT_EQ(configuration.timeoutIntervalForRequest, 30);
  EXPECT_EQ(configuration.timeoutIntervalForResource, 30);
  EXPECT_EQ(configuration.maxRetryCount, 1);
  EXPECT_EQ(configuration.endpoint.urlString, "https://store.example");
  EXPECT_EQ(configuration.region, AWSRegionType{25});
  EXPECT_EQ(configuration.credentials.accessKey, "AK");
  EXPECT_EQ(configuration.credentials.secretKey, "SK");
  EXPECT_EQ(configuration.credentials.sessionToken, "ST");
}

TEST_F(AWSConfigureTest, RegionsDifferByScopeAndTheEndpointDoesNot) {
  backendGives({{"a", record(kLater, "b", "us-east-1")}, {"b", record(kLater, "b", "ap-east-1")}});
  get("a");
  const auto registrations = platform_.objectStore.registrations();
  ASSERT_THAT(registrations, SizeIs(2));
  EXPECT_EQ(registrations[0].configuration.region, AWSRegionType{1});
  EXPECT_EQ(registrations[1].configuration.region, AWSRegionType{26});
  EXPECT_EQ(registrations[0].configuration.endpoint.urlString,
            registrations[1].configuration.endpoint.urlString);
}

TEST_F(AWSConfigureTest, NextFetchRegistersUnderFreshKeysAndForgetsTheEarlierOnes) {
  backendGives({{"avatar", record(kNow)}, {"item", record(kNow)}});
  get("avatar");
  backendGives({{"avatar", record(kNow)}});
  const std::string first = configure().session.load()->configUUID.value();
  get("avatar");
  const std::string second = configure().session.load()->configUUID.value();
  EXPECT_NE(first, second);
  EXPECT_THAT(registeredKeys(), ElementsAre("avatar" + first, "item" + first, "avatar" + second));
  EXPECT_EQ(platform_.objectStore.S3TransferUtilityForKey("avatar" + first), nullptr);
  EXPECT_EQ(platform_.objectStore.S3TransferUtilityForKey("item" + first), nullptr);
  EXPECT_NE(platform_.objectStore.S3TransferUtilityForKey("avatar" + second), nullptr);
}

TEST_F(AWSConfigureTest, WithoutAUuidTheScopeAloneIsTheKey) {
  UploadTokenModel model;
  model.region = "us-east-1";
  configure().generateAWSConfiguration("avatar", model);
  EXPECT_THAT(registeredKeys(), ElementsAre("avatar"));
}

TEST_F(AWSConfigureTest, ScopeWithoutAConfigurationIsTrackedAndTheFetchSucceeds) {
  backendGives({{"avatar", record(kLater)}, {"bad", record(kLater, "b", "moon 1")}});
  EXPECT_TRUE(get("bad").status.succeeded());
  EXPECT_THAT(registeredKeys(),
              ElementsAre("avatar" + configure().session.load()->configUUID.value()));
  EXPECT_EQ(platform_.objectStore.askedRegions().back(), AWSRegionType::unknown);
  const Dictionary expected = {
      {"message", "[Error] AWS-bad config error"}, {"status", "error"}, {"type", "config"}};
  EXPECT_THAT(platform_.mediator.trackedEvents(), ElementsAre(expected));
}

TEST_F(AWSConfigureTest, NothingCountsAsConfiguredUntilEveryScopeIsRegistered) {
  // The scope without a configuration is the first one, so its report comes before the others.
  backendGives({{"a bad one", record(kLater, "b", "moon 1")}, {"avatar", record(kLater)}});
  bool configuredMeanwhile = true;
  std::optional<std::string> uuidMeanwhile;
  platform_.mediator.answer("Tracking_Event:parameters:", [&](const std::vector<Value>&) {
    configuredMeanwhile = configure().configured;
    uuidMeanwhile = configure().session.load()->configUUID;
    return Value();
  });
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_FALSE(configuredMeanwhile);
  EXPECT_TRUE(configure().configured);
  EXPECT_NE(uuidMeanwhile, std::nullopt);
  EXPECT_EQ(uuidMeanwhile, configure().session.load()->configUUID);
}

TEST_F(AWSConfigureTest, UnknownRegionIsLeftToTheStoreToAccept) {
  backendGives({{"avatar", record(kLater, "b", "moon-1")}});
  get("avatar");
  EXPECT_THAT(registeredKeys(), SizeIs(1));
  EXPECT_THAT(platform_.mediator.trackedEvents(), IsEmpty());
}

}  // namespace
}  // namespace qx
