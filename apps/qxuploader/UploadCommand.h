// "upload": uploads files to the store or through the upload server. Nothing is stored.
//
// Threads: see Session.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Session.h"

namespace qx::app {

/// The item of an upload, for its tags.
struct ItemOptions {
  std::optional<std::int64_t> itemId;
  std::optional<std::string> itemType;
  std::optional<std::int64_t> imageFrom;
  std::vector<std::string> tags;
  /// Each text is "key=value".
  std::vector<std::string> fields;
};

struct UploadOptions {
  std::vector<std::string> files;
  std::string scope;
  ItemOptions item;
  bool serverResize = false;
};

class UploadCommand : public Session {
 public:
  UploadCommand(const Context& context, UploadOptions options);

 private:
  void begin() override;
  void interrupted() override;
  void onEvent(const Dictionary& event) override;
  void startMore();
  void start(std::size_t index);
  void ended();
  void showLive();

  const UploadOptions options_;
  std::size_t next_ = 0;
  /// The running uploads: the place of the file among the options, which is also the tag, and the
  /// name of the object once it is known.
  std::map<std::string, std::string> running_;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
};

/// The suffix of a file name without the dot, or "bin" when it has none that fits an object name.
std::string suffixOf(const std::string& path);

}  // namespace qx::app
