// The smallest host: an upload without credentials must come back as a failure that says why.
#include <cstdio>
#include <cstdlib>
#include <optional>

#include <qxawsuploader/LinuxPlatform.h>
#include <qxawsuploader/Target_Uploader.h>

int main() {
  auto& platform = *new qx::LinuxPlatform;
  qx::Target_Uploader::registerWith(platform.mediator());
  qx::Platform::install(platform.seams());
  int status = 1;
  platform.mediator().performTarget(
      "Target_Uploader", "Action_Upload:",
      {{"scope", "avatar"},
       {"data", qx::Data("hello")},
       {"suffix", "txt"},
       {"complete", qx::Value::callback<qx::HostUploadComplete>(
                        [&](auto url, auto, std::optional<qx::Error> error) {
                          if (!url && error) {
                            std::printf("%s %d\n", error->description.c_str(),
                                        static_cast<int>(error->code));
                            status = 0;
                          }
                          platform.stopMainQueue();
                        })}});
  platform.runMainQueue();
  std::fflush(stdout);
  // No destructors run, because the library's threads live until the process ends.
  std::_Exit(status);
}
