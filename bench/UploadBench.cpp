// The cost of an upload: the whole library, from the host's action to the host's completion,
// compared with plain libcurl-multi loops that send the same requests to the same sink.
//
// Every measurement is a process of its own, so that no side sees what another has left behind. The
// sides take turns, so that other work of the machine affects all of them. The results are medians,
// and ratios of measurements that were made one after the other.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/UploadSides.h"
#include "bench/UploadSink.h"
#include "platform/Error.h"
#include "platforms/shared/NlohmannJson.h"

namespace qx::bench {
namespace {

struct Workload {
  std::string_view name;
  bool tls;
  std::size_t objectSize;
  std::int64_t count;
  int inFlight;
};

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kGiB = kKiB * kKiB * kKiB;
constexpr std::size_t kWarmUpSize = 64 * kKiB;
constexpr std::size_t kMemoryObject = kGiB / 2;

constexpr std::array<Workload, 5> kWorkloads = {{
    {"64KiB", false, 64 * kKiB, 20000, 6},
    {"1KiB", false, kKiB, 40000, 6},
    {"1GiB", false, kGiB, 1, 1},
    {"64KiB-tls", true, 64 * kKiB, 10000, 6},
    {"1GiB-tls", true, kGiB, 1, 1},
}};

enum class Kind { library, bareLoop, signingLoop };
constexpr std::array<std::pair<Kind, std::string_view>, 3> kSides = {{
    {Kind::library, "library"},
    {Kind::signingLoop, "signing-loop"},
    {Kind::bareLoop, "bare-loop"},
}};

struct Sample {
  double seconds = 0;
  /// The CPU time of the uploading process.
  double cpuSeconds = 0;
  /// The CPU time of the sink. If it were near `seconds`, the sink would have been the bottleneck.
  double sinkSeconds = 0;
};

double now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Runs `work` in a process of its own and returns its result.
template <typename Result>
Result inChild(const std::function<Result()>& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) fatal("no pipe");
  std::cout.flush();
  const pid_t child = fork();
  if (child < 0) fatal("no process");
  if (child == 0) {
    const Result result = work();
    const bool told = write(ends[1], &result, sizeof result) == sizeof result;
    // No destructors run, because the library's shared instances live until the process ends.
    _exit(told ? 0 : 1);
  }
  close(ends[1]);
  Result result{};
  const bool heard = read(ends[0], &result, sizeof result) == sizeof result;
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!heard || status != 0) fatal("a measurement failed");
  return result;
}

std::unique_ptr<Side> makeSide(Kind kind, const UploadSink& sink, bool tls,
                               const std::string& directory) {
  switch (kind) {
    case Kind::library:
      return librarySide(sink, tls, directory);
    case Kind::bareLoop:
      return loopSide(sink, tls, LoopSigning::none);
    case Kind::signingLoop:
      return loopSide(sink, tls, LoopSigning::each);
  }
  fatal("no such side");
}

Sample measure(Kind kind, const Workload& workload, const UploadSink& sink,
               const std::string& directory) {
  // Lives until the process ends; see inChild().
  Side& side = *makeSide(kind, sink, workload.tls, directory).release();
  // This upload fetches credentials, opens connections and touches the pages of the buffer before
  // the clock starts.
  const Data object(std::string(workload.objectSize, 'x'));
  const Data small(std::string(std::min(workload.objectSize, kWarmUpSize), 'x'));
  side.upload(small, 50L * workload.inFlight, workload.inFlight);

  const std::int64_t objects = sink.counts().objects;
  const std::int64_t bytes = sink.counts().bytes;
  const double sinkStart = sink.cpuSeconds();
  const double cpuStart = cpuSeconds();
  const double start = now();
  side.upload(object, workload.count, workload.inFlight);
  const Sample sample = {now() - start, cpuSeconds() - cpuStart, sink.cpuSeconds() - sinkStart};
  if (sink.counts().objects - objects != workload.count ||
      sink.counts().bytes - bytes !=
          workload.count * static_cast<std::int64_t>(workload.objectSize)) {
    fatal("the sink has not received what was sent");
  }
  return sample;
}

std::int64_t peakKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::strtoll(line.c_str() + 6, nullptr, 10);
  }
  fatal("no VmHWM in /proc/self/status");
}

