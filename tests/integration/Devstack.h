// The running devstack that $QX_DEVSTACK names, and its control API.
//
// Threads: only for the test's own thread.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace qx {

class Devstack {
 public:
  struct User {
    std::string userId;
    std::string accessToken;
  };
  struct Object {
    std::string bytes;
    std::string contentType;
  };

  /// Reads $QX_DEVSTACK, and undoes what earlier tests have done to the devstack: no faults are on,
  /// all servers are up, and credentials hold long.
  Devstack();

  std::string url(const std::string& name) const { return info_.at(name).get<std::string>(); }
  User user(std::size_t index) const;

  /// Switches on a fault of devstack/faults. The given members replace those of the fault.
  void fault(const std::string& file, nlohmann::json members = nlohmann::json::object());
  void clearFaults();
  /// The number of times that a fault has applied.
  int hits(const std::string& fault);
  void down(const std::string& target);
  void up(const std::string& target);
  /// Sets how many seconds the credentials hold that are given out from now on.
  void credentialLifetime(int seconds);
  /// The events that the backend and the upload server have received since this object was made.
  nlohmann::json events();
  nlohmann::json stats();

  // Reads an object with the devstack's own S3 client, which goes past the proxies and uses the
  // owner's keys.
  Object object(const std::string& key);
  std::vector<std::string> keys(const std::string& prefix);
  /// All objects below a prefix, by the last part of their keys.
  std::map<std::string, std::string> objectsBelow(const std::string& prefix);
  /// The members "width", "height" and "format" of image bytes.
  nlohmann::json imageSize(const std::string& bytes);

 private:
  nlohmann::json control(const std::string& method, const std::string& path,
                         const nlohmann::json& body = nullptr);
  nlohmann::json objects(const std::vector<std::string>& arguments);

  nlohmann::json info_;
  std::string state_;
  int firstEvent_ = 0;
};

/// A directory that is removed with its content.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

}  // namespace qx
