#include "Output.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/ansicolor_sink.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "Text.h"

namespace qx::app {
namespace {

constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kGreen = "\x1b[32m";
constexpr std::string_view kReset = "\x1b[0m";

/// True for a terminal that can go back to the start of a line.
bool isTerminal(int fd) {
  const char* term = std::getenv("TERM");
  return ::isatty(fd) == 1 && term != nullptr && std::string_view(term) != "dumb";
}

bool coloursWanted() {
  const char* noColour = std::getenv("NO_COLOR");
  return noColour == nullptr || *noColour == '\0';
}

spdlog::level::level_enum levelOf(const LogRecord& record) {
  return record.level >= 5 ? spdlog::level::err : spdlog::level::info;
}

/// The error of the first failed write to standard output; 0 as long as there is none.
int firstWriteError = 0;

void flushStandardOutput() {
  if (std::fflush(stdout) != 0 && firstWriteError == 0) firstWriteError = errno;
}

double now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(time).count();
}

}  // namespace

Output::Output(bool json)
    : json_(json),
      terminal_(!json && isTerminal(STDOUT_FILENO)),
      colours_(terminal_ && coloursWanted()),
      errorColours_(isTerminal(STDERR_FILENO) && coloursWanted()) {
  auto sink = std::make_shared<spdlog::sinks::ansicolor_stderr_sink_mt>(
      errorColours_ ? spdlog::color_mode::always : spdlog::color_mode::never);
  log_ = std::make_unique<spdlog::logger>("qxuploader", std::move(sink));
  log_->set_pattern("%H:%M:%S.%e %^%-5l%$ %v");
}

Output::~Output() {
  eraseLive();
  flushStandardOutput();
}

void Output::write(std::string_view text) {
  const bool whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (!whole && firstWriteError == 0) firstWriteError = errno;
}

bool Output::writeEvent(const Event& whole) {
  // Names from the file system may be no UTF-8. JSON must be readable all the same.
  write(printableJson(whole.dump(-1, ' ', false, Event::error_handler_t::replace)) + "\n");
  flushStandardOutput();
  return firstWriteError == 0;
}

std::optional<std::string> Output::writeFailure() {
  flushStandardOutput();
  if (firstWriteError != 0) return std::generic_category().message(firstWriteError);
  return std::nullopt;
}

void Output::event(const Event& fields, std::string_view line, Tone tone) {
  if (json_) {
    Event numbered;
    numbered["n"] = ++number_;
    numbered["time"] = now();
    numbered.update(fields);
    writeEvent(numbered);
  } else {
    eraseLive();
    const std::string text = printable(line);
    if (colours_ && tone != Tone::plain) {
      write(std::string(tone == Tone::good ? kGreen : kRed) + text + std::string(kReset) + "\n");
    } else {
      write(text + "\n");
    }
    drawLive();
  }
  flushStandardOutput();
}

void Output::failure(const Event& fields, std::string_view line) {
  if (json_) {
    event(fields, line);
    return;
  }
  eraseLive();
  flushStandardOutput();
  const std::string text = "qxuploader: " + printable(line);
  const std::string shown = errorColours_ ? std::string(kRed) + text + std::string(kReset) : text;
  std::fprintf(stderr, "%s\n", shown.c_str());
  drawLive();
}

void Output::note(std::string_view line) {
  eraseLive();
  flushStandardOutput();
  std::fprintf(stderr, "qxuploader: %s\n", printable(line).c_str());
  drawLive();
}

void Output::logRecord(const LogRecord& record) {
  eraseLive();
  flushStandardOutput();
  log_->log(levelOf(record), "{}:{} {} {}", record.source, record.line, record.function,
            printable(record.message));
  log_->flush();
  drawLive();
}

void Output::live(std::string line) {
  if (!terminal_) return;
  eraseLive();
  live_ = std::move(line);
  drawLive();
}

void Output::eraseLive() {
  if (!live_.empty()) write("\r\x1b[K");
}

void Output::drawLive() {
  if (!live_.empty()) write(live_);
  if (terminal_) flushStandardOutput();
}

std::size_t Output::columns() const {
  winsize size{};
  // A pseudo-terminal may say 0. The usual width of 80 is used then.
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col < 20) return 80;
  return size.ws_col;
}

}  // namespace qx::app
