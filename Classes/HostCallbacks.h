// The callbacks that a host passes in the dictionaries of the actions.
//
//     parameters["complete"] = qx::Value::callback<qx::HostUploadComplete>(
//         [](std::optional<std::string> url, std::int64_t itemId, std::optional<qx::Error> error) {
//           ...
//         });
//
// Threads: each type says on which thread it is called.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/Url.h"
#include "platform/Value.h"

namespace qx {

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

// The callbacks of Target_UploadQueue run on the serial queue "com.aws.events", one at a time, in
// the order in which things happened.

/// "events" of "Action_Observe:": one event. docs/upload-queue.md lists the events and their keys.
using HostEvents = void(Dictionary event);
/// "complete" of "Action_List:": a dictionary for each upload. Once.
using HostTaskList = void(Array tasks);
/// "complete" of "Action_WhenIdle:". Once.
using HostIdle = void();

}  // namespace qx
