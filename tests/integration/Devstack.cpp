#include "integration/Devstack.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace qx {
namespace {

using nlohmann::json;

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

/// Runs a program to its end and yields its standard output. Throws when the program does not end
/// with status 0.
std::string run(const std::vector<std::string>& command) {
  const TemporaryDirectory folder;
  const std::string output = folder.path() + "/output";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT,
                                   0600);
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  pid_t child = 0;
  const int spawned =
      posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot run " + command[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (status != 0) throw std::runtime_error(command[0] + " failed: " + readFile(output));
  return readFile(output);
}

}  // namespace

Devstack::Devstack() {
  const char* file = std::getenv("QX_DEVSTACK");
  if (file == nullptr) {
    throw std::runtime_error("QX_DEVSTACK names no devstack; run through tests/with-devstack");
  }
  info_ = json::parse(readFile(file));
  state_ = std::filesystem::path(file).parent_path();
  clearFaults();
  for (const char* target : {"backend", "uploadServer", "store"}) up(target);
  credentialLifetime(900);
  control("DELETE", "/stats");
  const json earlier = control("GET", "/events");
  firstEvent_ = earlier.empty() ? 0 : earlier.back().at("n").get<int>() + 1;
}

Devstack::User Devstack::user(std::size_t index) const {
  const json& user = info_.at("users").at(index);
  return {user.at("userId").get<std::string>(), user.at("accessToken").get<std::string>()};
}

void Devstack::fault(const std::string& file, json members) {
  members["file"] = file;
  control("POST", "/faults", members);
}

void Devstack::clearFaults() {
  control("DELETE", "/faults");
}

int Devstack::hits(const std::string& fault) {
  for (const json& entry : control("GET", "/faults")) {
    if (entry.at("name") == fault) return entry.at("hits").get<int>();
  }
  return 0;
}

void Devstack::down(const std::string& target) {
  control("POST", "/down", {{"target", target}});
}
void Devstack::up(const std::string& target) {
  control("POST", "/up", {{"target", target}});
}

void Devstack::credentialLifetime(int seconds) {
  control("POST", "/lifetime", {{"seconds", seconds}});
}

json Devstack::events() {
  json events = json::array();
  for (const json& event : control("GET", "/events")) {
    if (event.at("n").get<int>() >= firstEvent_) events.push_back(event);
  }
  return events;
}

json Devstack::stats() {
  return control("GET", "/stats");
}

Devstack::Object Devstack::object(const std::string& key) {
  const TemporaryDirectory folder;
  const std::string file = folder.path() + "/object";
  const json answer = objects({"get", key, file});
  const json& type = answer.at("contentType");
  return {readFile(file), type.is_null() ? "" : type.get<std::string>()};
}

std::vector<std::string> Devstack::keys(const std::string& prefix) {
  std::vector<std::string> keys;
  for (const json& object : objects({"list", prefix})) {
    keys.push_back(object.at("key").get<std::string>());
  }
  return keys;
}

std::map<std::string, std::string> Devstack::objectsBelow(const std::string& prefix) {
  const TemporaryDirectory folder;
  objects({"get-all", prefix, folder.path()});
  std::map<std::string, std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    found[entry.path().filename()] = readFile(entry.path());
  }
  return found;
}

json Devstack::imageSize(const std::string& bytes) {
  const TemporaryDirectory folder;
  const std::string file = folder.path() + "/image";
  writeFile(file, bytes);
  return objects({"webp-size", file});
}

json Devstack::control(const std::string& method, const std::string& path, const json& body) {
  const std::string url = info_.at("admin").get<std::string>() + path;
  const std::string text = body.is_null() ? "" : body.dump();
  std::string answer;
  CURL* request = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  curl_easy_setopt(request, CURLOPT_URL, url.c_str());
  curl_easy_setopt(request, CURLOPT_PROXY, "");
  curl_easy_setopt(request, CURLOPT_CUSTOMREQUEST, method.c_str());
  if (!body.is_null()) {
    curl_easy_setopt(request, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(request, CURLOPT_POSTFIELDSIZE, static_cast<long>(text.size()));
    curl_easy_setopt(request, CURLOPT_POSTFIELDS, text.c_str());
  }
  curl_easy_setopt(request, CURLOPT_WRITEFUNCTION, append);
  curl_easy_setopt(request, CURLOPT_WRITEDATA, &answer);
  const CURLcode result = curl_easy_perform(request);
  long status = 0;
  curl_easy_getinfo(request, CURLINFO_RESPONSE_CODE, &status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(request);
  if (result != CURLE_OK || status != 200) {
    throw std::runtime_error("devstack: " + method + " " + path + ": " +
                             (result == CURLE_OK ? answer : curl_easy_strerror(result)));
  }
  return json::parse(answer);
}

json Devstack::objects(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"node", QX_SOURCE_DIR "/devstack/objects.mjs", "--state",
                                      state_};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return json::parse(run(command));
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = std::filesystem::temp_directory_path() / "qx-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace qx
