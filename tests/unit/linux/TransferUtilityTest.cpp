#include "s3/TransferUtility.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>

#include "Sanitized.h"
#include "unit/linux/TransferFixture.h"

namespace qx {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class TransferUtilityTest : public TransferFixture {};

// ---- Uploads

TEST_F(TransferUtilityTest, UploadPutsTheBytesUnderBucketAndKey) {
  ScriptedServer server({Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  const SeenRequest request = server.requests()[0];
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "/bucket/folder/a%20b.jpg");
  EXPECT_EQ(request.body, "payload");
  EXPECT_EQ(request.headers.at("content-length"), "7");
  EXPECT_EQ(request.headers.count("content-type"), 0u);
}

TEST_F(TransferUtilityTest, TokenDateHostAndPayloadAreSentAndSigned) {
  ScriptedServer server({Turn()});
  upload(server.url());
  const SeenRequest request = server.requests()[0];
  EXPECT_EQ(request.headers.at("host"), "127.0.0.1:" + std::to_string(server.port()));
  EXPECT_EQ(request.headers.at("x-amz-date"), "20261121T000600Z");
  EXPECT_EQ(request.headers.at("x-amz-security-token"), "the-token-of-user-42");
  // The output of: printf payload | sha256sum
  EXPECT_EQ(request.headers.at("x-amz-content-sha256"),
            "239f59ed55e737c77147cf55ad0c1b030b6d7ee748a7426952f9b852d5a935e5");
  EXPECT_THAT(
      request.headers.at("authorization"),
      StartsWith(
          "AWS4-HMAC-SHA256 Credential=AKIDOFUSERFORTYTWO/20261121/eu-north-1/s3/aws4_request, "
          "SignedHeaders=host;x-amz-content-sha256;x-amz-date;x-amz-security-token, "
          "Signature="));
  EXPECT_EQ(request.head.find("the-secret-key-of-user-42"), std::string::npos);
}

TEST_F(TransferUtilityTest, ContentTypeIsSentAndSigned) {
  ScriptedServer server({Turn()});
  upload(server.url(), "x", "k", "image/webp");
  EXPECT_EQ(server.requests()[0].headers.at("content-type"), "image/webp");
  EXPECT_THAT(server.requests()[0].headers.at("authorization"),
              HasSubstr("SignedHeaders=content-type;host;"));
}

TEST_F(TransferUtilityTest, LargeAndEmptyPayloadsArriveWhole) {
  ScriptedServer server({Turn()});
  const std::string large(3 << 20, 'L');
  EXPECT_EQ(upload(server.url(), large), std::nullopt);
  EXPECT_EQ(upload(server.url(), ""), std::nullopt);
  EXPECT_EQ(server.requests()[0].body, large);
  EXPECT_EQ(server.requests()[1].headers.at("content-length"), "0");
}

TEST_F(TransferUtilityTest, HeaderInjectionIsRefusedAtOnce) {
  ScriptedServer server({Turn()});
  bool completed = false;
  const AWSTask task = utility(server.url())
                           ->uploadData(Data(std::string("x")), "bucket", "k", "a\r\nX-Evil: 1", {},
                                        [&](const auto&) { completed = true; });
  ASSERT_TRUE(task.error);
  EXPECT_THAT(task.error->description, Not(HasSubstr("Evil")));
  EXPECT_FALSE(completed);
  EXPECT_EQ(server.connections(), 0u);
}

TEST_F(TransferUtilityTest, EmptyKeyNeverReachesTheBucketItself) {
  ScriptedServer server({Turn()});
  EXPECT_EQ(upload(server.url(), "x", "")->code, 0);
  EXPECT_EQ(server.connections(), 0u);
}

// ---- Addressing

TEST_F(TransferUtilityTest, AtANameTheBucketIsPartOfTheHost) {
  ScriptedServer proxy({Turn()});
  EXPECT_EQ(uploadThrough(proxy, "http://s3.amazonaws.com", "bucket"), std::nullopt);
  const SeenRequest request = proxy.requests()[0];
  EXPECT_EQ(request.target, "http://bucket.s3.amazonaws.com/a%20b");
  EXPECT_EQ(request.headers.at("host"), "bucket.s3.amazonaws.com");
}

TEST_F(TransferUtilityTest, OverTlsADottedBucketStaysOutOfTheHost) {
  for (const auto& [bucket, host] : std::vector<std::pair<std::string, std::string>>{
           {"bucket", "bucket.s3.amazonaws.com:443"}, {"dotted.bucket", "s3.amazonaws.com:443"}}) {
    ScriptedServer proxy({answerWith(502)});
    const auto error = uploadThrough(proxy, "https://s3.amazonaws.com", bucket);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "Transport");
    const SeenRequest request = proxy.requests()[0];
    EXPECT_EQ(request.method, "CONNECT");
    EXPECT_EQ(request.target, host);
    // The proxy learns only the host.
    EXPECT_EQ(request.headers.count("authorization"), 0u);
    EXPECT_EQ(request.headers.count("x-amz-security-token"), 0u);
  }
}

// ---- Errors

TEST_F(TransferUtilityTest, StoreErrorsCarryTheFamilyOfTheirStatus) {
  retries_ = 0;
  for (const auto& [status, code] : std::vector<std::pair<int, std::int64_t>>{
           {304, 1}, {403, 2}, {404, 2}, {500, 3}, {501, 3}}) {
    ScriptedServer server({errorRecord(status, "Some")});
    const auto error = upload(server.url());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "ObjectStore");
    EXPECT_EQ(error->code, code);
    if (status != 304) {
      EXPECT_EQ(error->description,
                "Some: said (HTTP " + std::to_string(status) + ", request id R1)");
    }
  }
}

