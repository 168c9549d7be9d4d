// An HTTP server on loopback that misbehaves by a script: each request gets the next turn of the
// script.
//
// Threads: the script is set before the first request. Any thread may read the record. One thread
// accepts connections, and one per connection serves it.
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

/// The way in which the server treats one request.
struct Turn {
  /// The answer, which is sent unchanged when the request has been read.
  std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
  /// `discard` reads the whole request and keeps nothing of its body.
  enum class Read { whole, head, discard } read = Read::whole;
  /// Milliseconds before each 64 KiB of the body that are read.
  int readIntervalMs = 0;
  /// True: sends "100 Continue" to a request that expects it.
  bool allowContinue = true;
  /// A text that is sent after the answer, this many times.
  std::string piece;
  std::size_t pieces = 0;
  /// Milliseconds between pieces.
  int pieceIntervalMs = 0;
  enum class Then { keepAlive, close, reset, stall } then = Then::keepAlive;
};

/// Makes a whole answer with its Content-Length. `headers` are lines that end in CR LF.
Turn answerWith(int status, const std::string& body = "", const std::string& headers = "");

struct SeenRequest {
  std::string method;
  std::string target;
  /// The headers, their names in lower case. Of several values of a name the last one counts.
  std::map<std::string, std::string> headers;
  /// The head of the request, unchanged.
  std::string head;
  std::string body;
  /// The number of the connection of the request, from 0 on.
  std::size_t connection = 0;
};

class ScriptedServer {
 public:
  /// The last turn of the script repeats.
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
  /// Blocks until this many connections have ended, on either side.
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
