// An HTTP server on loopback that misbehaves by script: each request takes the next turn.
//
// Threads: the script is set before the first request; the record may be read from any thread. One
// thread accepts, one per connection serves.
#pragma once

#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/Mutex.h"

namespace qx {

/// What the server does with one request.
struct Turn {
  /// Sent as it stands once the request was read.
  std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
  /// `discard` reads the whole request and keeps nothing of its body.
  enum class Read { whole, head, discard } read = Read::whole;
  /// Milliseconds before each 64 KiB of the body are read.
  int readIntervalMs = 0;
  /// Sends "100 Continue" to a request that expects it.
  bool allowContinue = true;
  /// Sent after the answer, this many times.
  std::string piece;
  std::size_t pieces = 0;
  /// Milliseconds between pieces.
  int pieceIntervalMs = 0;
  enum class Then { keepAlive, close, reset, stall } then = Then::keepAlive;
};

/// A whole answer with its Content-Length. `headers` are lines ending in CR LF.
Turn answerWith(int status, const std::string& body = "", const std::string& headers = "");

struct SeenRequest {
  std::string method;
  std::string target;
  /// Names in lower case; of several values the last.
  std::map<std::string, std::string> headers;
  /// The head as it came.
  std::string head;
  std::string body;
  /// Which connection it came on, from 0.
  std::size_t connection = 0;
};

class ScriptedServer {
 public:
  /// The last turn repeats.
  explicit ScriptedServer(std::vector<Turn> turns);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  int port() const { return port_; }
  /// "http://127.0.0.1:port".
  std::string url() const;
  std::vector<SeenRequest> requests() const;
  std::size_t connections() const;
  /// Blocks until this many requests have been read as far as their turn says.
  void waitForRequests(std::size_t count);
  /// Blocks until this many connections have ended, whichever side ended them.
  void waitForEnds(std::size_t count);

 private:
  struct Connection {
    int socket = -1;
    std::thread thread;
  };
  void accept();
  void serve(int socket, std::size_t index);
  Turn nextTurn();

  int listener_ = -1;
  int port_ = 0;
  std::thread accepting_;
  mutable Mutex mutex_;
  Condition changed_;
  std::deque<Turn> turns_ QX_GUARDED_BY(mutex_);
  std::vector<SeenRequest> requests_ QX_GUARDED_BY(mutex_);
  std::list<Connection> connections_ QX_GUARDED_BY(mutex_);
  std::size_t ended_ QX_GUARDED_BY(mutex_) = 0;
  bool stopping_ QX_GUARDED_BY(mutex_) = false;
};

}  // namespace qx
