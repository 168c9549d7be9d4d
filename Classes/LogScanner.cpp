#include "Classes/LogScanner.h"

#include <algorithm>

namespace qx {
namespace {

/// Reads tags one after the other. Each operation takes what its name says, or takes nothing and
/// returns false.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : rest_(text) {}

  std::string_view rest() const { return rest_; }
  void skipBlanks() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
  }
  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  /// Takes `<tag>text</tag>` or `<tag/>`.
  bool takeElement(std::string_view tag) {
    Cursor ahead = *this;
    if (!ahead.take("<") || !ahead.take(tag)) return false;
    if (!ahead.take("/>")) {
      if (!ahead.take(">")) return false;
      ahead.rest_.remove_prefix(std::min(ahead.rest_.find('<'), ahead.rest_.size()));
      if (!ahead.take("</") || !ahead.take(tag) || !ahead.take(">")) return false;
    }
    *this = ahead;
    return true;
  }
  bool takeScalar() {
    return takeElement("string") || takeElement("integer") || takeElement("real") ||
           takeElement("true") || takeElement("false") || takeElement("date") ||
           takeElement("data");
  }
  /// Takes a dictionary of scalars (depth 1), or a dictionary of such dictionaries (depth 2).
  bool takeDictionary(int depth) {
    Cursor ahead = *this;
    if (!ahead.take("<dict/>")) {
      if (!ahead.take("<dict>")) return false;
      for (ahead.skipBlanks(); !ahead.take("</dict>"); ahead.skipBlanks()) {
        if (!ahead.takeElement("key")) return false;
        ahead.skipBlanks();
        if (!(depth == 1 ? ahead.takeScalar() : ahead.takeDictionary(depth - 1))) return false;
      }
    }
    *this = ahead;
    return true;
  }
  bool takeEntry() {
    Cursor ahead = *this;
    if (!ahead.takeElement("key")) return false;
    ahead.skipBlanks();
    if (!ahead.takeDictionary(2)) return false;
    *this = ahead;
    return true;
  }

 private:
  std::string_view rest_;
};

std::size_t countOf(std::string_view text, std::string_view word) {
  std::size_t count = 0;
  for (std::size_t at = text.find(word); at != std::string_view::npos;
       at = text.find(word, at + word.size())) {
    ++count;
  }
  return count;
}

}  // namespace

ScannedLog scanLog(std::string_view text) {
  ScannedLog log;
  // A binary list may contain any text.
  if (text.starts_with("bplist")) return log;
  // No single damaged byte hides all of these.
  log.xml = text.find("<key>") != std::string_view::npos ||
            text.find("<dict") != std::string_view::npos ||
            text.find("plist>") != std::string_view::npos || text.starts_with("<?xml");
  if (!log.xml) return log;
  for (const std::string_view mark :
       {"<key>base</key>", "<key>extra</key>", "<key>file_path</key>"}) {
    log.marks = std::max(log.marks, countOf(text, mark));
  }

  const std::size_t root = text.find("<dict");
  Cursor cursor(text.substr(std::min(root, text.size())));
  bool whole = false;
  if (cursor.take("<dict/>")) {
    whole = true;
  } else if (cursor.take("<dict>")) {
    for (cursor.skipBlanks(); !whole; cursor.skipBlanks()) {
      if (cursor.take("</dict>")) {
        whole = true;
        break;
      }
      const std::string_view before = cursor.rest();
      if (!cursor.takeEntry()) break;
      log.entries.push_back(before.substr(0, before.size() - cursor.rest().size()));
    }
  }
  cursor.skipBlanks();
  log.whole = whole && cursor.take("</plist>");
  cursor.skipBlanks();
  log.whole = log.whole && cursor.rest().empty();
  if (log.whole) return log;

  // An entry may begin at every key, so that a damaged entry does not hide those after it.
  log.entries.clear();
  std::string_view rest = text;
  while (true) {
    const std::size_t at = rest.find("<key>");
    if (at == std::string_view::npos) return log;
    rest.remove_prefix(at);
    Cursor entry(rest);
    if (entry.takeEntry()) {
      log.entries.push_back(rest.substr(0, rest.size() - entry.rest().size()));
      rest = entry.rest();
    } else {
      rest.remove_prefix(1);
    }
  }
}

}  // namespace qx
