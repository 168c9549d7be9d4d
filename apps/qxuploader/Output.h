// The output of the program: lines for people, or one JSON object per event for scripts, and on a
// terminal one live line below them that is redrawn in place.
//
// Threads: only for the main thread.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Host.h"

namespace spdlog {
class logger;
}

namespace qx::app {

using Event = nlohmann::ordered_json;

enum class Tone { plain, good, bad };

class Output {
 public:
  /// With `json` events are JSON objects. Without it they are lines, with colours and the live line
  /// only if standard output is a terminal, and colours only without NO_COLOR.
  explicit Output(bool json);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool json() const { return json_; }
  bool terminal() const { return terminal_; }

  /// Writes an event to standard output: `line` for people, `fields` for scripts.
  void event(const Event& fields, std::string_view line, Tone tone = Tone::plain);
  /// Reports a failure: the line goes to standard error, the event to where events go.
  void failure(const Event& fields, std::string_view line);
  /// Writes a remark for people to standard error. It is never an event.
  void note(std::string_view line);
  /// Writes a record of the library's log to standard error.
  void logRecord(const LogRecord& record);
  /// Replaces the live line. Does nothing without a terminal.
  void live(std::string line);
  /// Removes the live line.
  void endLive() { live({}); }
  /// The number of characters in a line of the terminal.
  std::size_t columns() const;

  /// Writes an event unchanged; the caller has numbered it. False when standard output accepts
  /// nothing any more.
  bool writeEvent(const Event& whole);
  /// Writes out the buffer of standard output. Yields the reason why something could not be written
  /// to it, now or earlier in this process, or nothing.
  static std::optional<std::string> writeFailure();

 private:
  void eraseLive();
  void drawLive();
  void write(std::string_view text);

  const bool json_;
  const bool terminal_;
  const bool colours_;
  bool errorColours_;
  std::string live_;
  std::uint64_t number_ = 0;
  std::unique_ptr<spdlog::logger> log_;
};

}  // namespace qx::app
