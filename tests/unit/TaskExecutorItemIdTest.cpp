#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "unit/TaskExecutorFixture.h"

namespace qx {
namespace {

// ---- Item id

class ItemIdText : public TaskExecutorTest,
                   public testing::WithParamInterface<std::pair<std::string, std::int64_t>> {};

TEST_P(ItemIdText, ThatIsANumberIsTakenAndKeepsTheCallback) {
  const auto executor = attempt(dataTask({{"itemId", GetParam().first}, {"k", "v"}}));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, GetParam().second);
  EXPECT_EQ(executor->task->extra(), (AWSParameterMap{{"imageUrl", "https://cdn.test/u/7/a.b.jpg"},
                                                      {"itemId", GetParam().second},
                                                      {"k", "v"}}));
  EXPECT_TRUE(platform.mediator.performed(kLongId).empty());
  EXPECT_TRUE(executor->complete);
}

INSTANTIATE_TEST_SUITE_P(Numbers, ItemIdText,
                         testing::Values(std::pair{"42", 42}, std::pair{"0", 0}, std::pair{"+7", 7},
                                         std::pair{"-5", -5}, std::pair{"007", 7},
                                         std::pair{"9223372036854775807", INT64_MAX},
                                         std::pair{"-9223372036854775808", INT64_MIN}));

class UnusableItemId : public TaskExecutorTest,
                       public testing::WithParamInterface<AWSBasicParameter> {};

TEST_P(UnusableItemId, IsReplacedByTheHostsNumberAndClearsTheCallback) {
  platform.mediator.setLongId(77);
  const auto executor = attempt(dataTask({{"itemId", GetParam()}}));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_TRUE(reports[0].status.succeeded());
  EXPECT_EQ(reports[0].url, "https://cdn.test/u/7/a.b.jpg");
  EXPECT_EQ(reports[0].itemId, 77);
  EXPECT_EQ(executor->task->extra(), (AWSParameterMap{{"imageUrl", "https://cdn.test/u/7/a.b.jpg"},
                                                      {"itemId", std::int64_t{77}}}));
  EXPECT_EQ(platform.mediator.performed(kLongId).size(), 1U);
  EXPECT_FALSE(executor->complete);
}

INSTANTIATE_TEST_SUITE_P(
    Values, UnusableItemId,
    testing::Values(AWSBasicParameter("abc"), AWSBasicParameter(""), AWSBasicParameter("-"),
                    AWSBasicParameter(" 42"), AWSBasicParameter("42 "), AWSBasicParameter("4.2"),
                    AWSBasicParameter("0x10"), AWSBasicParameter("9223372036854775808"),
                    AWSBasicParameter(std::int64_t{42}), AWSBasicParameter(std::uint64_t{42}),
                    AWSBasicParameter(42.0)));

TEST_F(TaskExecutorTest, AbsentItemIdIsTheHostsNumber) {
  platform.mediator.setLongId(-3);
  attempt(dataTask());
  EXPECT_EQ(reports.at(0).itemId, -3);
}

TEST_F(TaskExecutorTest, ItemIdIsGeneratedWhenTheHostHasNoNumber) {
  platform.clock.set(1'712'345'678);
  const auto executor = attempt(dataTask());
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, 4562345678);
  EXPECT_EQ(executor->task->extra().at("itemId"), AWSBasicParameter(std::int64_t{4562345678}));
  EXPECT_FALSE(executor->complete);
}

TEST_F(TaskExecutorTest, ReportWaitsForTheHostsNumberAndComesOnItsThread) {
  platform.mediator.holdLongIds();
  const auto executor = attempt(dataTask());
  EXPECT_TRUE(reports.empty());
  EXPECT_TRUE(executor->task->extra().empty());
  EXPECT_EQ(platform.mediator.releaseLongIds(9), 1U);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, 9);
  EXPECT_EQ(reports[0].queue, "");
  EXPECT_FALSE(executor->complete);
}

TEST_F(TaskExecutorTest, CallbackIsStillSetWhileItRuns) {
  platform.mediator.setLongId(1);
  const auto executor = make(dataTask());
  bool wasSet = false;
  executor->complete = [&wasSet](const std::shared_ptr<TaskExecutor>& reporter, const auto&,
                                 const auto&,
                                 std::int64_t) { wasSet = static_cast<bool>(reporter->complete); };
  executor->execute();
  run();
  EXPECT_TRUE(wasSet);
  EXPECT_FALSE(executor->complete);
}

TEST_F(TaskExecutorTest, CallbackThatClearsItselfLivesOnUntilItReturns) {
  const auto token = std::make_shared<int>(0);
  const auto executor = make(dataTask({{"itemId", "1"}}));
  long heldMeanwhile = 0;
  executor->complete = [token, &heldMeanwhile](const std::shared_ptr<TaskExecutor>& reporter,
                                               const auto&, const auto&, std::int64_t) {
    // The captures are locals, because a closure that is destroyed too early destroys its captures.
    long& held = heldMeanwhile;
    const std::weak_ptr<int> watched = token;
    reporter->complete = nullptr;
    held = watched.use_count();
  };
  executor->execute();
  run();
  EXPECT_EQ(heldMeanwhile, 2) << "by the test and by the callback";
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TaskExecutorTest, HostThatAnswersTwiceIsHeardOnce) {
  platform.mediator.answer(
      kLongId, FakeMediator::Answer([](const std::vector<Value>& arguments) {
        const auto* complete =
            arguments.at(0).asHostObject()->as<std::function<LongIdCompletion>>();
        (*complete)(5);
        (*complete)(6);
        return Value();
      }));
  const auto executor = attempt(dataTask());
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, 5);
  EXPECT_EQ(executor->task->extra().at("itemId"), AWSBasicParameter(std::int64_t{5}));
}

