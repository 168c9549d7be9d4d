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

/// The callback "complete" of "Action_Upload:" gets (URL, item id, no error) or (no URL, 0, error).
/// It is called once, on the thread that TaskExecutor.h names for its report: the main queue for a
/// transfer to the object store whose item id is known.
using HostUploadComplete = void(std::optional<std::string> url, std::int64_t itemId,
                                std::optional<Error> error);
/// The callback "callback" of "Action_RegisterBackground:" gets (scope, URL, extra values as text,
/// error). It is called once per attempt of every background upload, on the thread on which the
/// attempt ended.
using HostBackgroundCallback = void(std::string scope, std::optional<std::string> url,
                                    std::map<std::string, std::string> extra,
                                    std::optional<Error> error);
/// The callback "progress" of "Action_Download:" gets a fraction in 0...1, on the main queue.
using HostDownloadProgress = void(double fraction);
/// The callback "complete" of "Action_Download:" gets (local file URL, no error) or (no URL,
/// error). It is called at most once. AWSDownloader::download() says on which thread, and when it
/// is not called.
using HostDownloadComplete = void(std::optional<Url> location, std::optional<Error> error);

// The callbacks of Target_UploadQueue run on the serial queue "com.aws.events", one at a time, in
// the order of the events.

/// The callback "events" of "Action_Observe:" gets one event. docs/upload-queue.md lists the events
/// and their keys.
using HostEvents = void(Dictionary event);
/// The callback "complete" of "Action_List:" is called once, with a dictionary for each upload.
using HostTaskList = void(Array tasks);
/// The callback "complete" of "Action_WhenIdle:" is called once.
using HostIdle = void();

}  // namespace qx
