#include "platforms/shared/HttpEngine.h"

#include <curl/curl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <map>
#include <thread>
#include <utility>

#include "http/Headers.h"
#include "http/Redaction.h"
#include "platform/Mutex.h"
#include "platform/UserInfo.h"

namespace qx {
namespace {

using SteadyClock = std::chrono::steady_clock;
using Time = SteadyClock::time_point;

/// The number of requests to one host that run at a time. Further requests wait, so that a burst of
/// uploads does not open more connections than a server likes, and a stalled server delays no other
/// host.
constexpr std::size_t kMaxActivePerHost = 32;
constexpr std::size_t kMaxIdleHandles = 32;
/// libcurl's default, four connections per running transfer, closes connections whenever a burst
/// ends.
constexpr long kMaxIdleConnections = 32;
/// A body of this size or more first asks with "Expect: 100-continue". That costs one round trip,
/// but a refused body is not sent in vain.
constexpr std::int64_t kExpectFrom = std::int64_t{1} << 20;
constexpr long kExpectTimeoutMs = 500;
/// A body up to this size leaves in one write with its head, which saves a packet and wakes the
/// server once less.
constexpr std::int64_t kTinyBody = 16 << 10;
constexpr std::int64_t kSmallBody = 64 << 10;
constexpr long kSmallUploadBuffer = 64 << 10;
constexpr long kLargeUploadBuffer = 512 << 10;
/// The number of bytes that the kernel takes beyond those on the wire. With its own limit of
/// megabytes, a slow connection would look silent for minutes, and progress would run ahead of the
/// transfer. A smaller number makes large uploads slower.
constexpr int kUnsentInKernel = 512 << 10;
constexpr long kSmallReceiveBuffer = 16 << 10;
constexpr long kLargeReceiveBuffer = 256 << 10;

SteadyClock::duration seconds(double value) {
  return std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(value));
}

Error transportError(CURLcode code, std::string description) {
  return {"Transport", kTransportErrorBase + static_cast<std::int64_t>(code),
          std::move(description)};
}

HttpFailure failureOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_PARTIAL_FILE:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return HttpFailure::connection;
    case CURLE_OPERATION_TIMEDOUT:
      return HttpFailure::timeout;
    default:
      return HttpFailure::other;
  }
}

template <typename T>
void set(CURL* easy, CURLoption option, T value) {
  // libcurl does not know an option when the program was built with another version of it.
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) fatal("libcurl refuses an option");
}

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using Connections = std::vector<curl_socket_t>;

/// Wakes the engine's thread for the handles of exchanges, which may outlive the engine.
class Waker {
 public:
  explicit Waker(CURLM* multi) : multi_(multi) {}
  void cancel() {
    MutexLock lock(mutex_);
    cancelled_ = true;
    if (multi_ != nullptr) curl_multi_wakeup(multi_);
  }
  /// True when an exchange has been cancelled since the last call.
  bool takeCancelled() {
    MutexLock lock(mutex_);
    return std::exchange(cancelled_, false);
  }
  void letGo() {
    MutexLock lock(mutex_);
    multi_ = nullptr;
  }

 private:
  Mutex mutex_;
  CURLM* multi_ QX_GUARDED_BY(mutex_);
  bool cancelled_ QX_GUARDED_BY(mutex_) = false;
};

class Exchange : public Cancellable {
 public:
  explicit Exchange(std::shared_ptr<Waker> waker) : waker_(std::move(waker)) {}
  void cancel() override {
    if (!cancelled_.exchange(true)) waker_->cancel();
  }
  bool isCancelled() const { return cancelled_; }

 private:
  const std::shared_ptr<Waker> waker_;
  std::atomic<bool> cancelled_ = false;
};

/// A request from send() to its answer. Once the engine's thread has taken it, only that thread
/// uses it.
struct Transfer {
  HttpRequest request;
  HttpEngine::AnswerHandler answered;
  std::shared_ptr<Exchange> exchange;
  HttpAnswer answer;
  Time notBefore;

