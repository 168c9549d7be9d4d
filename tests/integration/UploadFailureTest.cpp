// Failures between the host and the store. The host gets exactly one callback for each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "integration/TestHost.h"

namespace qx {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Makes one upload that must fail and yields its error, after checking that nothing calls back
/// twice.
Error failedUpload(Devstack& devstack, TestHost& host, const std::string& scope = "avatar",
                   const std::string& suffix = "bin") {
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("payload"), scope, suffix);
  EXPECT_FALSE(outcome.url);
  EXPECT_EQ(outcome.itemId, 0);
  if (!outcome.error) {
    ADD_FAILURE() << "the upload succeeded";
    return {};
  }
  EXPECT_EQ(outcome.error->domain, "AWSUploaderError");
  // A second upload, whatever its outcome, leaves time for a callback too many.
  host.upload(Data("payload"), scope, suffix);
  EXPECT_EQ(host.completions(), 2);
  for (const LogRecord& record : host.logRecords()) {
    EXPECT_THAT(record.message, Not(HasSubstr(devstack.user(0).accessToken)));
  }
  EXPECT_THAT(outcome.error->description, Not(HasSubstr(devstack.user(0).accessToken)));
  return *outcome.error;
}

// ---- The store

TEST(UploadFailure, WrongSecretIsAClientError) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.tamper = [](UploadTokenModel& model) { model.accessKeySecret = "wrong"; }});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 2);
  EXPECT_THAT(error.description, HasSubstr("SignatureDoesNotMatch"));
  EXPECT_THAT(error.description, HasSubstr("403"));
  EXPECT_THAT(error.description, Not(HasSubstr("wrong")));
}

TEST(UploadFailure, ForgedSessionTokenIsAClientError) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.tamper = [](UploadTokenModel& model) { model.securityToken = "forged"; }});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 2);
  EXPECT_THAT(error.description, Not(HasSubstr("forged")));
}

TEST(UploadFailure, PrefixThatIsNotAuthorisedIsAClientError) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.tamper = [](UploadTokenModel& model) { model.authorizedPath = "elsewhere/"; }});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 2);
  EXPECT_THAT(error.description, HasSubstr("AccessDenied"));
  EXPECT_TRUE(devstack.keys("elsewhere/").empty());
}

TEST(UploadFailure, BucketThatIsNotThereIsAClientError) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.tamper = [](UploadTokenModel& model) { model.bucket = "no-such-bucket"; }});
  EXPECT_EQ(failedUpload(devstack, host).code, 2);
}

TEST(UploadFailure, RegionThatCannotBeSignedLeavesTheScopeUnconfigured) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.tamper = [](UploadTokenModel& model) { model.region = "mars north 1"; }});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 100);
  EXPECT_EQ(error.description, "[Error] not found config");
}

TEST(UploadFailure, StoreThatIsDownIsUnknown) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.down("store");
  EXPECT_EQ(failedUpload(devstack, host).code, 0);
}

TEST(UploadFailure, StoreThatAnswers500IsAServerErrorAfterOneMoreAttempt) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-500");
  EXPECT_EQ(failedUpload(devstack, host).code, 3);
  EXPECT_EQ(devstack.hits("store-500"), 4);  // Two uploads made two attempts each.
}

TEST(UploadFailure, StoreThatAnswers503OnceIsTriedAgain) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-503-once");
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("payload"));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(devstack.hits("store-503-once"), 1);
}

TEST(UploadFailure, StoreThatRefusesIsAClientErrorWithoutAnotherAttempt) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-403");
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 2);
  EXPECT_THAT(error.description, HasSubstr("AccessDenied"));
  EXPECT_THAT(error.description, HasSubstr("Access Denied"));
  EXPECT_THAT(error.description, HasSubstr("tx-fault"));
  EXPECT_EQ(devstack.hits("store-403"), 2);
}

TEST(UploadFailure, GarbageFromTheStoreIsNamedByItsStatus) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-garbage");
  EXPECT_THAT(failedUpload(devstack, host).description, HasSubstr("HTTP"));
}

TEST(UploadFailure, RedirectToAnotherHostEndsTheTransferAndSendsNothingThere) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-301-elsewhere");
  EXPECT_EQ(failedUpload(devstack, host).code, 1);
}

TEST(UploadFailure, RedirectWithinTheStoreIsFollowed) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-307-once");
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("redirected"));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(devstack.object(host.keyOf(*outcome.url)).bytes, "redirected");
}

TEST(UploadFailure, RedirectsWithoutEndStopAfterThree) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-307-forever");
  EXPECT_EQ(failedUpload(devstack, host).code, 1);
  EXPECT_EQ(devstack.hits("store-307-forever"),
            8);  // Two uploads sent their first request and three more each.
}

TEST(UploadFailure, StoreWithAnotherClockIsSignedForAgain) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  // The store behind the proxy has the clock of this machine. It accepts a difference of ten
  // minutes.
  devstack.fault("store-skewed-clock", {{"count", 1}});
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("payload"));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(devstack.hits("store-skewed-clock"), 1);
}

TEST(UploadFailure, StalledStoreEndsInTheTimeout) {
  for (const char* fault : {"store-stall", "store-stall-after-body"}) {
    SCOPED_TRACE(fault);
    Devstack devstack;
    static TestHost& host = TestHost::start(devstack, {.transferTimeout = 1.0});
    devstack.fault(fault);
    host.setUp();
    const int before = host.completions();
    const UploadOutcome outcome = host.upload(Data("payload"));
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->code, 0);
    EXPECT_EQ(host.completions(), before + 1);
  }
}

