// Every settings file is read as a whole or refused with a message that names it.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Settings.h"

namespace {

/// One file serves all inputs. It is removed when the program ends.
class File {
 public:
  File() {
    path_ = std::filesystem::temp_directory_path() / "qx-fuzz-settings-XXXXXX";
    file_ = ::mkstemp(path_.data());  // Mode 0600, as for a file with a token in it.
    if (file_ < 0) std::abort();
  }
  ~File() { ::unlink(path_.c_str()); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const std::string& hold(const std::uint8_t* bytes, std::size_t size) const {
    if (::ftruncate(file_, 0) != 0 ||
        ::pwrite(file_, bytes, size, 0) != static_cast<ssize_t>(size)) {
      std::abort();
    }
    return path_;
  }

 private:
  std::string path_;
  int file_ = -1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const File file;
  const std::string& path = file.hold(bytes, size);
  qx::app::Settings settings;
  const auto fault = qx::app::Settings::load({}, path, settings);
  if (fault) {
    if (fault->message.find(path) == std::string::npos) std::abort();
    return 0;
  }
  if (settings.file() != path) std::abort();
  for (const qx::app::SettingKey& setting : qx::app::kSettings) (void)settings.get(setting.key);
  return 0;
}
