// The resource timeout with LinuxSettings::resourceTimeoutCountsStandstillOnly and without it.
#include <gtest/gtest.h>

#include "unit/linux/TransferFixture.h"

namespace qx {
namespace {

constexpr std::int64_t kTimedOut = kTransportErrorBase + 28;

/// Reads the request's body slowly: 64 KiB every 25 ms, so that 3 MiB take more than a second.
Turn slowReader() {
  Turn turn;
  turn.readIntervalMs = 25;
  return turn;
}

/// Sends a body of `size` bytes, one byte every 20 ms.
Turn slowWriter(std::size_t size) {
  Turn turn;
  turn.answer = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
  turn.piece = "x";
  turn.pieces = size;
  turn.pieceIntervalMs = 20;
  return turn;
}

const std::string& largeBody() {
  static const std::string body(std::size_t{3} << 20, 'x');
  return body;
}

class StandstillTimeoutTest : public TransferFixture {
 protected:
  StandstillTimeoutTest() : TransferFixture(true) {
    resourceTimeout_ = 0.4;
    retries_ = 0;
  }
};

TEST_F(StandstillTimeoutTest, SlowUploadSucceeds) {
  ScriptedServer server({slowReader()});
  ASSERT_EQ(upload(server.url(), largeBody()), std::nullopt);
  EXPECT_EQ(server.requests()[0].body.size(), largeBody().size());
}

TEST_F(StandstillTimeoutTest, SlowDownloadSucceeds) {
  ScriptedServer server({slowWriter(60)});
  EXPECT_EQ(download(server.url(), path("file")).error, std::nullopt);
  EXPECT_EQ(content(path("file")), std::string(60, 'x'));
}

TEST_F(StandstillTimeoutTest, DeadLineEndsTheTransfer) {
  Turn turn = silence(Turn::Then::stall);
  turn.read = Turn::Read::head;
  ScriptedServer server({turn});
  EXPECT_EQ(upload(server.url(), std::string(std::size_t{32} << 20, 'x'))->code, kTimedOut);
}

TEST_F(StandstillTimeoutTest, LineThatDiesInTheMiddleEndsTheTransfer) {
  Turn turn = slowWriter(30);
  turn.answer = "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n";
  turn.then = Turn::Then::stall;
  ScriptedServer server({turn});
  EXPECT_EQ(download(server.url(), path("file")).error->code, kTimedOut);
}

TEST_F(StandstillTimeoutTest, StoreThatDripsItsAnswerToAnUploadHoldsNothing) {
  Turn head = slowWriter(100000);
  head.answer = "HTTP/1.1 200 OK\r\n";
  head.piece = "X-Slow: 1\r\n";
  Turn body = slowWriter(100000);
  body.answer = "HTTP/1.1 403 No\r\nContent-Length: 100000\r\n\r\n";
  for (const Turn& turn : {head, body}) {
    ScriptedServer server({turn});
    EXPECT_EQ(upload(server.url())->code, kTimedOut);
  }
}

TEST_F(StandstillTimeoutTest, FurtherAttemptsThatMoveNothingShareTheTime) {
  requestTimeout_ = 0.3;
  resourceTimeout_ = 0.5;
  retries_ = 1000;
  ScriptedServer server({silence(Turn::Then::stall)});
  EXPECT_EQ(upload(server.url(), "")->code, kTimedOut);
  EXPECT_LE(server.requests().size(), 2u);
}

TEST_F(StandstillTimeoutTest, FurtherAttemptAfterASlowOneHasTimeAgain) {
  retries_ = 1;
  Turn cut = slowWriter(50);
  cut.answer = "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n";
  cut.then = Turn::Then::close;
  ScriptedServer server({cut, answerWith(200, "whole")});
  EXPECT_EQ(download(server.url(), path("file")).error, std::nullopt);
  EXPECT_EQ(content(path("file")), "whole");
}

class ResourceTimeoutTest : public TransferFixture {
 protected:
  ResourceTimeoutTest() {
    resourceTimeout_ = 0.4;
    retries_ = 0;
  }
};

TEST_F(ResourceTimeoutTest, WithoutTheSettingASlowTransferEndsHoweverMuchHasMoved) {
  ScriptedServer reader({slowReader()});
  EXPECT_EQ(upload(reader.url(), largeBody())->code, kTimedOut);
  ScriptedServer writer({slowWriter(1000)});
  EXPECT_EQ(download(writer.url(), path("file")).error->code, kTimedOut);
}

// The kernel holds the last bytes of a body for a while after it has got them. This server takes
// longer to read them than the request timeout allows without movement.
TEST_F(ResourceTimeoutTest, BytesThatTheKernelStillHoldsCountAsMoving) {
  resourceTimeout_ = 30;
  requestTimeout_ = 2;
  Turn turn;
  turn.readIntervalMs = 400;
  ScriptedServer server({turn});
  EXPECT_EQ(upload(server.url(), std::string(std::size_t{768} << 10, 'x')), std::nullopt);
}

}  // namespace
}  // namespace qx
