// Upload tasks: the bytes to upload, their name, their scope and their extra values.
//
// Threads: the executor, the queue and the scheduler share a task and use it one after the other.
// It has no lock of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSBasicParameter.h"
#include "platform/Data.h"
#include "platform/Files.h"

namespace qx {

class Task {
 public:
  virtual ~Task() = default;
  /// The scope, by which the credentials and the transfer utility are found.
  virtual const std::string& scope() const = 0;
  /// False for a DataTask, true for a FileTask.
  virtual bool hasPath() const = 0;
  /// The object's name below the authorised path of the scope.
  virtual const std::string& filename() const = 0;
  virtual const AWSParameterMap& extra() const = 0;
  virtual AWSParameterMap& extra() = 0;
  /// The bytes to upload, or nothing.
  virtual std::optional<Data> data() const = 0;
};

/// A task that holds its bytes in memory.
class DataTask : public Task {
 public:
  DataTask(std::string filename, std::string scope, Data fileData, AWSParameterMap extra);
  const std::string& scope() const override { return scope_; }
  bool hasPath() const override { return false; }
  const std::string& filename() const override { return filename_; }
  const AWSParameterMap& extra() const override { return extra_; }
  AWSParameterMap& extra() override { return extra_; }
  /// Never fails.
  std::optional<Data> data() const override { return fileData_; }

 private:
  std::string filename_;
  std::string scope_;
  Data fileData_;
  AWSParameterMap extra_;
};

/// A task that refers to a file below the documents directory. Each call of data() reads the file.
class FileTask : public Task {
 public:
  /// `filePath` is relative to the documents directory. `uploadCount` is the number of failed
  /// attempts. `files` must outlive the task.
  FileTask(Files& files, std::string filename, std::string scope, std::string filePath,
           std::int64_t uploadCount, AWSParameterMap extra);
  const std::string& scope() const override { return scope_; }
  bool hasPath() const override { return true; }
  const std::string& filename() const override { return filename_; }
  const AWSParameterMap& extra() const override { return extra_; }
  AWSParameterMap& extra() override { return extra_; }
  /// Nothing when the file cannot be read.
  std::optional<Data> data() const override;

  /// The bytes of the file, or the error because of which they cannot be read.
  Result<Data> read() const;
  const std::string& filePath() const { return filePath_; }
  std::int64_t uploadCount() const { return uploadCount_; }
  void setUploadCount(std::int64_t count) { uploadCount_ = count; }

 private:
  Files& files_;
  std::string filename_;
  std::string scope_;
  std::string filePath_;
  std::int64_t uploadCount_;
  AWSParameterMap extra_;
};

}  // namespace qx
