// The time that a transfer waits before it tries again. A resource timeout that a longer wait would
// exceed ends the transfer at once, so the number of requests tells how long the transfer would
// have waited.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/linux/ScriptedServer.h"
#include "unit/linux/TransferFixture.h"

namespace qx {
namespace {

using ::testing::AllOf;
using ::testing::Ge;
using ::testing::Le;
using ::testing::SizeIs;

class TransferRetryTest : public TransferFixture {};

TEST_F(TransferRetryTest, WaitsDoubleFromOneTenthOfASecond) {
  retries_ = 1000;
  // Waits of 0.1, 0.2 and 0.4 s fit into the time. The next wait of 0.8 s does not.
  resourceTimeout_ = 1.5;
  ScriptedServer server({answerWith(503)});
  const auto error = upload(server.url());
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, 3);
  EXPECT_THAT(server.requests(), SizeIs(AllOf(Ge(2U), Le(4U))));
}

TEST_F(TransferRetryTest, RetryAfterMayBeADate) {
  ScriptedServer server(
      {answerWith(503, "", "Retry-After: Sat, 21 Nov 2026 00:06:31 GMT\r\n"), Turn()});
  EXPECT_TRUE(upload(server.url())) << "31 s are more than the 30 s that the transfer may take";
  EXPECT_THAT(server.requests(), SizeIs(1));
}

TEST_F(TransferRetryTest, RetryAfterADateIsOnTheClockOfTheStore) {
  // The store's clock is an hour ahead, and the store asks for a retry at the present time of its
  // clock.
  const std::string hourAhead = "Sat, 21 Nov 2026 01:06:00 GMT\r\n";
  ScriptedServer server(
      {answerWith(403, "<Error><Code>RequestTimeTooSkewed</Code></Error>", "Date: " + hourAhead),
       answerWith(503, "", "Retry-After: " + hourAhead), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_THAT(server.requests(), SizeIs(3));
}

TEST_F(TransferRetryTest, RetryAfterThatCannotBeReadIsAnOrdinaryWait) {
  ScriptedServer server({answerWith(503, "", "Retry-After: soon\r\n"), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_THAT(server.requests(), SizeIs(2));
}

}  // namespace
}  // namespace qx
