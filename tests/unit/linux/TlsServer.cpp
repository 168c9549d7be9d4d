#include "unit/linux/TlsServer.h"

#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include "platform/Error.h"

namespace qx {
namespace {

void addExtension(X509* certificate, int kind, const std::string& value) {
  std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()), X509_EXTENSION_free);
  if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) {
    fatal("no certificate extension");
  }
}

/// A certificate with a new key and without a signature.
TestAuthority::Identity unsignedIdentity(const char* name, long serial, long validSeconds) {
  TestAuthority::Identity made{{X509_new(), X509_free}, {EVP_EC_gen("P-256"), EVP_PKEY_free}};
  X509* certificate = made.certificate.get();
  X509_set_version(certificate, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate), -24 * 3600);
  X509_gmtime_adj(X509_getm_notAfter(certificate), validSeconds);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
  X509_set_pubkey(certificate, made.key.get());
  return made;
}

}  // namespace

TestAuthority::TestAuthority(const char* name) : own_(unsignedIdentity(name, 1, 3600)) {
  X509_set_issuer_name(own_.certificate.get(), X509_get_subject_name(own_.certificate.get()));
  addExtension(own_.certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
  addExtension(own_.certificate.get(), NID_key_usage, "critical,keyCertSign");
  X509_sign(own_.certificate.get(), own_.key.get(), EVP_sha256());
}

std::string TestAuthority::pem() const {
  std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  PEM_write_bio_X509(memory.get(), own_.certificate.get());
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

TestAuthority::Identity TestAuthority::issue(const std::string& names, long validSeconds) const {
  Identity made = unsignedIdentity("Test server", 2, validSeconds);
  X509_set_issuer_name(made.certificate.get(), X509_get_subject_name(own_.certificate.get()));
  addExtension(made.certificate.get(), NID_subject_alt_name, names);
  X509_sign(made.certificate.get(), own_.key.get(), EVP_sha256());
  return made;
}

TlsServer::TlsServer(const TestAuthority::Identity& identity, int newestVersion)
    : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
  // OpenSSL writes without MSG_NOSIGNAL.
  std::signal(SIGPIPE, SIG_IGN);
  if (SSL_CTX_use_certificate(context_.get(), identity.certificate.get()) != 1 ||
      SSL_CTX_use_PrivateKey(context_.get(), identity.key.get()) != 1) {
    fatal("the TLS server has no certificate");
  }
  if (newestVersion != 0 &&
      // Security level 0 lets OpenSSL use the TLS versions that its default level refuses.
      (SSL_CTX_set_cipher_list(context_.get(), "ALL:@SECLEVEL=0") != 1 ||
       SSL_CTX_set_min_proto_version(context_.get(), TLS1_VERSION) != 1 ||
       SSL_CTX_set_max_proto_version(context_.get(), newestVersion) != 1)) {
    fatal("the TLS server does not know the TLS version");
  }
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_, generic, size) != 0 || ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, generic, &size) != 0) {
    fatal("the TLS server has no port");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

TlsServer::~TlsServer() {
  {
    MutexLock lock(mutex_);
    stopping_ = true;
    if (socket_ >= 0) ::shutdown(socket_, SHUT_RDWR);
  }
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  ::close(listener_);
}

std::string TlsServer::url() const {
  return "https://localhost:" + std::to_string(port_);
}

void TlsServer::setFirstAnswer(std::string answer) {
  MutexLock lock(mutex_);
  firstAnswer_ = std::move(answer);
}

std::vector<std::string> TlsServer::requests() const {
  MutexLock lock(mutex_);
  return requests_;
}

int TlsServer::handshakes() const {
  MutexLock lock(mutex_);
  return handshakes_;
}

void TlsServer::serve() {
  while (true) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    {
      MutexLock lock(mutex_);
      if (stopping_) {
        ::close(socket);
        return;
      }
      socket_ = socket;
      ++handshakes_;
    }
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context_.get()), SSL_free);
    SSL_set_fd(tls.get(), socket);
    if (SSL_accept(tls.get()) == 1) talk(tls.get());
    MutexLock lock(mutex_);
    socket_ = -1;
    ::close(socket);
  }
}

void TlsServer::talk(SSL* tls) {
  constexpr std::string_view kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
  constexpr std::string_view kLength = "content-length: ";
  std::string buffer;
  char bytes[4096];
  for (int count = SSL_read(tls, bytes, sizeof bytes); count > 0;
       count = SSL_read(tls, bytes, sizeof bytes)) {
    buffer.append(bytes, static_cast<std::size_t>(count));
    const std::size_t head = buffer.find("\r\n\r\n");
    if (head == std::string::npos) continue;
    std::string lower = buffer.substr(0, head);
    for (char& c : lower) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    const std::size_t length = lower.find(kLength);
    const std::size_t body =
        length == std::string::npos ? 0 : std::stoul(lower.substr(length + kLength.size()));
    if (buffer.size() < head + 4 + body) continue;
    std::string answer(kAnswer);
    {
      MutexLock lock(mutex_);
      requests_.push_back(std::exchange(buffer, {}));
      if (!firstAnswer_.empty()) answer = std::exchange(firstAnswer_, {});
    }
    SSL_write(tls, answer.data(), static_cast<int>(answer.size()));
  }
}

}  // namespace qx
