// The cost of stored background uploads on the real files and property lists: a change of the log
// by the number of its entries, writes that threads share, and the memory of a waiting task.
//
// The directory is made below $QX_BENCH_DIR, or else below the current directory, and removed at
// the end. It should lie on the disk that is to be measured.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Classes/Library.h"
#include "platforms/linux/LinuxPlatform.h"

namespace {

/// The real files. They count the writes of logs, and can drop writes so that only memory is
/// measured.
class CountingFiles : public qx::Files {
 public:
  explicit CountingFiles(qx::Files& files) : files_(files) {}
  std::vector<std::string> documentDirectories() override { return files_.documentDirectories(); }
  qx::PathKind kind(const std::string& path) override { return files_.kind(path); }
  qx::Result<qx::FileFacts> facts(const std::string& path) override { return files_.facts(path); }
  qx::Result<std::unique_ptr<qx::FileLock>> lock(const std::string& path) override {
    return files_.lock(path);
  }
  std::optional<qx::Error> createDirectory(const std::string& path) override {
    return files_.createDirectory(path);
  }
  qx::Result<std::vector<std::string>> list(const std::string& path) override {
    if (swallow) return qx::Error{"Files", EIO, "not now"};
    return files_.list(path);
  }
  qx::Result<qx::Data> read(const std::string& path) override { return files_.read(path); }
  std::optional<qx::Error> write(const std::string& path, std::span<const std::string_view> pieces,
                                 qx::WriteMode mode, qx::Durability durability) override {
    if (swallow) return std::nullopt;
    if (mode == qx::WriteMode::atomic) ++logWrites;
    return files_.write(path, pieces, mode, durability);
  }
  std::optional<qx::Error> rename(const std::string& from, const std::string& to) override {
    return files_.rename(from, to);
  }
  std::optional<qx::Error> remove(const std::string& path) override { return files_.remove(path); }

  std::atomic<bool> swallow = false;
  std::atomic<std::int64_t> logWrites = 0;

