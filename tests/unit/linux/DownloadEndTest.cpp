// The answers of the store that count as a whole object, and the statuses that count as success.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/linux/TransferFixture.h"

namespace qx {
namespace {

using ::testing::ElementsAre;

class DownloadEndTest : public TransferFixture {
 protected:
  /// Downloads from a server that sends this answer and closes the connection.
  Downloaded downloadOf(const std::string& answer) {
    Turn turn = silence(Turn::Then::close);
    turn.answer = answer;
    ScriptedServer server({turn});
    return download(server.url(), path("file"));
  }
};

TEST_F(DownloadEndTest, AnswerWhoseBodyHasACertainEndIsTheObject) {
  retries_ = 0;
  const std::vector<std::string> answers = {
      "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwhole",
      "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nwhole\r\n0\r\n\r\n",
      "HTTP/1.1 200 OK\r\ntransfer-encoding: CHUNKED\r\n\r\n2\r\nwh\r\n3\r\nole\r\n0\r\n\r\n",
  };
  for (const std::string& answer : answers) {
    std::ofstream(path("file")) << "earlier";
    EXPECT_EQ(downloadOf(answer).error, std::nullopt) << answer;
    EXPECT_EQ(content(path("file")), "whole") << answer;
  }
}

TEST_F(DownloadEndTest, AnswerWhoseBodyHasNoCertainEndIsAFailureAndLeavesTheEarlierFile) {
  retries_ = 0;
  const std::vector<std::string> answers = {
      // The answer has two lengths; the second one fits.
      "HTTP/1.1 200 OK\r\nContent-Length: 100\r\nContent-Length: 5\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 100\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 5\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: 5, 5\r\n\r\nwhole",
      // Lengths that are no numbers, or are larger than 2^63-1.
      "HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775808\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: 18446744073709551621\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: +5\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: five\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: \r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nContent-Length: 0x5\r\n\r\nwhole",
      // Only the end of the connection says where the body ends.
      "HTTP/1.1 200 OK\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: identity\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: identity\r\nContent-Length: 5\r\n\r\nwhole",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n5\r\nwhole\r\n0\r\n\r\n",
      "HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nwhole\r\n0\r\n\r\n",
      // The chunks end, but the length announces more.
      "HTTP/1.1 200 OK\r\nContent-Length: 100\r\nTransfer-Encoding: chunked\r\n\r\n"
      "5\r\nwhole\r\n0\r\n\r\n",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nwhole\r\n",
  };
  for (const std::string& answer : answers) {
    std::ofstream(path("file")) << "earlier";
    const Downloaded downloaded = downloadOf(answer);
    EXPECT_TRUE(downloaded.error) << answer;
    EXPECT_EQ(downloaded.url, std::nullopt) << answer;
    EXPECT_EQ(content(path("file")), "earlier") << answer;
    EXPECT_THAT(names(), ElementsAre("file"));
  }
}

TEST_F(DownloadEndTest, OtherSuccessThanTwoHundredIsAFailureAndLeavesTheEarlierFile) {
  for (const int status : {201, 203, 204, 206}) {
    ScriptedServer server(
        {answerWith(status, status == 204 ? "" : "whole", "Content-Range: bytes 0-4/100\r\n")});
    std::ofstream(path("file")) << "earlier";
    const Downloaded downloaded = download(server.url(), path("file"));
    ASSERT_TRUE(downloaded.error) << status;
    EXPECT_EQ(downloaded.error->domain, "ObjectStore");
    EXPECT_EQ(downloaded.error->code, 0);
    EXPECT_EQ(downloaded.error->description, "HTTP " + std::to_string(status));
    EXPECT_EQ(content(path("file")), "earlier");
    EXPECT_TRUE(downloaded.progress.empty());
    EXPECT_EQ(server.requests().size(), 1u);
  }
}

TEST_F(DownloadEndTest, PartOfALargeObjectIsNamedByItsStatusAndNotReadToItsEnd) {
  Turn turn;
  turn.answer = "HTTP/1.1 206 Partial Content\r\nContent-Length: 100000000\r\n\r\n";
  turn.piece = std::string(1 << 16, 'x');
  turn.pieces = 1000;
  ScriptedServer server({turn});
  EXPECT_EQ(download(server.url(), path("file")).error->description, "HTTP 206");
}

TEST_F(DownloadEndTest, UploadCountsWithTwoHundredAlone) {
  for (const int status : {201, 202, 204, 206}) {
    ScriptedServer server({answerWith(status)});
    const auto error = upload(server.url());
    ASSERT_TRUE(error) << status;
    EXPECT_EQ(error->domain, "ObjectStore");
    EXPECT_EQ(error->code, 0);
    EXPECT_EQ(error->description, "HTTP " + std::to_string(status));
    EXPECT_EQ(server.requests().size(), 1u);
  }
}

}  // namespace
}  // namespace qx