  // The following members are used while the request runs.
  CURL* easy = nullptr;
  std::unique_ptr<curl_slist, FreeList> headers;
  std::array<char, CURL_ERROR_SIZE> message{};
  Time started;
  /// The time when a byte that the idle timeout counts moved last, and the number of bytes that had
  /// moved by then.
  Time lastMoved;
  curl_off_t moved = 0;
  /// The same for the bytes of bodies.
  Time lastBodyMoved;
  curl_off_t bodyMoved = 0;
  /// The number of bytes of the request's body that the kernel has taken.
  curl_off_t sent = 0;
  /// The connection, and the number of bytes that the kernel holds for it and the other side has
  /// not confirmed.
  const Connections* connections = nullptr;
  curl_socket_t connection = CURL_SOCKET_BAD;
  int unconfirmed = 0;
  std::int64_t bodySize = 0;
  std::size_t piece = 0;
  std::size_t offset = 0;
  std::int64_t received = 0;
  /// The HTTP version of the answer, such as "HTTP/1.1".
  std::string version;
  /// The reason for which one of our callbacks has ended the transfer.
  std::optional<Error> stopped;
  /// True when the body of an error answer is longer than its limit. Its status and the beginning
  /// of its body are enough.
  bool heardEnough = false;
  /// True when the blank line after the last head has come.
  bool headEnded = false;

  std::size_t read(char* out, std::size_t room) {
    std::size_t written = 0;
    while (written < room && piece < request.body.size()) {
      const Data& data = request.body[piece];
      const std::size_t count = std::min(room - written, data.size() - offset);
      if (count > 0) std::memcpy(out + written, data.bytes() + offset, count);
      written += count;
      offset += count;
      if (offset == data.size()) {
        ++piece;
        offset = 0;
      }
    }
    return written;
  }

  bool seek(std::int64_t position) {
    if (position < 0 || position > bodySize) return false;
    piece = 0;
    offset = static_cast<std::size_t>(position);
    while (piece < request.body.size() && offset >= request.body[piece].size()) {
      offset -= request.body[piece].size();
      ++piece;
    }
    return true;
  }

  void header(std::string_view line) {
    if (line.starts_with("HTTP/")) {
      // A new head has begun. The one before belonged to an interim answer.
      answer.headers.clear();
      const std::size_t blank = line.find(' ');
      int status = 0;
      if (blank != std::string_view::npos) {
        std::from_chars(line.data() + blank + 1, line.data() + line.size(), status);
      }
      answer.status = status;
      version = trimmed(line.substr(0, blank));
      if (status / 100 != 1) answer.begun = true;
      return;
    }
    if (line == "\r\n" || line == "\n") headEnded = answer.begun;
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    answer.headers.emplace_back(lowered(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
  }

  bool body(std::string_view bytes) {
    received += static_cast<std::int64_t>(bytes.size());
    if (request.headIsAnswer) return received <= static_cast<std::int64_t>(request.bodyLimit);
    if (request.sink && answer.status == 200) {
      if (!request.sink(bytes)) {
        stopped = transportError(CURLE_WRITE_ERROR, "the answer cannot be stored");
        return false;
      }
      if (request.progress) request.progress(received, expected());
      return true;
    }
    if (answer.body.size() + bytes.size() > request.bodyLimit) {
      heardEnough = request.sink || answer.status / 100 != 2;
      if (heardEnough) {
        answer.body.append(bytes.substr(0, request.bodyLimit - answer.body.size()));
        return false;
      }
      stopped = transportError(CURLE_FILESIZE_EXCEEDED, "the answer is too large");
      return false;
    }
    answer.body.append(bytes);
    return true;
  }

  /// True when the request waits for the head alone, and the head has come.
  bool isAnsweredByHead() const {
    return request.headIsAnswer && headEnded && (sent >= bodySize || answer.status / 100 != 2);
  }

  std::int64_t expected() const {
    const auto text = answer.header("content-length");
    return text ? contentLength(*text).value_or(0) : 0;
  }
};

std::size_t onRead(char* out, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<Transfer*>(transfer)->read(out, size * count);
}

int onSeek(void* transfer, curl_off_t position, int origin) {
  const bool done = origin == SEEK_SET && static_cast<Transfer*>(transfer)->seek(position);
  return done ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  static_cast<Transfer*>(transfer)->header({bytes, size * count});
  return size * count;
}

std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  // A smaller count ends the transfer with CURLE_WRITE_ERROR.
  return static_cast<Transfer*>(transfer)->body({bytes, size * count}) ? size * count : 0;
}

int onSocket(void* connections, curl_socket_t connection, curlsocktype /*purpose*/) {
  // A failure has no consequence but that bytes count as moved before they have left.
  ::setsockopt(connection, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kUnsentInKernel,
               sizeof kUnsentInKernel);
  static_cast<Connections*>(connections)->push_back(connection);
  return CURL_SOCKOPT_OK;
}

int onClose(void* connections, curl_socket_t connection) {
  std::erase(*static_cast<Connections*>(connections), connection);
  return ::close(connection);
}

/// The local port of a connection, or 0.
int localPort(curl_socket_t connection) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (::getsockname(connection, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  if (address.ss_family == AF_INET) {
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
  }
  if (address.ss_family != AF_INET6) return 0;
  return ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
}

/// Called when a request is about to be sent. Only here does libcurl tell which connection the
/// request uses.
int onRequest(void* transfer, char* /*peer*/, char* /*here*/, int /*peerPort*/, int port) {
  auto& one = *static_cast<Transfer*>(transfer);
  const auto found = std::find_if(one.connections->begin(), one.connections->end(),
                                  [port](curl_socket_t each) { return localPort(each) == port; });
  one.connection = found == one.connections->end() ? CURL_SOCKET_BAD : *found;
  return CURL_PREREQFUNC_OK;
}

int onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
  const auto& request = static_cast<Transfer*>(transfer)->request;
  if (request.progress && !request.sink) {
    request.progress(sent, static_cast<Transfer*>(transfer)->bodySize);
  }
  return 0;
}

}  // namespace

