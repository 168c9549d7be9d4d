// A host that is compiled without exceptions and run-time type information and hides all its
// symbols. It implements a seam, gets callbacks and calls the library.
#include <qxawsuploader/LinuxPlatform.h>
#include <qxawsuploader/Target_Uploader.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

class Logger : public qx::QXLogger {
 public:
  int threshold() override { return 0; }
  void write(const qx::LogRecord& record) override {
    if (record.source == "QXAwsUploader/Target_Uploader") std::puts(record.message.c_str());
  }
};

}  // namespace

int main() {
  auto& logger = *new Logger;
  auto& platform = *new qx::LinuxPlatform({.logger = &logger});
  platform.mediator().answer("QXConfig_currentEnvironmentIsProduction",
                             [] { return qx::Value(false); });
  qx::Target_Uploader::registerWith(platform.mediator());
  qx::Platform::install(platform.seams());
  int status = 1;
  auto complete = [&](auto url, auto, std::optional<qx::Error> error) {
    if (!url && error) {
      std::printf("%s %d\n", error->description.c_str(), static_cast<int>(error->code));
      status = 0;
    }
    platform.stopMainQueue();
  };
  const qx::Value callback = qx::Value::callback<qx::HostUploadComplete>(complete);
  platform.mediator().performTarget("Target_Uploader", "Action_Upload:", {{"complete", callback}});
  platform.mediator().performTarget("Target_Uploader", "Action_Upload:",
                                    {{"scope", "avatar"},
                                     {"data", qx::Data("hello")},
                                     {"suffix", "txt"},
                                     {"complete", callback}});
  platform.runMainQueue();
  std::fflush(stdout);
  // No destructors run, because the library's threads live until the process ends.
  std::_Exit(status);
}
