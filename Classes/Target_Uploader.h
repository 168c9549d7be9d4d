// The library's whole external interface: the actions that the host sends through the mediator.
//
// Threads: an action runs on the caller's thread and returns at once; results come through the
// callbacks in its dictionary, on the threads named below. No action returns a value or throws.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Host.h"
#include "platform/Url.h"

namespace qx {

class Library;

// The host's callbacks, passed in a dictionary as Value::callback<Signature>(...).

/// "complete" of "Action_Upload:": (URL, item id, no error) or (no URL, 0, error). Once, on the
/// thread that TaskExecutor.h names for its report; for a transfer to the object store whose item
/// id is known, that is the main queue.
using HostUploadComplete = void(std::optional<std::string> url, std::int64_t itemId,
                                std::optional<Error> error);
/// "callback" of "Action_RegisterBackground:": (scope, URL, extra values as text, error). Once per
/// attempt of every background upload, on the thread on which the attempt ended.
using HostBackgroundCallback = void(std::string scope, std::optional<std::string> url,
                                    std::map<std::string, std::string> extra,
                                    std::optional<Error> error);
/// "progress" of "Action_Download:": a fraction in 0...1, on the main queue.
using HostDownloadProgress = void(double fraction);
/// "complete" of "Action_Download:": (local file URL, no error) or (no URL, error). At most once;
/// AWSDownloader::download says on which thread, and when never.
using HostDownloadComplete = void(std::optional<Url> location, std::optional<Error> error);

class Target_Uploader : public MediatorTarget {
 public:
  /// Above the library of the process.
  Target_Uploader();
  /// `library` must outlive the target and what it has started.
  explicit Target_Uploader(Library& library) : library_(library) {}

  /// Makes the target known to the mediator as "Target_Uploader".
  static void registerWith(QXMediator& mediator);
  static void registerWith(QXMediator& mediator, Library& library);

  /// Routes "Action_SetUp:" and the other six to the methods below.
  bool performAction(std::string_view action, const Dictionary& parameters) override;
  std::vector<std::string> mistakes(std::string_view action, const Dictionary& parameters) override;

  // One per action; docs/host-integration.md lists the keys of each dictionary. Without a required
  // key an action only logs what it misses; SetMaxBackgroundConcurrent and RegisterBackground do
  // not even log.
  void Action_SetUp(const Dictionary& parameters);
  void Action_SetMaxBackgroundConcurrent(const Dictionary& parameters);
  void Action_RegisterBackground(const Dictionary& parameters);
  void Action_Upload(const Dictionary& parameters);
  void Action_BackgroundUpload(const Dictionary& parameters);
  void Action_BackgroundUploadImage(const Dictionary& parameters);
  void Action_Download(const Dictionary& parameters);

 private:
  /// `params` with the item's type, id, image source, tags and fields of `dictionary`; empty when
  /// `params` is absent.
  std::map<std::string, std::string> addPqsInfoToExtra(
      std::optional<std::map<std::string, std::string>> params, const Dictionary& dictionary) const;
  /// "tags" and "fields" come from the dictionary alone: what `extra` brought along goes.
  void setTagsAndFields(std::map<std::string, std::string>& extra,
                        const Dictionary& dictionary) const;
  /// Logs that an action lacks a parameter.
  void logMissing(std::string message, std::string_view function, int line) const;

  Library& library_;
};

}  // namespace qx
