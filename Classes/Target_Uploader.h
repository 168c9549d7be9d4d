// The library's whole external interface: the actions that the host sends through the mediator.
//
// Threads: an action runs on the caller's thread and returns at once; results come through the
// callbacks in its dictionary, on the threads that HostCallbacks.h names. No action returns a value
// or throws.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// For hosts, which include this header alone.
#include "Classes/HostCallbacks.h"
#include "platform/Host.h"

namespace qx {

class Library;

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
