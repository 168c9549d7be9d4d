// The demo's use of the uploader: uploads that it waits for, by both routes, and uploads that go on
// in the background.
//
// Threads: the main thread runs the main queue, on which object-store uploads report. A second
// thread sends the actions and waits for the reports.

#include <qxawsuploader/Target_Uploader.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DemoHost.h"

namespace demo {
namespace {

using qx::Value;

/// Writes one JSON object per line, for the program that has started this one.
class Results {
 public:
  Results(const std::string& path, qx::Json& json)
      : file_(path, std::ios::app | std::ios::binary), json_(json) {}
  bool good() const QX_EXCLUDES(mutex_) {
    qx::MutexLock lock(mutex_);
    return file_.good();
  }

  void add(const qx::OrderedMembers& members) QX_EXCLUDES(mutex_) {
    const std::optional<std::string> text = json_.encode(members);
    qx::MutexLock lock(mutex_);
    // A line is written whole or not at all. A value that JSON cannot hold would be a mistake of
    // this program.
    file_ << text.value_or("{\"kind\":\"fault\"}") << "\n" << std::flush;
  }

 private:
  mutable qx::Mutex mutex_;
  std::ofstream file_ QX_GUARDED_BY(mutex_);
  qx::Json& json_;
};

std::optional<qx::Data> readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file.good() && !file.eof()) return std::nullopt;
  return qx::Data(std::move(bytes));
}

/// The text "jpg" for "Sea side.JPG". A name without a suffix is uploaded as "img".
std::string suffixOf(const std::string& path) {
  std::string suffix;
  for (const char c : std::filesystem::path(path).extension().string()) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) suffix += c;
    if (c >= 'A' && c <= 'Z') suffix += static_cast<char>(c - 'A' + 'a');
  }
  return suffix.empty() ? "img" : suffix;
}

struct Uploaded {
  std::optional<std::string> url;
  std::int64_t itemId = 0;
  std::optional<qx::Error> error;
};

/// Sends "Action_Upload:" and waits for its only report.
Uploaded upload(DemoHost& host, const qx::Data& data, const std::string& suffix) {
  const auto reported = std::make_shared<std::promise<Uploaded>>();
  host.send("Action_Upload:",
            {{"scope", "item-image"},
             {"data", data},
             {"suffix", suffix},
             {"complete", Value::callback<qx::HostUploadComplete>(
                              [reported](std::optional<std::string> url, std::int64_t itemId,
                                         std::optional<qx::Error> error) {
                                reported->set_value({std::move(url), itemId, std::move(error)});
                              })}});
  return reported->get_future().get();
}

/// Uploads every file once by one route. False when an upload has failed.
bool uploadAll(DemoHost& host, Results& results, const std::vector<std::string>& files,
               bool byServer) {
  const std::string route = byServer ? "server" : "store";
  host.send("Action_SetUp:", {{"needServerResize", byServer}});
  bool good = true;
  for (const std::string& path : files) {
    const std::optional<qx::Data> data = readFile(path);
    if (!data) {
      std::cerr << "qx_demo: cannot read " << path << "\n";
      return false;
    }
    const auto start = std::chrono::steady_clock::now();
    const Uploaded uploaded = upload(host, *data, suffixOf(path));
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    qx::OrderedMembers line = {{"kind", "uploaded"},
                               {"route", route},
                               {"file", path},
                               {"bytes", static_cast<std::int64_t>(data->size())},
                               {"seconds", time.count()}};
    std::cout << "  " << std::filesystem::path(path).filename().string() << "\n";
    if (uploaded.error) {
      good = false;
      std::cout << "      failed: " << uploaded.error->description << " (code "
                << uploaded.error->code << ")\n";
      line.emplace_back("error", uploaded.error->description);
    } else {
      std::cout << "      " << uploaded.url.value_or("(no URL)") << "\n      item id "
                << uploaded.itemId << ", " << data->size() << " bytes, " << std::fixed
                << std::setprecision(1) << time.count() * 1000 << " ms\n";
      line.emplace_back("url", uploaded.url.value_or(""));
      line.emplace_back("itemId", uploaded.itemId);
    }
    std::cout << std::flush;
    results.add(line);
  }
  return good;
}

