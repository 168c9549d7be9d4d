// The server of the upload benchmark: a process of its own that takes uploads, throws them away,
// answers at once, and gives out the credentials of one scope.
//
// Threads: a program that has no other thread makes and destroys it, because it forks.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace qx::bench {

/// The only credential record that the sink gives out.
inline constexpr std::string_view kScope = "bench";
inline constexpr std::string_view kBucket = "bench";
inline constexpr std::string_view kRegion = "us-east-1";
inline constexpr std::string_view kAuthorizedPath = "uploads/100001/";
inline constexpr std::string_view kAccessKey = "4VQk0u3Gm1xXbW8Pz2aH";
inline constexpr std::string_view kSecretKey = "not-a-secret-the-sink-checks-nothing";
/// The token is as long as that of a token service.
std::string sessionToken();

/// The number of uploads and bytes that the sink has taken so far, in memory that it shares with
/// the program.
struct SinkCounts {
  std::atomic<std::int64_t> objects;
  std::atomic<std::int64_t> bytes;
};

class UploadSink {
 public:
  /// Starts the process. `directory` gets the certificate of the TLS port.
  explicit UploadSink(const std::string& directory);
  /// Ends the process.
  ~UploadSink();
  UploadSink(const UploadSink&) = delete;
  UploadSink& operator=(const UploadSink&) = delete;

  /// An address such as "http://127.0.0.1:40001", or "https://...".
  std::string url(bool tls) const;
  const std::string& certificateFile() const { return certificateFile_; }
  const SinkCounts& counts() const { return *counts_; }
  /// The CPU time of the process so far, which any process may read.
  double cpuSeconds() const;

 private:
  const std::string certificateFile_;
  SinkCounts* counts_ = nullptr;
  int plainPort_ = 0;
  int tlsPort_ = 0;
  pid_t process_ = -1;
};

}  // namespace qx::bench
