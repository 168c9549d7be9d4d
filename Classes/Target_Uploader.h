// The library's main interface: the seven actions that the host sends through the mediator.
//
//     qx::Target_Uploader::registerWith(platform.mediator());
//     platform.mediator().performTarget("Target_Uploader", "Action_SetMaxBackgroundConcurrent:",
//                                       {{"count", 2}});
//
// Threads: an action runs on the caller's thread and returns at once. Results come through the
// callbacks in its dictionary, on the threads that HostCallbacks.h names. No action returns a value
// or throws.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Hosts include this header alone, so it includes their callbacks.
#include "Classes/HostCallbacks.h"
#include "platform/Export.h"
#include "platform/Host.h"

namespace qx {

class Library;

class QX_EXPORT Target_Uploader : public MediatorTarget {
 public:
  /// Makes a target that uses the library of the process.
  Target_Uploader();
  /// `library` must outlive the target and what it has started.
  explicit Target_Uploader(Library& library) : library_(library) {}

  /// Makes the target known to the mediator as "Target_Uploader".
  static void registerWith(QXMediator& mediator);
  static void registerWith(QXMediator& mediator, Library& library);

  /// Calls the method below that belongs to the action.
  bool performAction(std::string_view action, const Dictionary& parameters) override;
  std::vector<std::string> mistakes(std::string_view action, const Dictionary& parameters) override;

  // There is one method for each action; docs/host-integration.md lists the keys of each
  // dictionary. Without a required key an action only logs which key it misses.
  // SetMaxBackgroundConcurrent and RegisterBackground do not even log.
  void Action_SetUp(const Dictionary& parameters);
  void Action_SetMaxBackgroundConcurrent(const Dictionary& parameters);
  void Action_RegisterBackground(const Dictionary& parameters);
  void Action_Upload(const Dictionary& parameters);
  void Action_BackgroundUpload(const Dictionary& parameters);
  void Action_BackgroundUploadImage(const Dictionary& parameters);
  void Action_Download(const Dictionary& parameters);

 private:
  /// `params` with the item's type, id, image source, tags and fields from `dictionary`. Empty when
  /// `params` is absent.
  std::map<std::string, std::string> addPqsInfoToExtra(
      std::optional<std::map<std::string, std::string>> params, const Dictionary& dictionary) const;
  /// Sets "tags" and "fields" from the dictionary alone, and removes those that `extra` had.
  void setTagsAndFields(std::map<std::string, std::string>& extra,
                        const Dictionary& dictionary) const;
  /// Logs that a parameter of an action is missing.
  void logMissing(std::string message, std::string_view function, int line) const;

  Library& library_;
};

}  // namespace qx