bool direct(DemoHost& host, Results& results, const std::vector<std::string>& files) {
  std::cout << "Straight to the object store:\n";
  const bool store = uploadAll(host, results, files, false);
  std::cout << "Through the upload server, which makes a WebP of at most 1024 pixels:\n";
  const bool server = uploadAll(host, results, files, true);
  std::cout << "Tracking events that the host received:\n";
  for (const auto& [name, parameters] : host.tracker().events()) {
    std::cout << "  " << name << " "
              << host.platform().seams().json.encode(Value(parameters)).value_or("?") << "\n";
    results.add({{"kind", "event"}, {"name", name}, {"parameters", parameters}});
  }
  return store && server;
}

/// Sends all background uploads at once, then reports what the callback hears until standard input
/// ends.
bool background(DemoHost& host, Results& results, const std::vector<std::string>& files,
                const std::vector<std::string>& images) {
  host.send(
      "Action_RegisterBackground:",
      {{"callback",
        Value::callback<qx::HostBackgroundCallback>(
            [&results](std::string scope, std::optional<std::string> url,
                       std::map<std::string, std::string> extra, std::optional<qx::Error> error) {
              // An image is known by its item, any other file by the extra value that this host has
              // added.
              const bool image = extra.count("uuid") != 0;
              qx::OrderedMembers line = {{"kind", "background"},
                                         {"scope", std::move(scope)},
                                         {"task", image ? extra["uuid"] : extra["file"]}};
              if (url) line.emplace_back("url", *url);
              if (error) line.emplace_back("error", error->description);
              results.add(line);
            })}});
  host.send("Action_SetUp:", {{"needServerResize", false}});
  host.send("Action_SetMaxBackgroundConcurrent:", {{"count", 3}});
  for (const std::string& path : files) {
    const std::optional<qx::Data> data = readFile(path);
    if (!data) return false;
    host.send("Action_BackgroundUpload:", {{"scope", "avatar"},
                                           {"data", *data},
                                           {"suffix", suffixOf(path)},
                                           {"extra", qx::Dictionary{{"file", path}}}});
  }
  std::int64_t itemId = 7001;
  for (const std::string& path : images) {
    const std::optional<qx::Data> data = readFile(path);
    if (!data) return false;
    // Every second image is reported as the image that detection works on.
    host.send("Action_BackgroundUploadImage:",
              {{"scope", "item-image"},
               {"data", *data},
               {"itemId", std::to_string(itemId)},
               {"suffix", suffixOf(path)},
               {"useDetUpload", itemId % 2 == 0 ? "true" : "false"}});
    results.add({{"kind", "image"}, {"task", std::to_string(itemId)}, {"file", path}});
    ++itemId;
  }
  results.add({{"kind", "all sent"}});
  for (std::string line; std::getline(std::cin, line);) {
  }
  return true;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  CLI::App app("The host of ./demo", "qx_demo");
  demo::Account account;
  std::string documents;
  std::string resultsFile;
  int logThreshold = 5;
  std::vector<std::string> files;
  std::vector<std::string> images;
  app.add_option("--backend", account.backend, "The backend's base URL")->required();
  app.add_option("--upload-server", account.uploadServer, "The upload server's URL")->required();
  app.add_option("--store", account.store, "The object store's URL")->required();
  app.add_option("--user", account.userId, "User id; QX_ACCESS_TOKEN holds the token")->required();
  app.add_option("--documents", documents, "Where stored tasks go")->required();
  app.add_option("--results", resultsFile, "Gets one JSON object per result")->required();
  app.add_option("--log-threshold", logThreshold, "Log records of this level and above");
  app.require_subcommand(1);
  CLI::App* direct = app.add_subcommand("direct", "Upload and wait, by both routes");
  direct->add_option("files", files)->required();
  CLI::App* background = app.add_subcommand("background", "Hand over; until standard input ends");
  background->add_option("--file", files);
  background->add_option("--image", images);
  CLI11_PARSE(app, argc, argv);
  // The token is no option, because everybody on the machine can read a command line.
  const char* token = std::getenv("QX_ACCESS_TOKEN");
  account.accessToken = token != nullptr ? token : "";

  // Lives until the process ends, as the library's shared instances do.
  auto& host = *new demo::DemoHost(account, documents, logThreshold);
  demo::Results results(resultsFile, host.platform().seams().json);
  if (!results.good()) {
    std::cerr << "qx_demo: cannot write " << resultsFile << "\n";
    return 1;
  }
  bool good = false;
  std::thread story([&] {
    good = direct->parsed() ? demo::direct(host, results, files)
                            : demo::background(host, results, files, images);
    host.platform().stopMainQueue();
  });
  host.platform().runMainQueue();
  story.join();
  // No destructors run, because the library's threads are still at work.
  std::cout << std::flush;
  std::_Exit(good ? 0 : 1);
}