// The life of a request:
//
//     send -> incoming_ -> [delayed_] -> [host.waiting] -> under way in multi_ -> answered
class HttpEngine::Loop {
 public:
  explicit Loop(HttpEngineSettings settings)
      : settings_(std::move(settings)), userAgent_(libraryUserAgent()) {
    // Only the first call has an effect, and libcurl guards it against others at the same time.
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) fatal("libcurl cannot start");
    multi_ = curl_multi_init();
    if (multi_ == nullptr) fatal("libcurl has no memory");
    waker_ = std::make_shared<Waker>(multi_);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, kMaxIdleConnections);
    thread_ = std::thread([this] { run(); });
  }

  ~Loop() {
    waker_->letGo();
    for (CURL* easy : idle_) curl_easy_cleanup(easy);
    curl_multi_cleanup(multi_);
  }

  /// Ends all requests. Handlers that run meanwhile may still send.
  void stop() {
    {
      MutexLock lock(mutex_);
      if (stopping_) return;
      stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    thread_.join();
  }

  std::shared_ptr<Cancellable> send(HttpRequest request, AnswerHandler answered) {
    auto exchange = std::make_shared<Exchange>(waker_);
    auto transfer = std::make_unique<Transfer>();
    transfer->stopped = checkSendable(request.url, request.headers);
    transfer->notBefore = SteadyClock::now() + seconds(std::max(request.delaySeconds, 0.0));
    transfer->request = std::move(request);
    transfer->answered = std::move(answered);
    transfer->exchange = exchange;
    bool first = false;
    {
      MutexLock lock(mutex_);
      if (!stopped_) {
        first = incoming_.empty();
        incoming_.emplace_back().swap(transfer);
      }
    }
    if (transfer != nullptr) {
      refuse(*transfer);
    } else if (first) {
      // Only the first request of a batch wakes the engine's thread.
      curl_multi_wakeup(multi_);
    }
    return exchange;
  }

 private:
  struct Host {
    std::size_t active = 0;
    std::deque<std::unique_ptr<Transfer>> waiting;
  };

  void run() {
    pthread_setname_np(pthread_self(), "qx.http");
    // The host's signal handlers must not run on this thread, and a broken connection under TLS
    // would raise SIGPIPE.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    while (takeIncoming()) {
      startDelayed();
      int running = 0;
      curl_multi_perform(multi_, &running);
      finishDone();
      answerHeads();
      endCancelled();
      endOverdue();
      curl_multi_poll(multi_, nullptr, 0, pollTimeoutMs(), nullptr);
    }
    endAll();
  }

  /// False when the engine shall stop.
  bool takeIncoming() {
    std::vector<std::unique_ptr<Transfer>> taken;
    {
      MutexLock lock(mutex_);
      taken.swap(incoming_);
      if (stopping_) {
        incoming_.swap(taken);
        return false;
      }
    }
    for (auto& transfer : taken) {
      const bool ended = transfer->stopped || transfer->exchange->isCancelled();
      if (transfer->request.delaySeconds > 0 && !ended) {
        const Time due = transfer->notBefore;
        delayed_.emplace(due, std::move(transfer));
      } else {
        admit(std::move(transfer));
      }
    }
    return true;
  }

  void startDelayed() {
    while (!delayed_.empty() && delayed_.begin()->first <= SteadyClock::now()) {
      auto transfer = std::move(delayed_.begin()->second);
      delayed_.erase(delayed_.begin());
      admit(std::move(transfer));
    }
  }

  void admit(std::unique_ptr<Transfer> transfer) {
    // endCancelled() may have missed a cancellation that came before this.
    if (transfer->exchange->isCancelled()) markCancelled(*transfer);
    if (transfer->stopped) {
      answer(*transfer, CURLE_ABORTED_BY_CALLBACK);
      return;
    }
    Host& host = hosts_[std::string(originOf(transfer->request.url))];
    if (host.active >= kMaxActivePerHost) {
      host.waiting.push_back(std::move(transfer));
    } else {
      start(std::move(transfer), host);
    }
  }

  CURL* takeHandle() {
    if (!idle_.empty()) {
      CURL* easy = idle_.back();
      idle_.pop_back();
      return easy;
    }
    CURL* easy = curl_easy_init();
    if (easy == nullptr) fatal("libcurl has no memory");
    set(easy, CURLOPT_NOSIGNAL, 1L);
    // A transfer that ends during the look-up of its host name must not wait for the look-up.
    set(easy, CURLOPT_QUICK_EXIT, 1L);
    set(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    set(easy, CURLOPT_FOLLOWLOCATION, 0L);
    set(easy, CURLOPT_PATH_AS_IS, 1L);
    set(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(easy, CURLOPT_TCP_NODELAY, 1L);
    set(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    set(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    set(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (settings_.caFile) {
      set(easy, CURLOPT_CAINFO, settings_.caFile->c_str());
      set(easy, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
      set(easy, CURLOPT_PROXY_CAINFO, settings_.caFile->c_str());
      set(easy, CURLOPT_PROXY_CAPATH, static_cast<const char*>(nullptr));
    }
    // An empty text makes libcurl ignore the proxy settings of the environment.
    set(easy, CURLOPT_PROXY, settings_.proxy ? settings_.proxy->c_str() : "");
    set(easy, CURLOPT_NOPROXY, settings_.noProxy ? settings_.noProxy->c_str() : "");
    set(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(easy, CURLOPT_USERAGENT, userAgent_.c_str());
    set(easy, CURLOPT_EXPECT_100_TIMEOUT_MS, kExpectTimeoutMs);
    set(easy, CURLOPT_SOCKOPTFUNCTION, onSocket);
    set(easy, CURLOPT_SOCKOPTDATA, &connections_);
    set(easy, CURLOPT_CLOSESOCKETFUNCTION, onClose);
    set(easy, CURLOPT_CLOSESOCKETDATA, &connections_);
    set(easy, CURLOPT_PREREQFUNCTION, onRequest);
    set(easy, CURLOPT_READFUNCTION, onRead);
    set(easy, CURLOPT_SEEKFUNCTION, onSeek);
    set(easy, CURLOPT_HEADERFUNCTION, onHeader);
    set(easy, CURLOPT_WRITEFUNCTION, onBody);
    set(easy, CURLOPT_XFERINFOFUNCTION, onProgress);
    return easy;
  }

  /// Sets all options that differ between requests, whatever the handle was used for before.
  void prepare(Transfer& transfer) {
    const HttpRequest& request = transfer.request;
    CURL* easy = transfer.easy;
    for (const Data& piece : request.body) {
      transfer.bodySize += static_cast<std::int64_t>(piece.size());
    }
    set(easy, CURLOPT_URL, request.url.c_str());
    const bool plain =
        transfer.bodySize == 0 && (request.method == "GET" || request.method == "HEAD");
    const bool tiny =
        request.body.size() == 1 && transfer.bodySize > 0 && transfer.bodySize <= kTinyBody;
    // The body is cleared first, because that also sets the method. With the fields of an earlier
    // request in place, libcurl would not ask for the body again when it has to send it once more.
    set(easy, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    if (plain) {
      set(easy, CURLOPT_UPLOAD, 0L);
      set(easy, CURLOPT_NOBODY, request.method == "HEAD" ? 1L : 0L);
      set(easy, CURLOPT_HTTPGET, request.method == "GET" ? 1L : 0L);
      set(easy, CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
    } else if (tiny) {
      set(easy, CURLOPT_UPLOAD, 0L);
      set(easy, CURLOPT_NOBODY, 0L);
      set(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(transfer.bodySize));
      set(easy, CURLOPT_POSTFIELDS, reinterpret_cast<const char*>(request.body.front().bytes()));
      set(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    } else {
      set(easy, CURLOPT_NOBODY, 0L);
      set(easy, CURLOPT_UPLOAD, 1L);
      set(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
      set(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(transfer.bodySize));
      set(easy, CURLOPT_UPLOAD_BUFFERSIZE,
          transfer.bodySize <= kSmallBody ? kSmallUploadBuffer : kLargeUploadBuffer);
    }
    set(easy, CURLOPT_BUFFERSIZE, request.sink ? kLargeReceiveBuffer : kSmallReceiveBuffer);
    set(easy, CURLOPT_NOPROGRESS, request.progress && !request.sink ? 0L : 1L);

    curl_slist* list = nullptr;
    std::string line;
    const auto append = [&list](const char* text) {
      curl_slist* longer = curl_slist_append(list, text);
      if (longer == nullptr) fatal("libcurl has no memory");
      list = longer;
    };
    for (const auto& [name, value] : request.headers) {
      line = name;
      // libcurl wants a semicolon after the name of a field without a value. With a colon it would
      // leave the field out.
      line += trimmed(value).empty() ? ";" : ": " + value;
      append(line.c_str());
    }
    if (transfer.bodySize < kExpectFrom) append("Expect:");
    // Without a Content-Type of the request's own, libcurl would add that of a web form.
    const bool typed = headerOf(request.headers, "content-type").has_value();
    if (tiny && !typed) append("Content-Type:");
    transfer.headers.reset(list);
    set(easy, CURLOPT_HTTPHEADER, list);
    set(easy, CURLOPT_ERRORBUFFER, transfer.message.data());
    set(easy, CURLOPT_READDATA, &transfer);
    set(easy, CURLOPT_SEEKDATA, &transfer);
    set(easy, CURLOPT_HEADERDATA, &transfer);
    set(easy, CURLOPT_WRITEDATA, &transfer);
    set(easy, CURLOPT_XFERINFODATA, &transfer);
    set(easy, CURLOPT_PRIVATE, &transfer);
    transfer.connections = &connections_;
    set(easy, CURLOPT_PREREQDATA, &transfer);
  }

  void start(std::unique_ptr<Transfer> transfer, Host& host) {
    ++host.active;
    transfer->easy = takeHandle();
    prepare(*transfer);
    transfer->started = SteadyClock::now();
    transfer->lastMoved = transfer->lastBodyMoved = transfer->started;
    if (transfer->request.headIsAnswer) ++awaitingHeads_;
    curl_multi_add_handle(multi_, transfer->easy);
    nextSweep_ = std::min(nextSweep_, transfer->started + sweepInterval(*transfer));
    active_.push_back(std::move(transfer));
  }

  void finishDone() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      Transfer* transfer = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
      end(transfer, message->data.result);
    }
  }

  /// Answers the requests that wait for the head alone. They keep running until the answer's body
  /// has ended.
  void answerHeads() {
    if (awaitingHeads_ == 0) return;
    const Time now = SteadyClock::now();
    std::vector<Transfer*> refused;
    for (const auto& transfer : active_) {
      if (!transfer->answered || !transfer->headEnded) continue;
      observe(*transfer, now);
      if (!transfer->isAnsweredByHead()) continue;
      --awaitingHeads_;
      takeTimes(*transfer, now);
      HttpRequest& request = transfer->request;
      request.totalTimeoutSeconds = transfer->answer.elapsedSeconds + request.idleTimeoutSeconds;
      request.totalTimeoutIsForStandstill = false;
      request.progress = nullptr;
      if (transfer->sent < transfer->bodySize) refused.push_back(transfer.get());
      answer(*transfer, CURLE_OK);
    }
    // The rest of the bodies of these requests is not needed.
    for (Transfer* transfer : refused) end(transfer, CURLE_OK);
  }

  /// Removes a transfer from libcurl, starts the next one of its host, and reports.
  void end(Transfer* ended, CURLcode code) {
    const auto place = std::find_if(active_.begin(), active_.end(),
                                    [ended](const auto& one) { return one.get() == ended; });
    std::unique_ptr<Transfer> transfer = std::move(*place);
    *place = std::move(active_.back());
    active_.pop_back();
    detach(*transfer);

    const auto entry = hosts_.find(std::string(originOf(transfer->request.url)));
    Host& host = entry->second;
    --host.active;
    if (!host.waiting.empty()) {
      auto next = std::move(host.waiting.front());
      host.waiting.pop_front();
      start(std::move(next), host);
    } else if (host.active == 0) {
      hosts_.erase(entry);
    }
    answer(*transfer, code);
  }

  static void takeTimes(Transfer& transfer, Time now) {
    using Seconds = std::chrono::duration<double>;
    transfer.answer.elapsedSeconds = Seconds(now - transfer.started).count();
    transfer.answer.standstillSeconds = Seconds(now - transfer.lastBodyMoved).count();
  }

  void detach(Transfer& transfer) {
    const Time now = SteadyClock::now();
    observe(transfer, now);
    if (transfer.answered) {
      takeTimes(transfer, now);
      if (transfer.request.headIsAnswer) --awaitingHeads_;
    }
    // Removing a transfer that has not ended closes its connection.
    curl_multi_remove_handle(multi_, transfer.easy);
    if (idle_.size() < kMaxIdleHandles) {
      set(transfer.easy, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
      set(transfer.easy, CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
      idle_.push_back(transfer.easy);
    } else {
      curl_easy_cleanup(transfer.easy);
    }
    transfer.easy = nullptr;
  }

  void answer(Transfer& transfer, CURLcode code) const {
    if (!transfer.answered) return;
    HttpAnswer& answer = transfer.answer;
    answer.framed = isFramed(answer.headers, transfer.version, transfer.received);
    if (transfer.stopped) {
      answer.error = std::move(transfer.stopped);
      answer.failure = HttpFailure::other;
    } else if (code != CURLE_OK && !transfer.heardEnough && !transfer.isAnsweredByHead()) {
      std::string text =
          transfer.message.front() == '\0' ? curl_easy_strerror(code) : transfer.message.data();
      // libcurl repeats the address of a proxy that it cannot read.
      const std::string_view secret =
          settings_.proxy ? userInfoOf(*settings_.proxy, false) : std::string_view();
      std::size_t at = secret.empty() ? std::string::npos : text.find(secret);
      for (; at != std::string::npos; at = text.find(secret, at)) {
        text.replace(at, secret.size(), "...");
        at += 3;
      }
      answer.error = transportError(code, std::move(text));
      answer.failure = failureOf(code);
    }
    const AnswerHandler answered = std::exchange(transfer.answered, nullptr);
    answered(std::move(answer));
  }

  static void markCancelled(Transfer& transfer) {
    transfer.stopped = transportError(CURLE_ABORTED_BY_CALLBACK, "the request was cancelled");
  }

  /// Ends all requests that have been cancelled, except those that have yet to be taken, which
  /// admit() checks.
  void endCancelled() {
    if (!waker_->takeCancelled()) return;
    const auto isCancelled = [](const auto& one) { return one->exchange->isCancelled(); };
    std::vector<std::unique_ptr<Transfer>> ending;
    for (auto at = delayed_.begin(); at != delayed_.end();) {
      const bool found = isCancelled(at->second);
      if (found) ending.push_back(std::move(at->second));
      at = found ? delayed_.erase(at) : std::next(at);
    }
    for (auto& [name, host] : hosts_) {
      for (auto& waiting : host.waiting) {
        if (isCancelled(waiting)) ending.push_back(std::move(waiting));
      }
      std::erase(host.waiting, nullptr);
    }
    for (const auto& transfer : ending) {
      markCancelled(*transfer);
      answer(*transfer, CURLE_ABORTED_BY_CALLBACK);
    }
    std::vector<Transfer*> active;
    for (const auto& transfer : active_) {
      if (isCancelled(transfer)) active.push_back(transfer.get());
    }
    for (Transfer* transfer : active) {
      markCancelled(*transfer);
      end(transfer, CURLE_ABORTED_BY_CALLBACK);
    }
  }

  /// The interval at which a transfer is checked for movement. An idle transfer ends at most this
  /// much late.
  static SteadyClock::duration sweepInterval(const Transfer& transfer) {
    const HttpRequest& request = transfer.request;
    double interval = 1;
    if (request.idleTimeoutSeconds > 0)
      interval = std::min(interval, request.idleTimeoutSeconds / 8);
    if (request.totalTimeoutSeconds > 0) {
      interval = std::min(interval, request.totalTimeoutSeconds / 8);
    }
    return seconds(std::max(interval, 0.005));
  }

  void endOverdue() {
    const Time now = SteadyClock::now();
    if (now < nextSweep_) return;
    nextSweep_ = Time::max();
    std::vector<std::pair<Transfer*, const char*>> overdue;
    for (const auto& transfer : active_) {
      observe(*transfer, now);
      const HttpRequest& request = transfer->request;
      if (request.totalTimeoutSeconds > 0 &&
          now - totalTimeoutBegin(*transfer) >= seconds(request.totalTimeoutSeconds)) {
        overdue.emplace_back(transfer.get(), request.totalTimeoutIsForStandstill
                                                 ? "the request timed out: nothing moved"
                                                 : "the request took too long");
      } else if (request.idleTimeoutSeconds > 0 &&
                 now - transfer->lastMoved >= seconds(request.idleTimeoutSeconds)) {
        overdue.emplace_back(transfer.get(), "the request timed out: nothing moved");
      } else {
        nextSweep_ = std::min(nextSweep_, now + sweepInterval(*transfer));
      }
    }
    for (const auto& [transfer, why] : overdue) {
      std::snprintf(transfer->message.data(), transfer->message.size(), "%s", why);
      end(transfer, CURLE_OPERATION_TIMEDOUT);
    }
  }

  static Time totalTimeoutBegin(const Transfer& transfer) {
    return transfer.request.totalTimeoutIsForStandstill ? transfer.lastBodyMoved : transfer.started;
  }

  /// Notes which bytes have moved since the last call. The head of an answer does not count: it is
  /// short, and a server that sends a byte of it now and then would hold the request for ever.
  void observe(Transfer& transfer, Time now) const {
    curl_off_t received = 0;
    long request = 0;
    curl_easy_getinfo(transfer.easy, CURLINFO_SIZE_UPLOAD_T, &transfer.sent);
    curl_easy_getinfo(transfer.easy, CURLINFO_SIZE_DOWNLOAD_T, &received);
    curl_easy_getinfo(transfer.easy, CURLINFO_REQUEST_SIZE, &request);
    const int before = std::exchange(transfer.unconfirmed, unconfirmedBytes(transfer));
    const curl_off_t body = transfer.sent + (transfer.request.sink ? received : 0);
    const curl_off_t all = transfer.sent + received + request;
    if (std::exchange(transfer.bodyMoved, body) != body || transfer.unconfirmed < before) {
      transfer.lastBodyMoved = now;
    }
    if (std::exchange(transfer.moved, all) != all || transfer.unconfirmed < before) {
      transfer.lastMoved = now;
    }
  }

  /// The bytes of the request that the kernel still holds. On a slow line these take seconds after
  /// the last byte has been handed to the kernel. 0 when the number is unknown.
  int unconfirmedBytes(const Transfer& transfer) const {
    const curl_socket_t connection = transfer.connection;
    if (connection == CURL_SOCKET_BAD || transfer.sent == 0) return 0;
    const auto uses = [connection](const auto& one) {
      return one && one->connection == connection;
    };
    // On a connection that several requests share, the bytes cannot be attributed to one of them.
    if (std::count_if(active_.begin(), active_.end(), uses) > 1) return 0;
    if (std::find(connections_.begin(), connections_.end(), connection) == connections_.end()) {
      return 0;
    }
    int bytes = 0;
    return ::ioctl(connection, TIOCOUTQ, &bytes) == 0 ? bytes : 0;
  }

  int pollTimeoutMs() {
    Time wake = nextSweep_;
    if (!delayed_.empty()) wake = std::min(wake, delayed_.begin()->first);
    constexpr int kLongest = 60000;
    if (wake == Time::max()) return kLongest;
    const auto wait =
        std::chrono::ceil<std::chrono::milliseconds>(wake - SteadyClock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(wait, 0, kLongest));
  }

  /// Ends every request with an error, also those that answer handlers send meanwhile.
  void endAll() {
    for (auto& [due, transfer] : delayed_) ended_.push_back(std::move(transfer));
    for (auto& [name, host] : hosts_) {
      for (auto& transfer : host.waiting) ended_.push_back(std::move(transfer));
    }
    for (auto& transfer : active_) {
      detach(*transfer);
      ended_.push_back(std::move(transfer));
    }
    delayed_.clear();
    hosts_.clear();
    active_.clear();
    while (true) {
      {
        MutexLock lock(mutex_);
        for (auto& transfer : incoming_) ended_.push_back(std::move(transfer));
        incoming_.clear();
        stopped_ = ended_.empty();
      }
      if (ended_.empty()) return;
      std::vector<std::unique_ptr<Transfer>> ending;
      ending.swap(ended_);
      for (auto& transfer : ending) refuse(*transfer);
    }
  }

  void refuse(Transfer& transfer) const {
    if (!transfer.stopped) {
      transfer.stopped =
          transportError(CURLE_ABORTED_BY_CALLBACK, "the HTTP engine has been shut down");
    }
    answer(transfer, CURLE_ABORTED_BY_CALLBACK);
  }

  // Constant after construction.
  const HttpEngineSettings settings_;
  const std::string userAgent_;
  CURLM* multi_ = nullptr;
  std::shared_ptr<Waker> waker_;
  std::thread thread_;

  Mutex mutex_;
  std::vector<std::unique_ptr<Transfer>> incoming_ QX_GUARDED_BY(mutex_);
  bool stopping_ QX_GUARDED_BY(mutex_) = false;
  /// True when the thread takes no more requests.
  bool stopped_ QX_GUARDED_BY(mutex_) = false;

  // Only the engine's thread uses the following members.
  std::multimap<Time, std::unique_ptr<Transfer>> delayed_;
  std::map<std::string, Host, std::less<>> hosts_;
  std::vector<std::unique_ptr<Transfer>> active_;
  std::vector<std::unique_ptr<Transfer>> ended_;
  std::vector<CURL*> idle_;
  Connections connections_;
  /// The number of running requests that wait for the head alone and have not been answered.
  std::size_t awaitingHeads_ = 0;
  Time nextSweep_ = Time::max();
};

HttpEngine::HttpEngine(HttpEngineSettings settings)
    : loop_(std::make_unique<Loop>(std::move(settings))) {}

HttpEngine::~HttpEngine() {
  stop();
}

void HttpEngine::stop() {
  loop_->stop();
}

std::shared_ptr<Cancellable> HttpEngine::send(HttpRequest request, AnswerHandler answered) {
  return loop_->send(std::move(request), std::move(answered));
}

}  // namespace qx
