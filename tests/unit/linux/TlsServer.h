// An HTTPS server on loopback whose certificate the test chooses. It answers with 200 unless the
// test says otherwise.
//
// Threads: any thread may read the record. One thread serves one connection at a time.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/Mutex.h"

namespace qx {

/// A certificate authority made for one test.
class TestAuthority {
 public:
  explicit TestAuthority(const char* name = "Test authority");
  /// The PEM text that a client must trust.
  std::string pem() const;

  struct Identity {
    std::shared_ptr<X509> certificate;
    std::shared_ptr<EVP_PKEY> key;
  };
  /// Makes a server certificate for `names`, such as "DNS:localhost,IP:127.0.0.1", that is valid
  /// from a day before now to `validSeconds` after now.
  Identity issue(const std::string& names, long validSeconds = 3600) const;

 private:
  Identity own_;
};

class TlsServer {
 public:
  /// `newestVersion` is a version number of OpenSSL such as TLS1_1_VERSION. 0 is the newest version
  /// that there is.
  explicit TlsServer(const TestAuthority::Identity& identity, int newestVersion = 0);
  ~TlsServer();
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  /// "https://localhost:port".
  std::string url() const;
  /// The whole answer to the first request. Set it before the request comes.
  void setFirstAnswer(std::string answer);
  /// The heads and bodies of the requests, unchanged. Empty when no handshake was completed.
  std::vector<std::string> requests() const;
  /// The number of handshakes that were begun.
  int handshakes() const;

 private:
  void serve();
  void talk(SSL* tls);

  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  int listener_ = -1;
  int port_ = 0;
  mutable Mutex mutex_;
  std::string firstAnswer_ QX_GUARDED_BY(mutex_);
  std::vector<std::string> requests_ QX_GUARDED_BY(mutex_);
  int handshakes_ QX_GUARDED_BY(mutex_) = 0;
  int socket_ QX_GUARDED_BY(mutex_) = -1;
  bool stopping_ QX_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace qx
