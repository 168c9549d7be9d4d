// The contract of an object store, for the fake and the real one.
#include "platform/ObjectStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "contract/TemporaryDirectory.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeObjectStore.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "s3/S3ObjectStore.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

struct FakeStore {
  /// Sets the object that the bucket holds under "k". Without a value there is no such object.
  void holds(const std::optional<std::string>& object) {
    if (object) store.put("bucket", "k", Data(*object));
  }
  /// The next upload with this content type does not even start.
  std::string unsendableType() {
    store.failAtOnce({"ObjectStore", 0, "no"});
    return "any";
  }
  std::string endpoint() const { return "http://store.example"; }
  /// Makes the next upload wait until it is cancelled.
  void stalls() { store.hold(); }

  FakeStore() {
    store.answerOn(dispatch.globalQueue());
    store.reportProgress({{1, 5}, {5, 5}});
    store.writeFilesWith([](const std::string& path, const Data& bytes) {
      std::ofstream out(path, std::ios::binary);
      out << bytes.text();
      return out.good();
    });
  }
  PosixDispatch dispatch;
  FakeObjectStore store;
};

struct RealStore {
  void holds(const std::optional<std::string>& object) {
    server.emplace(std::vector<Turn>{
        object ? answerWith(200, *object)
               : answerWith(404,
                            "<Error><Code>NoSuchKey</Code><Message>no such object</Message>"
                            "<RequestId>R1</RequestId></Error>")});
  }
  void stalls() {
    Turn turn;
    turn.answer.clear();
    turn.then = Turn::Then::stall;
    server.emplace(std::vector<Turn>{turn});
  }
  std::string unsendableType() { return "text/plain\r\nX-Evil: 1"; }
  std::string endpoint() const { return server ? server->url() : "http://127.0.0.1:9"; }

  std::optional<ScriptedServer> server;
  FakeClock clock{1795219560};
  PosixDispatch dispatch;
  HttpEngine engine{{}};
  OpenSslDigests digests;
  PosixPartFiles files;
  S3ObjectStore store{{engine, digests, files, dispatch.globalQueue(), clock},
                      "https://store.example"};
};

template <typename T>
class ObjectStoreContract : public ::testing::Test {
 protected:
  struct Ended {
    std::optional<Url> url;
    std::optional<Error> error;
  };
  /// The result of a completion. A second completion would break the contract.
  struct Record {
    std::promise<Ended> ended;
    int completions = 0;
    std::vector<std::int64_t> progress;
    std::thread::id caller = std::this_thread::get_id();

    void end(Ended result) {
      EXPECT_NE(std::this_thread::get_id(), caller);
      EXPECT_EQ(++completions, 1);
      ended.set_value(std::move(result));
    }
  };

