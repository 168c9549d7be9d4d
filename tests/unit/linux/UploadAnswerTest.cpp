// The end of an upload to the upload server: its answer is complete with its head.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "http/UploadClient.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

class UploadAnswerTest : public ::testing::Test {
 protected:
  std::future<QXNetworkingUploadResponse> start(const ScriptedServer& server, std::size_t size,
                                                double timeout) {
    HttpUploadClients clients(engine_, random_, dispatch_.globalQueue());
    QXNetworkingUploadRequest request;
    request.url = server.url() + "/";
    request.multipartFormData = [size](MultipartFormData& form) {
      form.append(Data(std::string(size, 'x')), "img");
    };
    auto promise = std::make_shared<std::promise<QXNetworkingUploadResponse>>();
    clients.make({}, timeout)->upload(request, nullptr, [promise](const auto& response) {
      promise->set_value(response);
    });
    return promise->get_future();
  }
  QXNetworkingUploadResponse send(const ScriptedServer& server, std::size_t size = 300000,
                                  double timeout = 30) {
    return start(server, size, timeout).get();
  }

  PosixDispatch dispatch_;
  SystemRandom random_;
  HttpEngine engine_{{}};
};

/// A body that comes byte by byte for hours.
Turn trickling(const std::string& head) {
  Turn turn;
  turn.answer = head + "Content-Length: 1000000\r\n\r\n";
  turn.piece = "x";
  turn.pieces = 1000000;
  turn.pieceIntervalMs = 20;
  return turn;
}

TEST_F(UploadAnswerTest, BodyThatTricklesDoesNotHoldTheUpload) {
  for (const int status : {200, 413}) {
    ScriptedServer server({trickling("HTTP/1.1 " + std::to_string(status) + " Said\r\n")});
    const auto response = send(server);
    EXPECT_EQ(response.error, std::nullopt);
    ASSERT_TRUE(response.httpURLResponse);
    EXPECT_EQ(response.httpURLResponse->statusCode, status);
  }
}

TEST_F(UploadAnswerTest, BodyThatBreaksOffOrNeverEndsLeavesTheStatusStanding) {
  Turn cut;
  cut.answer = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart";
  cut.then = Turn::Then::close;
  Turn broken = cut;
  broken.answer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nno chunk\r\n";
  Turn silent = cut;
  silent.then = Turn::Then::stall;
  Turn huge;
  huge.answer = "HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n";
  huge.piece = std::string(1 << 16, 'x');
  huge.pieces = 1500;
  for (const Turn& turn : {cut, broken, silent, huge}) {
    ScriptedServer server({turn});
    const auto response = send(server);
    EXPECT_EQ(response.error, std::nullopt) << turn.answer;
    ASSERT_TRUE(response.httpURLResponse);
    EXPECT_EQ(response.httpURLResponse->statusCode, 200);
  }
}

TEST_F(UploadAnswerTest, HeadThatTricklesRunsIntoTheRequestTimeout) {
  Turn turn;
  turn.answer = "HTTP/1.1 200 OK\r\n";
  turn.piece = "X-Slow: 1\r\n";
  turn.pieces = 1000;
  turn.pieceIntervalMs = 20;
  ScriptedServer server({turn});
  const auto response = send(server, 300000, 0.4);
  ASSERT_TRUE(response.error);
  EXPECT_EQ(response.error->code, kTransportErrorBase + 28);
}

TEST_F(UploadAnswerTest, BodyThatIsAnsweredByHeadEndsWithTheRequestTimeout) {
  ScriptedServer server({trickling("HTTP/1.1 200 OK\r\n"), Turn()});
  EXPECT_EQ(send(server, 10, 0.2).error, std::nullopt);
  server.waitForEnds(1);
  EXPECT_EQ(server.connections(), 1u);
}

TEST_F(UploadAnswerTest, ConnectionServesTheNextUploadOnceTheBodyHasEnded) {
  Turn late;
  late.answer = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
  late.piece = "ready";
  late.pieces = 1;
  late.pieceIntervalMs = 20;
  ScriptedServer server({late, Turn()});
  EXPECT_EQ(send(server).error, std::nullopt);
  // Uploads that begin before the body has ended take another connection.
  do {
    ASSERT_EQ(send(server).error, std::nullopt);
    ASSERT_LT(server.requests().size(), 1000u);
  } while (server.requests().back().connection != 0);
}

TEST_F(UploadAnswerTest, RefusalBeforeTheWholeFormEndsTheUpload) {
  Turn turn = trickling("HTTP/1.1 413 Too Large\r\n");
  turn.read = Turn::Read::head;
  ScriptedServer server({turn});
  const auto response = send(server, 64 << 20);
  EXPECT_EQ(response.error, std::nullopt);
  ASSERT_TRUE(response.httpURLResponse);
  EXPECT_EQ(response.httpURLResponse->statusCode, 413);
}

TEST_F(UploadAnswerTest, EngineThatStopsEndsTheRestOfABody) {
  ScriptedServer server({trickling("HTTP/1.1 200 OK\r\n")});
  EXPECT_EQ(send(server).error, std::nullopt);
  engine_.stop();
}

}  // namespace
}  // namespace qx