 private:
  qx::Files& files_;
};

CountingFiles* files = nullptr;

/// Extra values that make an entry of about 600 bytes in the log.
qx::AWSParameterMap extraValues() {
  return {{"itemId", "1234567890123"},
          {"fields", "{\"album\":\"holiday\",\"camera\":\"phone\"}"},
          {"OriginalImageSha1Key", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
          {"OriginalImageFileSizeKey", std::int64_t{2480192}}};
}

std::string nameOf(std::int64_t i) {
  return "1700000000-123456" + std::to_string(1000000 + i) + ".jpg";
}

std::shared_ptr<qx::FileTask> fileTask(const std::string& user, std::int64_t i) {
  return std::make_shared<qx::FileTask>(*files, nameOf(i), "images",
                                        "aws-0011/" + user + "/" + nameOf(i), 0, extraValues());
}

qx::Library& library() {
  return qx::Library::shared();
}

/// A storage with `count` entries, made without writing them.
std::unique_ptr<qx::UserTaskStorage> filled(const std::string& user, std::int64_t entries) {
  auto storage = std::make_unique<qx::UserTaskStorage>(library().platform, user);
  files->swallow = true;
  for (std::int64_t i = 0; i < entries; ++i) storage->storageLog(*fileTask(user, i));
  files->swallow = false;
  return storage;
}

/// The log of a run that has stored so many tasks.
void writeLog(const std::string& user, std::int64_t entries) {
  if (!filled(user, entries)->syncLog()) std::abort();
}

void storageLog(benchmark::State& state) {
  const auto storage = filled("log", state.range(0));
  const auto task = fileTask("log", state.range(0));
  for (auto _ : state) {
    if (!storage->storageLog(*task)) state.SkipWithError("storageLog failed");
  }
  state.counters["log_bytes"] = static_cast<double>(
      std::filesystem::file_size(qx::documentPath(*files) + "/aws-0011/log/logs.plist"));
}
BENCHMARK(storageLog)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void deleteTask(benchmark::State& state) {
  const auto storage = filled("delete", state.range(0));
  std::int64_t next = state.range(0);
  for (auto _ : state) {
    state.PauseTiming();
    files->swallow = true;
    storage->storageLog(*fileTask("delete", next));
    files->swallow = false;
    state.ResumeTiming();
    if (!storage->remove(nameOf(next))) state.SkipWithError("remove failed");
    ++next;
  }
}
BENCHMARK(deleteTask)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// Stores 1,000 tasks of 1 KiB, files and log, from the given number of threads, without and with
/// syncing.
void storeThousand(benchmark::State& state) {
  const auto threads = static_cast<int>(state.range(0));
  const auto mode = state.range(1) == 0 ? qx::StoredTasks::startEmpty : qx::StoredTasks::resume;
  const qx::Data bytes(std::string(1024, 'x'));
  int round = 0;
  files->logWrites = 0;
  for (auto _ : state) {
    qx::UserTaskStorage storage(library().platform,
                                "many" + std::to_string(threads) + "-" +
                                    std::to_string(state.range(1)) + "-" + std::to_string(round++),
                                mode);
    std::vector<std::thread> running;
    for (int t = 0; t < threads; ++t) {
      running.emplace_back([&, t] {
        for (int i = t; i < 1000; i += threads) {
          const auto stored = storage.storageFile(
              std::make_shared<qx::DataTask>(nameOf(i), "images", bytes, extraValues()));
          if (!stored || !storage.storageLog(*stored)) std::abort();
        }
      });
    }
    for (std::thread& thread : running) thread.join();
  }
  state.counters["log_writes"] =
      benchmark::Counter(static_cast<double>(files->logWrites), benchmark::Counter::kAvgIterations);
  state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(storeThousand)
    ->ArgNames({"threads", "synced"})
    ->ArgsProduct({{1, 4}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// The heap of one waiting task with its log entry: new tasks of 1 MiB, whose payload must not be
/// counted, or tasks that a log of an earlier run names.
void memoryPerWaitingTask(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  const bool resumed = state.range(1) != 0;
  library().configure.resumeStoredTasks = resumed;
  const std::string user = resumed ? "resumed" : "new";
  if (resumed) writeLog(user, count);
  for (auto _ : state) {
    files->swallow = true;
    const std::size_t before = mallinfo2().uordblks;
    const auto scheduler = library().makeScheduler(user);
    for (std::int64_t i = 0; !resumed && i < count; ++i) {
      const auto executor = library().uploader.makeExecutor(std::make_shared<qx::DataTask>(
          nameOf(i), "images", qx::Data(std::string(1 << 20, 'x')), extraValues()));
      executor->complete = scheduler->reporter();
      scheduler->taskQueue().add(scheduler->syncLocl(executor));
    }
    if (resumed) {
      for (const auto& executor : scheduler->localTaskExecutor()) {
        executor->complete = scheduler->reporter();
        scheduler->taskQueue().add(scheduler->syncLocl(executor));
      }
    }
    const std::size_t after = mallinfo2().uordblks;
    files->swallow = false;
    if (scheduler->taskQueue().waitingCount() != static_cast<std::size_t>(count)) std::abort();
    state.counters["bytes_per_task"] =
        static_cast<double>(after - before) / static_cast<double>(count);
    scheduler->taskQueue().reset();
  }
  library().configure.resumeStoredTasks = false;
}
BENCHMARK(memoryPerWaitingTask)
    ->ArgNames({"tasks", "resumed"})
    ->Args({5000, 0})
    ->Args({20000, 1})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const char* below = std::getenv("QX_BENCH_DIR");
  std::string directory = std::string(below != nullptr ? below : ".") + "/storage-bench-XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) return 1;
  // Never destroyed, because the library's shared instances live until the process ends.
  auto& platform = *new qx::LinuxPlatform({.documentsDirectory = directory});
  const qx::Platform seams = platform.seams();
  files = new CountingFiles(seams.files);
  qx::Platform::install(seams.with(*files));
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(directory);
  return 0;
}