  ObjectStore& store() { return underTest_.store; }
  /// Registers a utility and takes it, so that it may be replaced while its transfer runs.
  std::shared_ptr<AWSS3TransferUtility> utility(const std::string& key = "key") {
    const auto configuration = store().makeServiceConfiguration(
        AWSRegionType{1}, "us-east-1", {underTest_.endpoint()}, {"AKID", "secret", "token"});
    store().registerS3TransferUtility(configuration.value(), key);
    return store().S3TransferUtilityForKey(key);
  }
  Ended upload() {
    auto record = std::make_shared<Record>();
    const AWSTask task = utility()->uploadData(Data(std::string("bytes")), "bucket", "k", "", {},
                                               [record](const std::optional<Error>& error) {
                                                 record->end({std::nullopt, error});
                                               });
    EXPECT_EQ(task.error, std::nullopt);
    return record->ended.get_future().get();
  }
  Ended download(std::vector<std::int64_t>* progress = nullptr) {
    auto record = std::make_shared<Record>();
    const AWSTask task = utility()->downloadToURL(
        Url::file(path()), "bucket", "k", {[record](const TransferProgress& report) {
          EXPECT_EQ(record->completions, 0);
          record->progress.push_back(report.completedUnitCount);
        }},
        [record](const std::optional<Url>& url, const std::optional<Error>& error) {
          record->end({url, error});
        });
    EXPECT_EQ(task.error, std::nullopt);
    Ended ended = record->ended.get_future().get();
    if (progress != nullptr) *progress = record->progress;
    return ended;
  }
  std::string path() const { return directory_.path() + "/file"; }
  std::string content() const {
    std::ifstream in(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  TemporaryDirectory directory_;
  T underTest_;
};

using Stores = ::testing::Types<FakeStore, RealStore>;
TYPED_TEST_SUITE(ObjectStoreContract, Stores);

TYPED_TEST(ObjectStoreContract, ConfigurationCarriesWhatItWasMadeOf) {
  const auto configuration = this->store().makeServiceConfiguration(
      AWSRegionType{25}, "eu-north-1", {"https://store.example"}, {"a", "s", "t"});
  ASSERT_TRUE(configuration);
  EXPECT_EQ(configuration->region, AWSRegionType{25});
  EXPECT_EQ(configuration->regionName, "eu-north-1");
  EXPECT_EQ(configuration->endpoint.urlString, "https://store.example");
  EXPECT_EQ(configuration->credentials.sessionToken, "t");
}

TYPED_TEST(ObjectStoreContract, UnknownRegionOrEndpointThatIsNoUrlYieldsNoConfiguration) {
  EXPECT_FALSE(this->store().makeServiceConfiguration(AWSRegionType::unknown, "",
                                                      {"https://s.example"}, {}));
  EXPECT_FALSE(this->store().makeServiceConfiguration(AWSRegionType{1}, "us-east-1", {""}, {}));
  EXPECT_FALSE(
      this->store().makeServiceConfiguration(AWSRegionType{1}, "us-east-1", {"no url"}, {}));
}

TYPED_TEST(ObjectStoreContract, UnknownRegionNeedsANameThatCanBeSigned) {
  const auto made = [this](const std::string& name) {
    return this->store().makeServiceConfiguration(AWSRegionType::unknown, name,
                                                  {"https://store.example"}, {});
  };
  for (const char* name : {"auto", "garage", "me-south-1"}) {
    const auto configuration = made(name);
    ASSERT_TRUE(configuration) << name;
    EXPECT_EQ(configuration->region, AWSRegionType::unknown);
    EXPECT_EQ(configuration->regionName, name);
  }
  for (const char* name : {"", " ", "a b", "a/b", "eu-west-1\r\n"})
    EXPECT_FALSE(made(name)) << name;
}

TYPED_TEST(ObjectStoreContract, RegistryFindsByKeyAndTheLaterReplacesTheEarlier) {
  EXPECT_EQ(this->store().S3TransferUtilityForKey("key"), nullptr);
  const auto first = this->utility();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(this->store().S3TransferUtilityForKey("key"), first);
  const auto other = this->utility("other");
  EXPECT_EQ(this->store().S3TransferUtilityForKey("key"), first);
  const auto second = this->utility();
  EXPECT_NE(second, first);
  EXPECT_EQ(this->store().S3TransferUtilityForKey("key"), second);
  EXPECT_EQ(this->store().S3TransferUtilityForKey("other"), other);
}

TYPED_TEST(ObjectStoreContract, RemovedUtilityIsFoundNoMoreAndTheOthersAre) {
  const auto removed = this->utility();
  const auto other = this->utility("other");
  this->store().removeS3TransferUtility("key");
  EXPECT_EQ(this->store().S3TransferUtilityForKey("key"), nullptr);
  EXPECT_EQ(this->store().S3TransferUtilityForKey("other"), other);
  this->store().removeS3TransferUtility("key");
  EXPECT_EQ(this->store().S3TransferUtilityForKey("other"), other);
}

TYPED_TEST(ObjectStoreContract, UploadEndsOnceWithoutAnError) {
  this->underTest_.holds("");
  EXPECT_EQ(this->upload().error, std::nullopt);
}

TYPED_TEST(ObjectStoreContract, CancelledUploadEndsOnceWithAnError) {
  this->underTest_.stalls();
  auto record = std::make_shared<typename TestFixture::Record>();
  const AWSTask task = this->utility()->uploadData(Data(std::string("bytes")), "bucket", "k", "",
                                                   {}, [record](const std::optional<Error>& error) {
                                                     record->end({std::nullopt, error});
                                                   });
  ASSERT_EQ(task.error, std::nullopt);
  ASSERT_NE(task.transfer, nullptr);
  auto ended = record->ended.get_future();
  // The fake ends a held transfer on the cancelling thread.
  std::thread([transfer = task.transfer] {
    transfer->cancel();
    transfer->cancel();
  }).join();
  ASSERT_EQ(ended.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  const auto result = ended.get();
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->domain, "Transport");
  EXPECT_EQ(result.error->code, kCancelled);
}

TYPED_TEST(ObjectStoreContract, BytesOfAnUploadAreToldUpToTheWhole) {
  this->underTest_.holds("object");
  auto record = std::make_shared<typename TestFixture::Record>();
  const AWSTask task = this->utility()->uploadData(
      Data(std::string("bytes")), "bucket", "k", "", {[record](const TransferProgress& report) {
        EXPECT_EQ(record->completions, 0) << "no report follows the completion";
        EXPECT_EQ(report.totalUnitCount, 5);
        record->progress.push_back(report.completedUnitCount);
      }},
      [record](const std::optional<Error>& error) {
        record->end({std::nullopt, error});
      });
  ASSERT_EQ(task.error, std::nullopt);
  EXPECT_EQ(record->ended.get_future().get().error, std::nullopt);
  EXPECT_TRUE(std::ranges::is_sorted(record->progress));
  ASSERT_FALSE(record->progress.empty());
  EXPECT_EQ(record->progress.back(), 5);
}

TYPED_TEST(ObjectStoreContract, UploadThatCannotStartHasItsErrorInTheTaskAndNoCompletion) {
  this->underTest_.holds("");
  bool completed = false;
  const std::string type = this->underTest_.unsendableType();
  const AWSTask task =
      this->utility()->uploadData(Data(std::string("x")), "bucket", "k", type, {},
                                  [&completed](const std::optional<Error>&) { completed = true; });
  EXPECT_TRUE(task.error);
  // If a completion of the earlier upload were on its way, it would come before the completion of
  // this one.
  EXPECT_EQ(this->upload().error, std::nullopt);
  EXPECT_FALSE(completed);
}

TYPED_TEST(ObjectStoreContract, DownloadPutsTheObjectIntoTheFileAndNamesIt) {
  this->underTest_.holds("bytes");
  const auto ended = this->download();
  EXPECT_EQ(ended.error, std::nullopt);
  EXPECT_EQ(ended.url, Url::file(this->path()));
  EXPECT_EQ(this->content(), "bytes");
}

TYPED_TEST(ObjectStoreContract, ProgressGrowsUpToTheWholeAndNoneFollowsTheCompletion) {
  this->underTest_.holds("bytes");
  std::vector<std::int64_t> progress;
  this->download(&progress);
  ASSERT_FALSE(progress.empty());
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  EXPECT_EQ(progress.back(), 5);
}

TYPED_TEST(ObjectStoreContract, MissingObjectIsCodeTwoAndLeavesTheEarlierFile) {
  this->underTest_.holds(std::nullopt);
  std::ofstream(this->path()) << "earlier";
  const auto ended = this->download();
  EXPECT_EQ(ended.url, std::nullopt);
  ASSERT_TRUE(ended.error);
  EXPECT_EQ(ended.error->domain, "ObjectStore");
  EXPECT_EQ(ended.error->code, 2);
  EXPECT_THAT(ended.error->description, AllOf(HasSubstr("NoSuchKey: no such object"),
                                              HasSubstr("HTTP 404"), HasSubstr("request id ")));
  EXPECT_EQ(this->content(), "earlier");
}

}  // namespace
}  // namespace qx
