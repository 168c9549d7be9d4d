// The oldest TLS version that the HTTP engine accepts, whatever OpenSSL's configuration on the
// machine allows.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "platforms/shared/HttpEngine.h"
#include "unit/linux/TlsServer.h"

namespace qx {
namespace {

using ::testing::ExitedWithCode;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// The configuration of a machine whose administrator allows every version.
constexpr const char* kLenientConfiguration =
    "openssl_conf = conf\n[conf]\nssl_conf = ssl\n[ssl]\nsystem_default = default\n"
    "[default]\nMinProtocol = TLSv1\nCipherString = ALL:@SECLEVEL=0\n";

/// True when OpenSSL by itself, with its configuration, completes a handshake with the server.
bool plainClientConnects(const std::string& url) {
  const int port = std::stoi(url.substr(url.rfind(':') + 1));
  const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  bool connected = false;
  if (::connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context.get()), SSL_free);
    SSL_set_fd(tls.get(), connection);
    connected = SSL_connect(tls.get()) == 1;
  }
  ::close(connection);
  return connected;
}

HttpAnswer get(const std::string& caFile, const std::string& url) {
  HttpEngineSettings settings;
  settings.caFile = caFile;
  HttpEngine engine(settings);
  HttpRequest request;
  request.url = url + "/";
  request.headers = {{"ACCESS-TOKEN", "the-token"}};
  std::promise<HttpAnswer> promise;
  engine.send(std::move(request), [&](HttpAnswer answer) { promise.set_value(std::move(answer)); });
  return promise.get_future().get();
}

/// Runs in a process that was started with the permissive configuration. `offered` is the newest
/// version that the server knows.
void expectSpoken(const std::string& folder, int offered, bool spoken) {
  const TestAuthority authority;
  std::ofstream(folder + "/ca.pem") << authority.pem();
  TlsServer server(authority.issue("DNS:localhost"), offered);
  EXPECT_TRUE(plainClientConnects(server.url())) << "the machine itself allows the version";
  const HttpAnswer answer = get(folder + "/ca.pem", server.url());
  if (spoken) {
    EXPECT_EQ(answer.status, 200);
    EXPECT_THAT(server.requests(), SizeIs(1));
  } else {
    ASSERT_TRUE(answer.error);
    EXPECT_EQ(answer.error->domain, "Transport");
    EXPECT_EQ(answer.error->code, kTransportErrorBase + 35) << "libcurl's \"SSL connect error\"";
    EXPECT_THAT(server.requests(), IsEmpty());
  }
}

class TlsVersionTest : public ::testing::TestWithParam<std::pair<int, bool>> {};

TEST_P(TlsVersionTest, NothingOlderThanOnePointTwoIsSpoken) {
  std::string folder = ::testing::TempDir() + "qx-tls-version-XXXXXX";
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  std::ofstream(folder + "/openssl.cnf") << kLenientConfiguration;
  // OpenSSL reads its configuration once per process, so the test continues in a process that has
  // not read it yet.
  ::setenv("OPENSSL_CONF", (folder + "/openssl.cnf").c_str(), 1);
  const auto [version, spoken] = GetParam();
  EXPECT_EXIT(
      {
        expectSpoken(folder, version, spoken);
        std::filesystem::remove_all(folder);
        ::exit(HasFailure() ? 1 : 0);
      },
      ExitedWithCode(0), "");
  std::filesystem::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(Versions, TlsVersionTest,
                         ::testing::Values(std::pair{TLS1_VERSION, false},
                                           std::pair{TLS1_1_VERSION, false},
                                           std::pair{TLS1_2_VERSION, true},
                                           std::pair{TLS1_3_VERSION, true}));

}  // namespace
}  // namespace qx
