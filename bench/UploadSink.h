// The other end of the upload bench: a process of its own that takes uploads, throws them away and
// answers at once, and that hands out the credentials of one scope.
//
// Threads: made and destroyed by a program that has no other thread (it forks).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace qx::bench {

/// The one credential record that the sink hands out.
inline constexpr std::string_view kScope = "bench";
inline constexpr std::string_view kBucket = "bench";
inline constexpr std::string_view kRegion = "us-east-1";
inline constexpr std::string_view kAuthorizedPath = "uploads/100001/";
inline constexpr std::string_view kAccessKey = "4VQk0u3Gm1xXbW8Pz2aH";
inline constexpr std::string_view kSecretKey = "not-a-secret-the-sink-checks-nothing";
/// As long as a token service's.
std::string sessionToken();

/// What the sink has swallowed so far; in memory that it shares with the program.
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

  /// "http://127.0.0.1:40001", or "https://...".
  std::string url(bool tls) const;
  const std::string& certificateFile() const { return certificateFile_; }
  const SinkCounts& counts() const { return *counts_; }
  /// CPU time of the process so far, readable from any process.
  double cpuSeconds() const;

 private:
  const std::string certificateFile_;
  SinkCounts* counts_ = nullptr;
  int plainPort_ = 0;
  int tlsPort_ = 0;
  pid_t process_ = -1;
};

}  // namespace qx::bench
