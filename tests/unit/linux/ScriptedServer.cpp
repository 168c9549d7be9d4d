#include "unit/linux/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "platform/Error.h"

namespace qx {
namespace {

bool sendAll(int socket, const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

/// Appends the next bytes. False at the end of the connection.
bool receiveMore(int socket, std::string& buffer) {
  char bytes[65536];
  const ssize_t count = ::recv(socket, bytes, sizeof bytes, 0);
  if (count <= 0) return false;
  buffer.append(bytes, static_cast<std::size_t>(count));
  return true;
}

SeenRequest parsed(const std::string& head) {
  SeenRequest request;
  request.head = head;
  std::size_t at = head.find("\r\n");
  const std::string line = head.substr(0, at);
  const std::size_t first = line.find(' ');
  request.method = line.substr(0, first);
  request.target = line.substr(first + 1, line.rfind(' ') - first - 1);
  while (at + 2 < head.size()) {
    const std::size_t start = at + 2;
    at = head.find("\r\n", start);
    const std::size_t colon = head.find(':', start);
    if (colon >= at) break;
    std::string name = head.substr(start, colon - start);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::size_t value = colon + 1;
    while (value < at && head[value] == ' ') ++value;
    request.headers[name] = head.substr(value, at - value);
  }
  return request;
}

}  // namespace

Turn answerWith(int status, const std::string& body, const std::string& headers) {
  Turn turn;
  turn.answer = "HTTP/1.1 " + std::to_string(status) +
                " Said\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers +
                "\r\n" + body;
  return turn;
}

ScriptedServer::ScriptedServer(std::vector<Turn> turns) : turns_(turns.begin(), turns.end()) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_, generic, size) != 0 || ::listen(listener_, 128) != 0 ||
      ::getsockname(listener_, generic, &size) != 0) {
    fatal("the scripted server has no port");
  }
  port_ = ntohs(address.sin_port);
  accepting_ = std::thread([this] { accept(); });
}

ScriptedServer::~ScriptedServer() {
  {
    MutexLock lock(mutex_);
    stopping_ = true;
  }
  ::shutdown(listener_, SHUT_RDWR);
  accepting_.join();
  ::close(listener_);
  std::list<Connection> connections;
  {
    MutexLock lock(mutex_);
    connections.swap(connections_);
  }
  for (const Connection& connection : connections) ::shutdown(connection.socket, SHUT_RDWR);
  for (Connection& connection : connections) {
    connection.thread.join();
    ::close(connection.socket);
  }
}

std::string ScriptedServer::url() const {
  return "http://127.0.0.1:" + std::to_string(port_);
}

std::vector<SeenRequest> ScriptedServer::requests() const {
  MutexLock lock(mutex_);
  return requests_;
}

std::size_t ScriptedServer::connections() const {
  MutexLock lock(mutex_);
  return connections_.size();
}

void ScriptedServer::waitForRequests(std::size_t count) {
  MutexLock lock(mutex_);
  while (requests_.size() < count) changed_.wait(mutex_);
}

void ScriptedServer::waitForEnds(std::size_t count) {
  MutexLock lock(mutex_);
  while (ended_ < count) changed_.wait(mutex_);
}

void ScriptedServer::accept() {
  while (true) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    const int one = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    MutexLock lock(mutex_);
    if (stopping_) {
      ::close(socket);
      return;
    }
    const std::size_t index = connections_.size();
    connections_.push_back({socket, std::thread([this, socket, index] {
                              serve(socket, index);
                              MutexLock ending(mutex_);
                              ++ended_;
                              changed_.notifyAll();
                            })});
  }
}

Turn ScriptedServer::nextTurn() {
  MutexLock lock(mutex_);
  Turn turn = turns_.front();
  if (turns_.size() > 1) turns_.pop_front();
  return turn;
}

void ScriptedServer::serve(int socket, std::size_t index) {
  std::string buffer;
  while (true) {
    std::size_t headEnd = 0;
    while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
      if (!receiveMore(socket, buffer)) {
        ::shutdown(socket, SHUT_RDWR);
        return;
      }
    }
    const Turn turn = nextTurn();
    SeenRequest request = parsed(buffer.substr(0, headEnd + 4));
    request.connection = index;
    buffer.erase(0, headEnd + 4);
    if (turn.read != Turn::Read::head) {
      const auto length = request.headers.find("content-length");
      const std::size_t size = length == request.headers.end() ? 0 : std::stoull(length->second);
      if (request.headers.count("expect") != 0 && turn.allowContinue) {
        sendAll(socket, "HTTP/1.1 100 Continue\r\n\r\n");
      }
      std::size_t left = size;
      bool open = true;
      while (open && left > 0) {
        if (buffer.empty()) {
          // Waits for the interval, or until the server ends.
          pollfd gone{listener_, 0, 0};
          if (turn.readIntervalMs > 0) ::poll(&gone, 1, turn.readIntervalMs);
          open = receiveMore(socket, buffer);
        }
        const std::size_t count = std::min(left, buffer.size());
        if (turn.read == Turn::Read::whole) request.body.append(buffer, 0, count);
        buffer.erase(0, count);
        left -= count;
      }
      if (!open) return;
    }
    {
      MutexLock lock(mutex_);
      requests_.push_back(std::move(request));
      changed_.notifyAll();
    }
    bool open = sendAll(socket, turn.answer);
    for (std::size_t i = 0; open && i < turn.pieces; ++i) {
      // Waits for the interval, or until the client closes the connection.
      pollfd gone{socket, POLLRDHUP, 0};
      if (turn.pieceIntervalMs > 0) open = ::poll(&gone, 1, turn.pieceIntervalMs) == 0;
      open = open && sendAll(socket, turn.piece);
    }
    switch (turn.then) {
      case Turn::Then::keepAlive:
        break;
      case Turn::Then::close:
        ::shutdown(socket, SHUT_RDWR);
        return;
      case Turn::Then::reset: {
        const linger abort{1, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        // A reset is sent when the last handle is closed. Connecting the socket to nowhere sends
        // it, too.
        sockaddr unspecified{};
        unspecified.sa_family = AF_UNSPEC;
        ::connect(socket, &unspecified, sizeof unspecified);
        return;
      }
      case Turn::Then::stall: {
        pollfd gone{socket, POLLRDHUP, 0};
        ::poll(&gone, 1, -1);
        ::shutdown(socket, SHUT_RDWR);
        return;
      }
    }
  }
}

}  // namespace qx