/// The growth of the process at its peak, beyond the buffer that it uploads.
std::int64_t growthKiB(bool tls, const UploadSink& sink, const std::string& directory) {
  Side& side = *librarySide(sink, tls, directory).release();
  const Data object(std::string(kMemoryObject, 'x'));
  side.upload(Data(std::string(kKiB, 'x')), 1, 1);
  const std::int64_t before = peakKiB();
  side.upload(object, 1, 1);
  return peakKiB() - before;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// The median over the rounds of the value that `read` takes from a sample.
double over(const std::vector<Sample>& samples, const std::function<double(const Sample&)>& read) {
  std::vector<double> values;
  values.reserve(samples.size());
  for (const Sample& sample : samples) values.push_back(read(sample));
  return median(std::move(values));
}

double ratio(const std::vector<Sample>& ours, const std::vector<Sample>& theirs,
             double Sample::*field) {
  std::vector<double> values;
  for (std::size_t i = 0; i < ours.size(); ++i) values.push_back(ours[i].*field / theirs[i].*field);
  return median(std::move(values));
}

/// Measures one workload, prints its table and returns its results.
Dictionary run(const Workload& workload, const std::vector<Kind>& kinds, int rounds,
               const UploadSink& sink, const std::string& directory) {
  std::vector<std::vector<Sample>> samples(kinds.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < kinds.size(); ++i) {
      samples[i].push_back(inChild<Sample>(
          [&, kind = kinds[i]] { return measure(kind, workload, sink, directory); }));
    }
  }

  const auto count = static_cast<double>(workload.count);
  const double megabytes = count * static_cast<double>(workload.objectSize) / 1e6;
  std::printf("\n%s: %lld objects, %d in flight, median of %d\n", workload.name.data(),
              static_cast<long long>(workload.count), workload.inFlight, rounds);
  std::printf("  %-14s %12s %10s %18s %10s\n", "", "objects/s", "MB/s", "CPU s per 1000",
              "sink busy");
  Dictionary results;
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    const std::string_view name =
        std::ranges::find(kSides, kinds[i], &std::pair<Kind, std::string_view>::first)->second;
    const double seconds = over(samples[i], [](const Sample& s) { return s.seconds; });
    const double cpu = over(samples[i], [](const Sample& s) { return s.cpuSeconds; });
    const double busy = over(samples[i], [](const Sample& s) { return s.sinkSeconds / s.seconds; });
    std::printf("  %-14s %12.1f %10.0f %18.4f %9.0f%%\n", name.data(), count / seconds,
                megabytes / seconds, 1000 * cpu / count, 100 * busy);
    Dictionary side = {{"objects_per_second", count / seconds},
                       {"megabytes_per_second", megabytes / seconds},
                       {"cpu_seconds_per_1000", 1000 * cpu / count},
                       {"sink_busy", busy}};
    if (i > 0 && kinds[0] == Kind::library) {
      const double rate = 1 / ratio(samples[0], samples[i], &Sample::seconds);
      const double cost = ratio(samples[0], samples[i], &Sample::cpuSeconds);
      std::printf("  %-14s library/loop: %.2f of the rate, %.2f of the CPU\n", "", rate, cost);
      side.emplace("library_rate_ratio", rate);
      side.emplace("library_cpu_ratio", cost);
    }
    results.emplace(name, std::move(side));
  }
  std::fflush(stdout);
  return results;
}

int benchMain(int argc, char** argv) {
  CLI::App app("Uploads through the library beside a plain libcurl loop", "qx_upload_bench");
  std::string jsonFile;
  int rounds = 5;
  std::vector<std::string> only;
  std::string onlySide;
  app.add_option("--json", jsonFile, "Gets the results");
  app.add_option("--rounds", rounds, "How often each side is measured")->check(CLI::PositiveNumber);
  app.add_option("--workload", only, "These alone: 64KiB 1KiB 1GiB 64KiB-tls 1GiB-tls memory");
  app.add_option("--side", onlySide, "This alone, for a profiler: library signing-loop bare-loop");
  CLI11_PARSE(app, argc, argv);

  std::string directory = std::filesystem::temp_directory_path().string() + "/upload-bench-XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) fatal("no temporary directory");
  const auto wanted = [&only](std::string_view name) {
    return only.empty() || std::ranges::find(only, name) != only.end();
  };
  std::vector<Kind> kinds;
  for (const auto& [kind, name] : kSides) {
    if (onlySide.empty() || onlySide == name) kinds.push_back(kind);
  }

  Dictionary results;
  {
    const UploadSink sink(directory);
    for (const Workload& workload : kWorkloads) {
      if (!wanted(workload.name)) continue;
      results.emplace(workload.name, run(workload, kinds, rounds, sink, directory));
    }
    if (wanted("memory")) {
      Dictionary memory;
      std::printf("\nmemory: growth beyond a buffer of %zu MiB while it is uploaded\n",
                  kMemoryObject / kKiB / kKiB);
      for (const bool tls : {false, true}) {
        const auto growth = inChild<std::int64_t>([&] { return growthKiB(tls, sink, directory); });
        const char* const scheme = tls ? "https" : "http";
        std::printf("  %-14s %12.1f MiB\n", scheme, static_cast<double>(growth) / kKiB);
        memory.emplace(std::string(scheme) + "_growth_kib", growth);
      }
      results.emplace("memory", std::move(memory));
    }
  }
  std::filesystem::remove_all(directory);
  if (!jsonFile.empty()) {
    std::ofstream out(jsonFile);
    out << NlohmannJson().encode(results).value_or("null") << "\n";
    if (!out.flush()) fatal("cannot write " + jsonFile);
  }
  return 0;
}

}  // namespace
}  // namespace qx::bench

int main(int argc, char** argv) {
  return qx::bench::benchMain(argc, argv);
}
