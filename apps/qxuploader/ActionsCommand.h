// "actions": the mediator for scripts and other languages. One JSON object per line in, one per
// line out; nothing is interpreted on the way.
//
// Threads: a thread of its own reads standard input and posts each line; actions run on the main
// thread, in the order of their lines. What comes out is written on the main thread in the order in
// which it happened, with the queue on which it did.
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
  /// One "complete" under way; the library lets go of it when it can no longer be called.
  class Expectation;

  void begin() override;
  void interrupted() override;
  void onLog(const LogRecord& record) override;
  void onTracking(const Dictionary& parameters, const std::string& name) override;
  void onTag(std::string_view call, const Dictionary& arguments) override;
  void onUnknownAction(std::string_view action) override;

  void readLines();
  /// Waits until so much of the room is free; what is returned gives it back in the end.
  std::shared_ptr<void> takeRoom(std::size_t size);
  void take(const std::string& line, std::uint64_t number);
  void takeAction(const Dictionary& line, std::uint64_t number);
  void takeHost(const Dictionary& changes, std::uint64_t number);
  void inputEnded();
  void finishWhenQuiet();
  Value makeCallback(const std::string& action, const std::string& key, const std::string& name);
  void called(const std::string& name, Event arguments);
  /// Numbers and writes an event on the main thread; the time is now, wherever it is called.
  void emit(Event event);
  void wrongLine(std::uint64_t number, const std::string& why);

  /// Main thread only.
  std::uint64_t number_ = 0;
  bool inputEnded_ = false;
  bool refused_ = false;
  std::atomic<std::int64_t> expected_ = 0;
  /// Lines read ahead, a long one in pieces: a writer that is faster than the actions must not fill
  /// the memory.
  static constexpr std::size_t kRoom = 1000;
  static constexpr std::size_t kRoomBytes = std::size_t{64} << 10;
  std::counting_semaphore<> room_{kRoom};
  StopEvent stop_;
  std::thread reader_;
};

}  // namespace qx::app