TEST_F(TransferUtilityTest, CredentialsThatTheStoreRepeatsStayOutOfTheError) {
  ScriptedServer server(
      {answerWith(403,
                  "<Error><Code>X</Code><Message>the-token-of-user-42 the-secret-key-of-user-42 "
                  "AKIDOFUSERFORTYTWO</Message></Error>")});
  const auto error = upload(server.url());
  EXPECT_EQ(error->description, "X: ... ... ... (HTTP 403)");
}

TEST_F(TransferUtilityTest, SignatureThatTheStoreRepeatsStaysOutOfTheError) {
  // The clock and the host do not change, so both uploads have the same signature.
  ScriptedServer first({Turn()});
  uploadThrough(first, "http://s3.amazonaws.com", "bucket");
  std::string signature = first.requests()[0].headers.at("authorization");
  signature.erase(0, signature.rfind('=') + 1);
  ASSERT_EQ(signature.size(), 64u);
  ScriptedServer second({errorRecord(403, "Not " + signature)});
  const auto error = uploadThrough(second, "http://s3.amazonaws.com", "bucket");
  EXPECT_EQ(error->description, "Not ...: said (HTTP 403, request id R1)");
}

TEST_F(TransferUtilityTest, HugeErrorBodyKeepsItsStatus) {
  Turn turn;
  turn.answer = "HTTP/1.1 403 No\r\nContent-Length: 100000000\r\n\r\n";
  turn.piece = std::string(1 << 16, 'x');
  turn.pieces = 1000;
  ScriptedServer server({turn});
  const auto error = upload(server.url());
  EXPECT_EQ(error->code, 2);
  EXPECT_EQ(error->description, "HTTP 403");
}

TEST_F(TransferUtilityTest, TransportErrorsLieOutsideTheErrorCodes) {
  retries_ = 0;
  ScriptedServer server({silence(Turn::Then::reset)});
  const auto error = upload(server.url());
  EXPECT_EQ(error->domain, "Transport");
  EXPECT_GE(error->code, 1000);
}

// ---- Further attempts

TEST_F(TransferUtilityTest, PassingFailureIsCuredByOneMoreAttempt) {
  for (const int status : {429, 500, 502, 503, 504}) {
    ScriptedServer server({errorRecord(status, "SlowDown"), Turn()});
    EXPECT_EQ(upload(server.url()), std::nullopt) << status;
    EXPECT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests()[1].body, "payload");
  }
}

