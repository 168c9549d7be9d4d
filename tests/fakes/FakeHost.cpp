#include "fakes/FakeHost.h"

#include <utility>

namespace qx {

int FakeLogger::threshold() {
  MutexLock lock(mutex_);
  return threshold_;
}

void FakeLogger::write(const LogRecord& record) {
  MutexLock lock(mutex_);
  records_.push_back(record);
}

void FakeLogger::setThreshold(int threshold) {
  MutexLock lock(mutex_);
  threshold_ = threshold;
}

std::vector<LogRecord> FakeLogger::records() {
  MutexLock lock(mutex_);
  return records_;
}

std::vector<std::string> FakeLogger::messages() {
  std::vector<std::string> messages;
  for (const LogRecord& record : records()) messages.push_back(record.message);
  return messages;
}

void FakeConsole::printLine(std::string_view line) {
  MutexLock lock(mutex_);
  lines_.emplace_back(line);
}

std::vector<std::string> FakeConsole::lines() {
  MutexLock lock(mutex_);
  return lines_;
}

void FakeNotificationCentre::addObserver(std::string name, std::function<void()> handler) {
  MutexLock lock(mutex_);
  observers_[std::move(name)].push_back(std::move(handler));
}

void FakeNotificationCentre::post(std::string_view name) {
  std::vector<std::function<void()>> handlers;
  {
    MutexLock lock(mutex_);
    const auto found = observers_.find(name);
    if (found != observers_.end()) handlers = found->second;
  }
  for (const auto& handler : handlers) handler();
}

std::size_t FakeNotificationCentre::observerCount(std::string_view name) {
  MutexLock lock(mutex_);
  const auto found = observers_.find(name);
  return found == observers_.end() ? 0 : found->second.size();
}

void FakeTrackingEvents::tagItem(const std::string& itemType, std::int64_t itemId,
                                 const std::string& imageUrl,
                                 const std::optional<std::vector<std::string>>& tags,
                                 std::int64_t imageSource,
                                 const std::optional<Dictionary>& fields) {
  MutexLock lock(mutex_);
  tagged_.push_back({itemType, itemId, imageUrl, tags, imageSource, fields});
}

void FakeTrackingEvents::updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                                    const std::optional<std::vector<std::string>>& tags,
                                    const std::optional<Dictionary>& fields) {
  MutexLock lock(mutex_);
  updated_.push_back({itemType, itemId, tags, fields});
}

std::optional<Dictionary> FakeTrackingEvents::anyCodable(const Dictionary& values) {
  std::function<std::optional<Dictionary>(const Dictionary&)> convert;
  {
    MutexLock lock(mutex_);
    convert = convert_;
  }
  return convert ? convert(values) : values;
}

void FakeTrackingEvents::setAnyCodable(
    std::function<std::optional<Dictionary>(const Dictionary&)> convert) {
  MutexLock lock(mutex_);
  convert_ = std::move(convert);
}

std::vector<FakeTrackingEvents::TaggedItem> FakeTrackingEvents::tagged() {
  MutexLock lock(mutex_);
  return tagged_;
}

std::vector<FakeTrackingEvents::UpdatedItem> FakeTrackingEvents::updated() {
  MutexLock lock(mutex_);
  return updated_;
}

bool FakeReachability::isReachable() {
  MutexLock lock(mutex_);
  return reachable_;
}

void FakeReachability::startListening(Listener listener) {
  MutexLock lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void FakeReachability::setReachable(bool reachable) {
  std::vector<Listener> listeners;
  {
    MutexLock lock(mutex_);
    if (reachable_ == reachable) return;
    reachable_ = reachable;
    listeners = listeners_;
  }
  for (const Listener& listener : listeners) listener(reachable, false);
}

std::size_t FakeReachability::listenerCount() {
  MutexLock lock(mutex_);
  return listeners_.size();
}

}  // namespace qx
