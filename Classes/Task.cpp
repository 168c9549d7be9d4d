#include "Classes/Task.h"

#include <utility>

#include "Classes/AWSUploader.h"
#include "platform/Platform.h"

namespace qx {

DataTask::DataTask(std::string filename, std::string scope, Data fileData, AWSParameterMap extra)
    : filename_(std::move(filename)),
      scope_(std::move(scope)),
      fileData_(std::move(fileData)),
      extra_(std::move(extra)) {}

FileTask::FileTask(std::string filename, std::string scope, std::string filePath,
                   std::int64_t uploadCount, AWSParameterMap extra)
    : filename_(std::move(filename)),
      scope_(std::move(scope)),
      filePath_(std::move(filePath)),
      uploadCount_(uploadCount),
      extra_(std::move(extra)) {}

std::optional<Data> FileTask::data() const {
  Result<Data> content = Platform::current().files.read(documentPath() + "/" + filePath_);
  if (!content) return std::nullopt;
  return std::move(*content);
}

}  // namespace qx
