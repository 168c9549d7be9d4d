// What the program says: lines for people, one JSON object per event for scripts, and on a terminal
// one live line below them that is drawn anew in place.
//
// Threads: the main thread only.
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
  /// `json`: events as JSON objects. Otherwise lines; colours and the live line only where standard
  /// output is a terminal, colours only without NO_COLOR.
  explicit Output(bool json);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool json() const { return json_; }
  bool terminal() const { return terminal_; }

  /// One thing that happened: `line` for people on standard output, `fields` for scripts.
  void event(const Event& fields, std::string_view line, Tone tone = Tone::plain);
  /// One thing that went wrong: the line goes to standard error, the event where events go.
  void failure(const Event& fields, std::string_view line);
  /// A remark for people, on standard error: never an event.
  void note(std::string_view line);
  /// A record of the library's log, on standard error.
  void logRecord(const LogRecord& record);
  /// Replaces the live line; nothing happens off a terminal.
  void live(std::string line);
  /// Removes the live line.
  void endLive() { live({}); }
  /// Characters that fit beside each other.
  std::size_t columns() const;

  /// Writes an event as it stands, numbered by the caller. False when standard output takes nothing
  /// any more.
  bool writeEvent(const Event& whole);
  /// Writes out what standard output still holds. Why something could not be written to it, now or
  /// earlier in this process, or nothing.
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
