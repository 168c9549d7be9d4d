// The HTTP engine with a server that offers HTTP/2. Node's own implementation is the server.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "integration/Devstack.h"
#include "platforms/shared/HttpEngine.h"

namespace qx {
namespace {

/// Answers "<HTTP version> <bytes of the body> <TLS sessions so far>", prints its port, and ends
/// when its standard input ends.
constexpr char kServer[] = R"(
const fs = require('fs');
const [folder] = process.argv.slice(1);
let sessions = 0;
const server = require('http2').createSecureServer({
  allowHTTP1: true,
  key: fs.readFileSync(`${folder}/store.key`),
  cert: fs.readFileSync(`${folder}/store.crt`),
}, (request, response) => {
  let bytes = 0;
  request.on('data', (piece) => { bytes += piece.length; });
  request.on('end', () => response.end(`${request.httpVersion} ${bytes} ${sessions}`));
});
server.on('secureConnection', () => { sessions += 1; });
server.listen(0, '127.0.0.1', () => console.log(server.address().port));
process.stdin.on('end', () => process.exit()).resume();
)";

class Http2Server {
 public:
  explicit Http2Server(const std::string& certificates) {
    std::array<int, 2> input{};
    std::array<int, 2> output{};
    if (::pipe(input.data()) != 0 || ::pipe(output.data()) != 0) std::abort();
    child_ = ::fork();
    if (child_ == 0) {
      ::dup2(input[0], STDIN_FILENO);
      ::dup2(output[1], STDOUT_FILENO);
      for (const int fd : {input[0], input[1], output[0], output[1]}) ::close(fd);
      ::execlp("node", "node", "-e", kServer, "--", certificates.c_str(), nullptr);
      std::_Exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    input_ = input[1];
    FILE* said = ::fdopen(output[0], "r");
    int port = 0;
    if (std::fscanf(said, "%d", &port) != 1) ADD_FAILURE() << "node does not start";
    std::fclose(said);
    url_ = "https://localhost:" + std::to_string(port) + "/";
  }
  ~Http2Server() {
    ::close(input_);
    ::waitpid(child_, nullptr, 0);
  }
  Http2Server(const Http2Server&) = delete;
  Http2Server& operator=(const Http2Server&) = delete;

  const std::string& url() const { return url_; }

 private:
  pid_t child_ = -1;
  int input_ = -1;
  std::string url_;
};

HttpAnswer exchange(HttpEngine& engine, HttpRequest request) {
  std::promise<HttpAnswer> promise;
  engine.send(std::move(request), [&](HttpAnswer answer) { promise.set_value(std::move(answer)); });
  return promise.get_future().get();
}

TEST(Http2, IsSpokenWhereItIsOfferedOverOneConnection) {
  Devstack devstack;
  const std::string caFile = devstack.url("caFile");
  const Http2Server server(std::filesystem::path(caFile).parent_path());
  HttpEngine engine({.caFile = caFile, .proxy = std::nullopt, .noProxy = std::nullopt});

  HttpRequest get;
  get.url = server.url();
  const HttpAnswer got = exchange(engine, std::move(get));
  ASSERT_FALSE(got.error) << got.error->description;
  EXPECT_EQ(got.status, 200);
  EXPECT_EQ(got.body, "2.0 0 1");
  EXPECT_TRUE(got.framed);

  for (const std::size_t size : {std::size_t{0}, std::size_t{5000}, std::size_t{3} << 20}) {
    HttpRequest put;
    put.method = "PUT";
    put.url = server.url();
    if (size > 0) put.body.emplace_back(std::string(size, 'x'));
    const HttpAnswer answer = exchange(engine, std::move(put));
    ASSERT_FALSE(answer.error) << answer.error->description;
    EXPECT_EQ(answer.body, "2.0 " + std::to_string(size) + " 1");
  }
}

}  // namespace
}  // namespace qx
