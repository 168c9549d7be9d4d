#include "bench/UploadSink.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>
#include <new>

#include "platform/Error.h"

namespace qx::bench {
namespace {

constexpr std::string_view kOk = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

void require(bool done, const char* what) {
  if (!done) fatal(std::string("the bench's sink cannot ") + what);
}

std::string credentials() {
  const auto text = [](std::string_view value) { return "\"" + std::string(value) + "\""; };
  const std::string body =
      "{\"upload_token_map\":{" + text(kScope) + ":{\"access_key_id\":" + text(kAccessKey) +
      ",\"access_key_secret\":" + text(kSecretKey) + ",\"security_token\":" + text(sessionToken()) +
      ",\"expiration\":\"2099-01-01T00:00:00Z\",\"bucket\":" + text(kBucket) +
      ",\"region\":" + text(kRegion) + ",\"authorized_path\":" + text(kAuthorizedPath) +
      ",\"download_url_prefix\":\"https://cdn.example.com\"}}}";
  return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// Makes a self-signed certificate for 127.0.0.1. The file gets the certificate, the context also
/// its key.
void makeCertificate(SSL_CTX* context, const std::string& file) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  require(key && certificate, "make a key");
  constexpr long kDay = 24 * 60 * 60;
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kDay);
  X509_set_pubkey(certificate.get(), key.get());
  X509_NAME* name = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("upload bench"), -1, -1, 0);
  X509_set_issuer_name(certificate.get(), name);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> address(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1"),
      X509_EXTENSION_free);
  X509_add_ext(certificate.get(), address.get(), -1);
  require(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0, "sign its certificate");
  require(SSL_CTX_use_certificate(context, certificate.get()) == 1 &&
              SSL_CTX_use_PrivateKey(context, key.get()) == 1,
          "use its certificate");
  std::FILE* out = std::fopen(file.c_str(), "we");
  require(out != nullptr && PEM_write_X509(out, certificate.get()) == 1 && std::fclose(out) == 0,
          "write its certificate");
}

int listenOnLoopback(int& port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  require(socket >= 0 && bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
              listen(socket, SOMAXCONN) == 0 &&
              getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0,
          "listen");
  port = ntohs(address.sin_port);
  return socket;
}