/// Passes every question on except the one for an item id, which it forgets.
class ForgetfulMediator : public QXMediator {
 public:
  explicit ForgetfulMediator(QXMediator& inner) : inner_(inner) {}
  void registerTarget(std::string name, TargetFactory make) override {
    inner_.registerTarget(std::move(name), std::move(make));
  }
  void performTarget(std::string_view target, std::string_view action,
                     const Dictionary& parameters) override {
    inner_.performTarget(target, action, parameters);
  }
  Value perform(std::string_view selector, const std::vector<Value>& arguments) override {
    return selector == kLongId ? Value() : inner_.perform(selector, arguments);
  }

 private:
  QXMediator& inner_;
};

TEST(TaskExecutorHost, WithoutAnItemIdServiceGetsAGeneratedIdAndOneReport) {
  FakePlatform& platform = FakePlatform::kept();
  ForgetfulMediator mediator(platform.mediator);
  Library& library = keptLibrary(platform.seams().with(mediator));
  platform.mediator.signIn("123456", "token", "https://backend.test");
  platform.clock.set(1'712'345'678);
  platform.messageClients.answer(
      kGetUploadConfig,
      Dictionary{{"upload_token_map",
                  Dictionary{{"avatar", Dictionary{{"access_key_id", "K"},
                                                   {"access_key_secret", "S"},
                                                   {"security_token", "T"},
                                                   {"expiration", 1'800'000'000},
                                                   {"bucket", "photos"},
                                                   {"region", "us-east-1"},
                                                   {"authorized_path", ""},
                                                   {"download_url_prefix", "https://c"}}}}}});
  auto executor = std::make_shared<TaskExecutor>(
      library.platform, library.configure, library.events, UploadKind::background,
      std::make_shared<DataTask>("a.jpg", "avatar", Data("b"), AWSParameterMap{}));
  std::vector<std::int64_t> ids;
  executor->complete = [&ids](const auto&, const auto&, const AWSCallbackStatus& status,
                              std::int64_t itemId) {
    EXPECT_TRUE(status.succeeded());
    ids.push_back(itemId);
  };
  executor->execute();
  platform.dispatch.runUntilIdle();
  EXPECT_EQ(ids, std::vector<std::int64_t>{4562345678});
}

struct GeneratedId {
  std::optional<std::string> userId;
  double now;
  std::int64_t expected;
  friend std::ostream& operator<<(std::ostream& out, const GeneratedId& id) {
    return out << "user " << id.userId.value_or("none") << " at " << std::to_string(id.now);
  }
};

class GenerataItemId : public UploadFixture, public testing::WithParamInterface<GeneratedId> {};

TEST_P(GenerataItemId, JoinsUserRemainderAndShortenedTime) {
  platform.mediator.answer("Account_GetUserId",
                           GetParam().userId ? Value(*GetParam().userId) : Value());
  platform.clock.set(GetParam().now);
  EXPECT_EQ(TaskExecutor::generataItemId(library.platform), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GenerataItemId,
    testing::Values(
        GeneratedId{"123456", 1712345678, 4562345678},
        // Fractions of seconds are cut off.
        GeneratedId{"123456", 1712345678.999, 4562345678},
        // A user id that is absent, no number, or not within 64 bits counts as 0.
        GeneratedId{std::nullopt, 1712345678, 2345678}, GeneratedId{"", 1712345678, 2345678},
        GeneratedId{"abc", 1712345678, 2345678}, GeneratedId{"12a", 1712345678, 2345678},
        GeneratedId{"99999999999999999999", 1712345678, 2345678},
        GeneratedId{"0", 1712345678, 2345678},
        // The remainder has no leading zeros. The time keeps its own.
        GeneratedId{"1000", 1712345678, 2345678}, GeneratedId{"5007", 1712345678, 72345678},
        GeneratedId{"7", 1700000123, 70000123},
        // User ids with signs.
        GeneratedId{"+123456", 1712345678, 4562345678},
        GeneratedId{"-123456", 1712345678, -4562345678}, GeneratedId{"-1000", 1712345678, 2345678},
        // A time of fewer than four digits is the whole id.
        GeneratedId{"123456", 999, 999}, GeneratedId{"123456", 0, 0},
        GeneratedId{"123456", -0.9, 0}, GeneratedId{"123456", -12, -12},
        GeneratedId{"123456", 1234, 4564},
        // A number beyond 64 bits.
        GeneratedId{"999", 1e18, 0}));

}  // namespace
}  // namespace qx
