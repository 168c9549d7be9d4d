// "actions": the mediator for scripts and other languages. It reads one JSON object per line and
// writes one per line, and interprets nothing.
//
// Threads: a thread of its own reads standard input and posts each line. Actions run on the main
// thread, in the order of their lines. Events are written on the main thread in the order in which
// they happened, each with the name of the queue on which it happened.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>

#include "ActionLine.h"
#include "Session.h"
#include "StopEvent.h"

namespace qx::app {

class ActionsCommand : public Session {
 public:
  explicit ActionsCommand(const Context& context);
  ~ActionsCommand() override;

 private:
  /// A "complete" that is under way. The library drops it when it can no longer be called.
  class Expectation;

  void begin() override;
  void interrupted() override;
  void onLog(const LogRecord& record) override;
  void onTracking(const Dictionary& parameters, const std::string& name) override;
  void onTag(std::string_view call, const Dictionary& arguments) override;
  void onUnknownAction(std::string_view action) override;

  void readLines();
  /// Waits until this much of the room is free and takes it. Destroying the result gives the room
  /// back.
  std::shared_ptr<void> takeRoom(std::size_t size);
  void take(const std::string& line, std::uint64_t number);
  void takeAction(const Dictionary& line, std::uint64_t number);
  void takeHost(const Dictionary& changes, std::uint64_t number);
  void inputEnded();
  void finishWhenQuiet();
  Value makeCallback(const std::string& action, const std::string& key, const std::string& name);
  void called(const std::string& name, Event arguments);
  /// Numbers an event and writes it on the main thread. Its time is the time of the call, on any
  /// thread.
  void emit(Event event);
  void wrongLine(std::uint64_t number, const std::string& why);

  /// Only for the main thread.
  std::uint64_t number_ = 0;
  bool inputEnded_ = false;
  bool refused_ = false;
  std::atomic<std::int64_t> expected_ = 0;
  /// The room for lines that have been read ahead; a long line is counted in pieces. A writer that
  /// is faster than the actions must not fill the memory.
  static constexpr std::size_t kRoom = 1000;
  static constexpr std::size_t kRoomBytes = std::size_t{64} << 10;
  std::counting_semaphore<> room_{kRoom};
  StopEvent stop_;
  std::thread reader_;
};

}  // namespace qx::app
