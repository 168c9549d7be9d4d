#include "ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "Text.h"

namespace qx::app {
namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;
/// The depth of tables within tables. A setting needs none.
constexpr std::size_t kMostDots = 100;

/// The end of a quoted text that begins at `start`, after its last quote.
std::size_t endOfQuoted(std::string_view text, std::size_t start) {
  const char quote = text[start];
  const std::string three(3, quote);
  const bool manyLines = text.substr(start).starts_with(three);
  std::size_t i = start + (manyLines ? 3 : 1);
  for (; i < text.size(); ++i) {
    if (text[i] == '\\' && quote == '"') {
      ++i;
    } else if (manyLines ? text.substr(i).starts_with(three) : text[i] == quote) {
      i += manyLines ? 3 : 1;
      // The text may end with up to two quotes of its own.
      while (manyLines && i < text.size() && text[i] == quote) ++i;
      return i;
    } else if (!manyLines && text[i] == '\n') {
      return i;
    }
  }
  return text.size();
}

/// The number of dots outside quotes and comments. Each of them may nest one table in another, and
/// the parser needs stack for that depth.
std::size_t dotsOfKeys(std::string_view text) {
  std::size_t dots = 0;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == '"' || text[i] == '\'') {
      i = endOfQuoted(text, i);
    } else if (text[i] == '#') {
      i = std::min(text.find('\n', i), text.size());
    } else {
      if (text[i] == '.') ++dots;
      ++i;
    }
  }
  return dots;
}

/// Reads to the end, but at most one byte more than is allowed. Returns 0 or an errno.
int readText(int fd, std::string& text) {
  std::array<char, 65536> buffer;
  while (text.size() <= kMostBytes) {
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n == 0) return 0;
    if (n < 0 && errno != EINTR) return errno;
    if (n > 0) text.append(buffer.data(), static_cast<std::size_t>(n));
  }
  return 0;
}

}  // namespace

std::optional<std::string> readConfigFile(const std::string& path,
                                          std::map<std::string, std::string>& texts) {
  const auto why = [&path](int code) {
    return path + " could not be read: " + std::generic_category().message(code);
  };
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return why(errno);
  struct stat info {};
  std::string text;
  int code = ::fstat(fd, &info) == 0 ? 0 : errno;
  if (code == 0 && !S_ISDIR(info.st_mode)) code = readText(fd, text);
  ::close(fd);
  if (code != 0) return why(code);
  if (S_ISDIR(info.st_mode)) return path + " is a directory, not a configuration file";
  if (info.st_uid != ::geteuid() && info.st_uid != 0) {
    return path + " belongs to another user, who may write it; use a file of your own";
  }
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return path + " may be written by others; chmod go-w it";
  }
  if (text.size() > kMostBytes) return path + " is larger than 1 MiB; that is no list of settings";
  if (dotsOfKeys(text) > kMostDots) return path + " is nested too deeply";
  toml::table table;
  try {
    table = toml::parse(text, path);
  } catch (const toml::parse_error& error) {
    return path + ":" + std::to_string(error.source().begin.line) + ": " +
           std::string(error.description());
  }
  for (const auto& [name, node] : table) {
    const auto* value = node.as_string();
    if (!value) return path + ": \"" + std::string(name.str()) + "\" is not a text in quotes";
    texts[std::string(name.str())] = value->get();
  }
  // A token that others may read deserves a warning. The settings stay in force.
  if (texts.contains("token") && (info.st_mode & (S_IRGRP | S_IROTH)) != 0) {
    std::fprintf(stderr, "qxuploader: %s holds a token and others can read it; chmod 600 it\n",
                 printable(path).c_str());
  }
  return std::nullopt;
}

}  // namespace qx::app