/// One connection, which carries the heads and bodies of its requests one after the other.
class Connection {
 public:
  Connection(int socket, SSL* tls, SinkCounts& counts)
      : socket_(socket), tls_(tls), counts_(counts) {}
  ~Connection() {
    SSL_free(tls_);
    close(socket_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Takes the bytes that have come. False when the connection has ended.
  bool serve() {
    static std::array<char, 256 << 10> buffer;
    for (;;) {
      // The kernel may throw away the bytes of a body itself. A head has to be read.
      const bool discard = bodyLeft_ > 0 && tls_ == nullptr;
      const std::size_t room =
          discard ? static_cast<std::size_t>(std::min<std::int64_t>(bodyLeft_, 1 << 30))
          : bodyLeft_ > 0 || tls_ != nullptr ? buffer.size()
                                             : std::size_t{16} << 10;
      const ssize_t count = receive(buffer.data(), room, discard);
      if (count == 0) return true;
      if (count < 0) return false;
      if (bodyLeft_ > 0) {
        bodyLeft_ -= count;
        if (bodyLeft_ == 0) finish();
      } else if (!takeHead({buffer.data(), static_cast<std::size_t>(count)})) {
        return false;
      }
    }
  }

 private:
  /// The number of bytes; 0 when none have come; below 0 when the connection has ended.
  ssize_t receive(char* out, std::size_t room, bool discard) {
    if (tls_ != nullptr) {
      const int count = SSL_read(tls_, out, static_cast<int>(room));
      if (count > 0) return count;
      return SSL_get_error(tls_, count) == SSL_ERROR_WANT_READ ? 0 : -1;
    }
    const ssize_t count = recv(socket_, out, room, discard ? MSG_TRUNC : 0);
    if (count > 0) return count;
    return count < 0 && errno == EAGAIN ? 0 : -1;
  }

  void answer(std::string_view text) {
    const auto size = static_cast<ssize_t>(text.size());
    const ssize_t count = tls_ != nullptr ? SSL_write(tls_, text.data(), static_cast<int>(size))
                                          : send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
    // An answer is far smaller than a socket buffer, so it is always sent completely.
    require(count == size, "answer");
  }

  bool takeHead(std::string_view bytes) {
    head_.append(bytes);
    const std::size_t end = head_.find("\r\n\r\n");
    if (end == std::string::npos) return head_.size() < (std::size_t{64} << 10);
    const std::string_view head = std::string_view(head_).substr(0, end + 2);
    if (head.starts_with("GET ")) {
      head_.clear();
      answer(credentials());
      return true;
    }
    constexpr std::string_view kLength = "\r\nContent-Length: ";
    const std::size_t length = head.find(kLength);
    if (length == std::string_view::npos) return false;
    std::from_chars(head.data() + length + kLength.size(), head.data() + head.size(), bodySize_);
    if (head.find("\r\nExpect: 100-continue\r\n") != std::string_view::npos) answer(kContinue);
    bodyLeft_ = bodySize_ - static_cast<std::int64_t>(head_.size() - end - 4);
    head_.clear();
    if (bodyLeft_ < 0) return false;
    if (bodyLeft_ == 0) finish();
    return true;
  }

  void finish() {
    counts_.objects += 1;
    counts_.bytes += bodySize_;
    answer(kOk);
  }

  const int socket_;
  SSL* const tls_;
  SinkCounts& counts_;
  std::string head_;
  std::int64_t bodySize_ = 0;
  std::int64_t bodyLeft_ = 0;
};

class Server {
 public:
  Server(int plain, int tls, SSL_CTX* context, SinkCounts& counts)
      : plain_(plain), tls_(tls), context_(context), counts_(counts) {
    watch(plain_, &plain_);
    watch(tls_, &tls_);
  }

  [[noreturn]] void run() {
    std::array<epoll_event, 64> events;
    for (;;) {
      const int count = epoll_wait(epoll_, events.data(), events.size(), -1);
      for (int i = 0; i < count; ++i) {
        void* const what = events.at(static_cast<std::size_t>(i)).data.ptr;
        if (what == &plain_ || what == &tls_) {
          acceptFrom(*static_cast<const int*>(what));
        } else if (auto* connection = static_cast<Connection*>(what); !connection->serve()) {
          delete connection;  // Closing the descriptor removes it from the epoll set.
        }
      }
    }
  }

 private:
  void watch(int descriptor, const void* what) const {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = const_cast<void*>(what);
    require(epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) == 0, "watch a connection");
  }

  void acceptFrom(int listening) {
    const int socket = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket < 0) return;
    constexpr int kOn = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
    SSL* tls = nullptr;
    if (listening == tls_) {
      tls = SSL_new(context_);
      require(tls != nullptr && SSL_set_fd(tls, socket) == 1, "speak TLS");
      SSL_set_accept_state(tls);
    }
    watch(socket, new Connection(socket, tls, counts_));
  }

  const int epoll_ = epoll_create1(EPOLL_CLOEXEC);
  const int plain_;
  const int tls_;
  SSL_CTX* const context_;
  SinkCounts& counts_;
};

}  // namespace

std::string sessionToken() {
  return std::string(356, 'T');
}

UploadSink::UploadSink(const std::string& directory) : certificateFile_(directory + "/sink.pem") {
  void* shared =
      mmap(nullptr, sizeof(SinkCounts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  require(shared != MAP_FAILED, "share memory");
  counts_ = new (shared) SinkCounts{};
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  require(context != nullptr, "speak TLS");
  makeCertificate(context, certificateFile_);
  const int plain = listenOnLoopback(plainPort_);
  const int tls = listenOnLoopback(tlsPort_);
  process_ = fork();
  require(process_ >= 0, "start");
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, "upload-sink");
    Server(plain, tls, context, *counts_).run();
  }
  close(plain);
  close(tls);
  SSL_CTX_free(context);
}

UploadSink::~UploadSink() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  munmap(counts_, sizeof(SinkCounts));
}

std::string UploadSink::url(bool tls) const {
  return tls ? "https://127.0.0.1:" + std::to_string(tlsPort_)
             : "http://127.0.0.1:" + std::to_string(plainPort_);
}

double UploadSink::cpuSeconds() const {
  clockid_t clock{};
  timespec time{};
  require(clock_getcpuclockid(process_, &clock) == 0 && clock_gettime(clock, &time) == 0,
          "be watched");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace qx::bench
