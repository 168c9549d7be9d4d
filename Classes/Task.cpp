#include "Classes/Task.h"

#include <utility>

namespace qx {

DataTask::DataTask(std::string filename, std::string scope, Data fileData, AWSParameterMap extra)
    : filename_(std::move(filename)),
      scope_(std::move(scope)),
      fileData_(std::move(fileData)),
      extra_(std::move(extra)) {}

FileTask::FileTask(Files& files, std::string filename, std::string scope, std::string filePath,
                   std::int64_t uploadCount, AWSParameterMap extra)
    : files_(files),
      filename_(std::move(filename)),
      scope_(std::move(scope)),
      filePath_(std::move(filePath)),
      uploadCount_(uploadCount),
      extra_(std::move(extra)) {}

Result<Data> FileTask::read() const {
  return files_.read(documentPath(files_) + "/" + filePath_);
}

std::optional<Data> FileTask::data() const {
  Result<Data> content = read();
  if (!content) return std::nullopt;
  return std::move(*content);
}

}  // namespace qx