TEST_F(TransferUtilityTest, LastingFailureEndsAfterTheRetries) {
  ScriptedServer server({errorRecord(503, "SlowDown")});
  EXPECT_EQ(upload(server.url())->code, 3);
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(TransferUtilityTest, OtherStatusesAreNotRepeated) {
  for (const int status : {400, 403, 404, 409, 501}) {
    ScriptedServer server({errorRecord(status, "No"), Turn()});
    EXPECT_TRUE(upload(server.url())) << status;
    EXPECT_EQ(server.requests().size(), 1u);
  }
}

TEST_F(TransferUtilityTest, LostConnectionIsCuredByOneMoreAttempt) {
  ScriptedServer server({silence(Turn::Then::reset), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(TransferUtilityTest, TimeoutBeforeAnyAnswerIsCuredByOneMoreAttempt) {
  requestTimeout_ = 0.2;
  ScriptedServer server({silence(Turn::Then::stall), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(TransferUtilityTest, TimeoutWithinAnAnswerIsFinal) {
  requestTimeout_ = 0.2;
  Turn half = silence(Turn::Then::stall);
  half.answer = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
  ScriptedServer server({half, Turn()});
  EXPECT_EQ(upload(server.url())->code, kTransportErrorBase + 28);
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(TransferUtilityTest, StoreThatStallsAfterContinueRunsIntoTheRequestTimeout) {
  requestTimeout_ = 0.2;
  retries_ = 0;
  Turn turn = silence(Turn::Then::stall);
  turn.answer = "HTTP/1.1 100 Continue\r\n\r\n";
  turn.read = Turn::Read::head;
  ScriptedServer server({turn});
  EXPECT_EQ(upload(server.url(), std::string(32 << 20, 'x'))->code, kTransportErrorBase + 28);
}

TEST_F(TransferUtilityTest, ResourceTimeoutCoversAllAttempts) {
  requestTimeout_ = 0.3;
  resourceTimeout_ = 0.5;
  retries_ = 1000;
  ScriptedServer server({silence(Turn::Then::stall)});
  EXPECT_EQ(upload(server.url())->code, kTransportErrorBase + 28);
  EXPECT_LE(server.requests().size(), 2u);
}

TEST_F(TransferUtilityTest, RetryAfterIsHonoured) {
  ScriptedServer server({errorRecord(429, "Slow", "Retry-After: 1\r\n"), Turn()});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(TransferUtilityTest, RetryAfterBeyondTheResourceTimeoutEndsTheTransfer) {
  ScriptedServer server({errorRecord(503, "Slow", "Retry-After: 31\r\n"), Turn()});
  EXPECT_EQ(upload(server.url())->code, 3);
  EXPECT_EQ(server.requests().size(), 1u);
}

// ---- Redirects

TEST_F(TransferUtilityTest, RedirectWithinTheStoreIsFollowedAndSignedAgain) {
  for (const int status : {301, 302, 307, 308}) {
    Turn turn =
        answerWith(status, "", "Location: /elsewhere\r\nx-amz-bucket-region: eu-west-3\r\n");
    ScriptedServer server({turn, Turn()});
    EXPECT_EQ(upload(server.url()), std::nullopt) << status;
    ASSERT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests()[1].method, "PUT");
    EXPECT_EQ(server.requests()[1].body, "payload");
    EXPECT_THAT(server.requests()[1].headers.at("authorization"),
                HasSubstr("/20261121/eu-west-3/s3/"));
  }
}

TEST_F(TransferUtilityTest, FourthRedirectEndsTheTransfer) {
  ScriptedServer server({errorRecord(307, "TemporaryRedirect", "Location: /again\r\n")});
  const auto error = upload(server.url());
  EXPECT_EQ(error->code, 1);
  EXPECT_THAT(error->description, StartsWith("TemporaryRedirect: said (HTTP 307"));
  EXPECT_EQ(server.requests().size(), 4u);
}

TEST_F(TransferUtilityTest, RedirectToAnotherHostIsNotFollowed) {
  ScriptedServer elsewhere({Turn()});
  ScriptedServer server({errorRecord(301, "Moved", "Location: " + elsewhere.url() + "/x\r\n")});
  EXPECT_EQ(upload(server.url())->code, 1);
  EXPECT_EQ(elsewhere.connections(), 0u);
}

TEST_F(TransferUtilityTest, EndpointElementIsARedirectToo) {
  ScriptedServer server({Turn()});
  const std::string host = "127.0.0.1:" + std::to_string(server.port());
  ScriptedServer redirecting({answerWith(
      301, "<Error><Code>PermanentRedirect</Code><Endpoint>" + host + "</Endpoint></Error>")});
  // Another port of this machine is another server, so the element is read and the redirect
  // refused.
  EXPECT_EQ(upload(redirecting.url())->code, 1);
  EXPECT_EQ(server.connections(), 0u);
}

// ---- The clock

TEST_F(TransferUtilityTest, RefusedClockIsCorrectedOnceAndForAllTransfers) {
  const std::string date = "Date: Sat, 21 Nov 2026 01:06:00 GMT\r\n";
  ScriptedServer server({errorRecord(403, "RequestTimeTooSkewed", date), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_EQ(upload(server.url()), std::nullopt);
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].headers.at("x-amz-date"), "20261121T000600Z");
  EXPECT_EQ(requests[1].headers.at("x-amz-date"), "20261121T010600Z");
  EXPECT_EQ(requests[2].headers.at("x-amz-date"), "20261121T010600Z");
}

TEST_F(TransferUtilityTest, ClockRefusedASecondTimeIsAnError) {
  const std::string date = "Date: Sat, 21 Nov 2026 01:06:00 GMT\r\n";
  ScriptedServer server({errorRecord(403, "RequestTimeTooSkewed", date)});
  EXPECT_EQ(upload(server.url())->code, 2);
  EXPECT_EQ(server.requests().size(), 2u);
}

// ---- Downloads

TEST_F(TransferUtilityTest, DownloadReplacesTheFileWhenItIsWhole) {
  ScriptedServer server({answerWith(200, std::string(500000, 'n'))});
  std::ofstream(path("file")) << "earlier";
  const Downloaded downloaded = download(server.url(), path("file"));
  EXPECT_EQ(downloaded.error, std::nullopt);
  EXPECT_EQ(downloaded.url, Url::file(path("file")));
  EXPECT_EQ(content(path("file")), std::string(500000, 'n'));
  EXPECT_THAT(names(), ElementsAre("file"));
  EXPECT_EQ(std::filesystem::status(path("file")).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(server.requests()[0].method, "GET");
  EXPECT_EQ(server.requests()[0].target, "/bucket/k");
}

TEST_F(TransferUtilityTest, DownloadReportsProgressInOrderUpToTheEnd) {
  ScriptedServer server({answerWith(200, std::string(500000, 'n'))});
  const Downloaded downloaded = download(server.url(), path("file"));
  ASSERT_FALSE(downloaded.progress.empty());
  EXPECT_TRUE(std::is_sorted(downloaded.progress.begin(), downloaded.progress.end()));
  EXPECT_EQ(downloaded.progress.back(), (std::pair<std::int64_t, std::int64_t>(500000, 500000)));
}

TEST_F(TransferUtilityTest, FailedDownloadLeavesTheEarlierFileAndNothingElse) {
  retries_ = 0;
  Turn cut = silence(Turn::Then::close);
  cut.answer = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart";
  Turn endless = cut;
  endless.answer = "HTTP/1.1 200 OK\r\n\r\nwhole or not";
  for (const Turn& turn : {cut, endless, errorRecord(404, "NoSuchKey")}) {
    ScriptedServer server({turn});
    std::ofstream(path("file")) << "earlier";
    const Downloaded downloaded = download(server.url(), path("file"));
    EXPECT_TRUE(downloaded.error);
    EXPECT_EQ(downloaded.url, std::nullopt);
    EXPECT_EQ(content(path("file")), "earlier");
    EXPECT_THAT(names(), ElementsAre("file"));
  }
}

TEST_F(TransferUtilityTest, DownloadThatIsNotWhatTheETagSaysIsAnErrorAndLeavesTheEarlierFile) {
  // The output of: printf whole | md5sum
  const std::string md5 = "356c9ee60e9da05301adc3bd96f6b383";
  ScriptedServer server({answerWith(200, "whole", "ETag: \"" + md5 + "\"\r\n"),
                         answerWith(200, "wholf", "ETag: \"" + md5 + "\"\r\n")});
  EXPECT_EQ(download(server.url(), path("file")).error, std::nullopt);
  EXPECT_EQ(content(path("file")), "whole");
  const auto error = download(server.url(), path("file")).error;
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "ObjectStore");
  EXPECT_EQ(error->code, 0);
  EXPECT_THAT(error->description, HasSubstr("ETag"));
  EXPECT_EQ(content(path("file")), "whole");
  EXPECT_THAT(names(), ElementsAre("file"));
  EXPECT_EQ(server.requests().size(), 2U) << "not repeated";
}

TEST_F(TransferUtilityTest, ETagThatIsNoMd5IsNotCompared) {
  const std::string md5 = "356c9ee60e9da05301adc3bd96f6b383";  // The MD5 of other bytes.
  for (const std::string& headers :
       {"ETag: \"" + md5 + "-2\"\r\n", std::string("ETag: \"abc\"\r\n"),
        "ETag: \"" + md5 + "\"\r\nx-amz-server-side-encryption: aws:kms\r\n",
        "ETag: \"" + md5 + "\"\r\nx-amz-server-side-encryption-customer-algorithm: AES256\r\n"}) {
    ScriptedServer server({answerWith(200, "other", headers)});
    EXPECT_EQ(download(server.url(), path("file")).error, std::nullopt) << headers;
  }
}

TEST_F(TransferUtilityTest, RepeatedDownloadBeginsTheFileAnew) {
  Turn cut = silence(Turn::Then::close);
  cut.answer = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nthe first part";
  ScriptedServer server({cut, answerWith(200, "whole")});
  EXPECT_EQ(download(server.url(), path("file")).error, std::nullopt);
  EXPECT_EQ(content(path("file")), "whole");
}

TEST_F(TransferUtilityTest, MissingFolderIsCodeFour) {
  ScriptedServer server({answerWith(200, "x")});
  const Downloaded downloaded = download(server.url(), path("none/file"));
  EXPECT_EQ(downloaded.error->domain, "ObjectStore");
  EXPECT_EQ(downloaded.error->code, 4);
  EXPECT_EQ(server.connections(), 0u);
}

TEST_F(TransferUtilityTest, NameAsLongAsAFileMayHaveIsNoObstacle) {
  ScriptedServer server({answerWith(200, "x")});
  const std::string name(255, 'n');
  EXPECT_EQ(download(server.url(), path(name)).error, std::nullopt);
  EXPECT_THAT(names(), ElementsAre(name));
}

TEST_F(TransferUtilityTest, PathWithANulIsRefusedAndNothingWritten) {
  ScriptedServer server({answerWith(200, "x")});
  std::ofstream(path("file")) << "earlier";
  const auto error = download(server.url(), path(std::string("file\0.jpg", 9))).error;
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "ObjectStore");
  EXPECT_EQ(content(path("file")), "earlier");
  EXPECT_EQ(server.connections(), 0u);
}

TEST_F(TransferUtilityTest, FullDiskIsOneErrorAndLeavesTheEarlierFile) {
  ScriptedServer server({answerWith(200, std::string(500000, 'n'))});
  std::ofstream(path("file")) << "earlier";
  // A file-size limit takes the place of a disk that is full after 100 kB.
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{100000, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &small);
  const Downloaded downloaded = download(server.url(), path("file"));
  ::setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_TRUE(downloaded.error);
  EXPECT_EQ(downloaded.error->domain, "ObjectStore");
  EXPECT_THAT(downloaded.error->description, StartsWith("cannot write " + path("file")));
  EXPECT_EQ(content(path("file")), "earlier");
  EXPECT_THAT(names(), ElementsAre("file"));
}

// ---- The registry and the configuration

TEST_F(TransferUtilityTest, UnknownRegionOrEndpointYieldsNoConfiguration) {
  EXPECT_FALSE(store_.makeServiceConfiguration(AWSRegionType::unknown, "", {"https://s"}, {}));
  EXPECT_FALSE(store_.makeServiceConfiguration(AWSRegionType{8}, "", {"https://s"}, {}));
  EXPECT_FALSE(store_.makeServiceConfiguration(AWSRegionType{1}, "us-east-1", {"no url"}, {}));
  EXPECT_TRUE(store_.makeServiceConfiguration(AWSRegionType{1}, "us-east-1", {"https://s"}, {}));
  EXPECT_EQ(store_.globalEndpoint(), "https://store.example");
}

TEST_F(TransferUtilityTest, RegistryFindsByKeyAndTheLaterReplacesTheEarlier) {
  EXPECT_EQ(store_.S3TransferUtilityForKey("key"), nullptr);
  const auto first = utility("https://s");
  EXPECT_EQ(store_.S3TransferUtilityForKey("key"), first);
  EXPECT_NE(utility("https://s"), first);
  EXPECT_EQ(store_.S3TransferUtilityForKey("Key"), nullptr);
}

// ---- Memory

long peakKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
  }
  return 0;
}

TEST_F(TransferUtilityTest, PayloadIsNotCopiedOnItsWay) {
  constexpr std::size_t kSize = std::size_t{512} << 20;
  Turn turn;
  turn.read = Turn::Read::discard;
  ScriptedServer server({turn});
  const Data payload(std::string(kSize, 'x'));
  const long before = peakKiB();
  std::promise<std::optional<Error>> promise;
  utility(server.url())->uploadData(payload, "bucket", "k", "", {}, [&](const auto& error) {
    promise.set_value(error);
  });
  EXPECT_EQ(promise.get_future().get(), std::nullopt);
  EXPECT_EQ(server.requests()[0].headers.at("content-length"), std::to_string(kSize));
  EXPECT_LT(peakKiB() - before, 32 << 10);
}

TEST_F(TransferUtilityTest, DownloadOfTwoGibibytesLeavesTheMemoryFlat) {
  Turn turn;
  turn.piece = std::string(std::size_t{1} << 20, 'x');
  turn.pieces = kSanitized ? 256 : 2048;
  const std::size_t size = turn.pieces * turn.piece.size();
  turn.answer = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
  ScriptedServer server({turn});
  resourceTimeout_ = 100;
  const long before = peakKiB();
  EXPECT_EQ(download(server.url(), path("file")).error, std::nullopt);
  EXPECT_EQ(std::filesystem::file_size(path("file")), size);
  EXPECT_LT(peakKiB() - before, 32 << 10);
}

}  // namespace
}  // namespace qx