TEST(UploadFailure, StoreThatStallsAfter100ContinueEndsInTheTimeout) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.transferTimeout = 2.0});
  devstack.fault("store-stall-after-continue");
  host.setUp();
  const UploadOutcome outcome = host.upload(Data(std::string(8 << 20, 'x')));
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->code, 0);
}

TEST(UploadFailure, ConnectionThatIsResetIsTriedAgainOnce) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-reset-once");
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("payload"));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
}

TEST(UploadFailure, ConnectionThatIsAlwaysResetIsUnknown) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("store-reset");
  EXPECT_EQ(failedUpload(devstack, host).code, 0);
}

TEST(UploadFailure, CertificateThatIsNotTrustedIsRefused) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.storeEndpoint = devstack.url("storeWrongTls"), .caFile = devstack.url("caFile")});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 0);
  EXPECT_TRUE(devstack.stats().at("store").at("requests") == 0);
}

// ---- The backend

TEST(UploadFailure, BackendThatIsDownIsAServerError) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.down("backend");
  EXPECT_EQ(failedUpload(devstack, host).code, 3);
}

TEST(UploadFailure, BackendThatRefusesTheTokenIsNamedByItsOwnMessage) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.signIn({devstack.user(0).userId, "not-the-token"});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 3);
  EXPECT_EQ(error.description, "wrong access token") << "the message of devstack/lib/Backend.mjs";
  EXPECT_THAT(error.description, Not(HasSubstr("HTTP")));
  EXPECT_THAT(error.description, Not(HasSubstr("not-the-token")));
  EXPECT_TRUE(devstack.stats().at("store").at("requests") == 0);
}

TEST(UploadFailure, BackendErrorWithoutARecordIsNamedByItsStatus) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("backend-503-html");
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 3);
  EXPECT_EQ(error.description, "HTTP 503");
}

TEST(UploadFailure, BackendGarbageIsAServerErrorAndNeverCached) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  for (const char* fault :
       {"backend-garbage", "backend-binary", "backend-empty-body", "backend-no-map",
        "backend-missing-key", "backend-bad-date", "backend-deep-json", "backend-truncated",
        "backend-too-large", "backend-close", "backend-reset"}) {
    SCOPED_TRACE(fault);
    devstack.fault(fault);
    const int before = host.completions();
    const UploadOutcome outcome = host.upload(Data("payload"));
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->code, 3);
    EXPECT_NE(outcome.error->description, "");
    EXPECT_GE(devstack.hits(fault), 1);
    EXPECT_EQ(host.completions(), before + 1);
    devstack.clearFaults();
  }
  const UploadOutcome outcome = host.upload(Data("payload"));
  EXPECT_FALSE(outcome.error) << outcome.error->description;
}

TEST(UploadFailure, EmptyMapKnowsNoScope) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  devstack.fault("backend-empty-map");
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 101);
  EXPECT_EQ(error.description, "[Error] not found config with key:avatar");
}

TEST(UploadFailure, IdentityThatIsMissingIsReportedWithoutARequest) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.signIn({"", ""});
  const Error error = failedUpload(devstack, host);
  EXPECT_EQ(error.code, 102);
  EXPECT_EQ(error.description, "[Error] miss userId or accessToken");
  EXPECT_TRUE(devstack.events().empty());
}

// ---- The upload server

struct Answer {
  const char* fault;
  const char* message;
  friend std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << answer.fault;
  }
};

class UploadServerAnswer : public testing::TestWithParam<Answer> {};

TEST_P(UploadServerAnswer, OtherThan200IsAServerErrorNamedByTheStatus) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.needServerResize = true});
  devstack.fault(GetParam().fault);
  const Error error = failedUpload(devstack, host, "item-image", "jpg");
  EXPECT_EQ(error.code, 3);
  EXPECT_EQ(error.description, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Statuses, UploadServerAnswer,
                         testing::Values(Answer{"upload-201", "201"}, Answer{"upload-204", "204"},
                                         Answer{"upload-413", "413"}, Answer{"upload-500", "500"}),
                         [](const auto& tested) {
                           return std::string("Status") + tested.param.message;
                         });

TEST(UploadFailure, UploadServerThatIsDownIsAServerError) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.needServerResize = true});
  devstack.down("uploadServer");
  EXPECT_EQ(failedUpload(devstack, host, "item-image", "jpg").code, 3);
}

TEST(UploadFailure, UploadServerThatBreaksOffIsAServerError) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.needServerResize = true});
  host.setUp();
  for (const char* fault : {"upload-reset", "upload-reset-midway", "upload-close"}) {
    SCOPED_TRACE(fault);
    devstack.fault(fault);
    const int before = host.completions();
    const UploadOutcome outcome = host.upload(Data(std::string(4 << 20, 'x')), "item-image", "jpg");
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->code, 3);
    EXPECT_GE(devstack.hits(fault), 1);
    EXPECT_EQ(host.completions(), before + 1);
    devstack.clearFaults();
  }
}

TEST(UploadFailure, UploadServerThatGetsNoImageAnswers415) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.needServerResize = true});
  EXPECT_EQ(failedUpload(devstack, host, "item-image", "jpg").description, "415");
}

}  // namespace
}  // namespace qx
