#include "Classes/UserTaskStorage.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <limits>
#include <set>
#include <string_view>
#include <utility>

#include "Classes/Log.h"
#include "Classes/LogScanner.h"

namespace qx {
namespace {

constexpr std::string_view kSource = "QXAwsUploader/UserTaskStorage";
constexpr std::string_view kRootDirectory = "aws-0011/";
constexpr std::string_view kLogName = "logs.plist";
constexpr std::string_view kAsideSuffix = ".damaged-";
constexpr std::string_view kUnloggedFolder = "unlogged-";
/// No number of attempts reaches this count.
constexpr std::int64_t kImpossibleCount = std::numeric_limits<std::int32_t>::max();
constexpr std::string_view kDictStart = "<dict>\n";
constexpr std::string_view kDictEnd = "</dict>\n";

using UntypedMap = std::map<std::string, std::map<std::string, std::map<std::string, Value>>>;

Value valueOf(const AWSBasicParameter& parameter) {
  if (const auto* v = parameter.asInt()) return *v;
  if (const auto* v = parameter.asUInt()) return *v;
  if (const auto* v = parameter.asFloat()) return double{*v};
  if (const auto* v = parameter.asDouble()) return *v;
  return *parameter.asText();
}

Value valueOf(const AWSLogEntry& entry) {
  Dictionary sections;
  for (const auto& [name, values] : entry) {
    Dictionary section;
    for (const auto& [key, value] : values) section.emplace(key, valueOf(value));
    sections.emplace(name, std::move(section));
  }
  return sections;
}

/// The log in a decoded property list. Empty when any part of the list has another shape.
AWSLogMap logOf(const Value& root) {
  const Dictionary* entries = root.asDictionary();
  if (entries == nullptr) return {};
  UntypedMap map;
  for (const auto& [filename, entry] : *entries) {
    const Dictionary* sections = entry.asDictionary();
    if (sections == nullptr) return {};
    auto& info = map[filename];
    for (const auto& [name, section] : *sections) {
      const Dictionary* values = section.asDictionary();
      if (values == nullptr) return {};
      info[name].insert(values->begin(), values->end());
    }
  }
  return AWSBasicParameterConvert(map);
}

AWSLogMap decodeLog(PropertyLists& lists, const Data& bytes) {
  const Result<Value> root = lists.decode(bytes);
  return root ? logOf(*root) : AWSLogMap();
}

bool decodesToDictionary(PropertyLists& lists, const Data& bytes) {
  const Result<Value> root = lists.decode(bytes);
  return root && root->asDictionary() != nullptr;
}

/// The entries in the text of a record: one, or none when the text cannot be read.
AWSLogMap entriesOf(PropertyLists& lists, std::string_view text) {
  std::string document;
  for (const std::string_view piece :
       {lists.documentStart(), kDictStart, text, kDictEnd, lists.documentEnd()}) {
    document += piece;
  }
  return decodeLog(lists, Data(std::move(document)));
}

AWSLogEntry entryOf(PropertyLists& lists, const std::string& filename, std::string_view text) {
  AWSLogMap log = entriesOf(lists, text);
  const auto entry = log.find(filename);
  return entry == log.end() ? AWSLogEntry() : std::move(entry->second);
}

/// The values of an entry that are numbers other than signed integers. A property list does not
/// tell a float from a double, and a real with an integral value or a small unsigned integer is
/// read as a signed integer. Null when there are none.
std::unique_ptr<const AWSLogEntry> otherNumbers(const AWSLogEntry& entry) {
  AWSLogEntry found;
  for (const auto& [section, values] : entry) {
    for (const auto& [key, value] : values) {
      if (!value.asText() && !value.asInt()) found[section].emplace(key, value);
    }
  }
  return found.empty() ? nullptr : std::make_unique<const AWSLogEntry>(std::move(found));
}

/// True for the name of a copy of a damaged log.
bool isDamagedLogName(const std::string& name) {
  return name.starts_with(std::string(kLogName) + std::string(kAsideSuffix));
}

/// True when toInt() can convert the value. A foreign log may hold numbers for which toInt() is
/// fatal.
bool convertsToInt(const AWSBasicParameter& parameter) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  const auto fits = [](double v) { return v >= -kLimit && v < kLimit; };
  if (const auto* v = parameter.asUInt()) {
    return *v <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  }
  if (const auto* v = parameter.asFloat()) return fits(double{*v});
  if (const auto* v = parameter.asDouble()) return fits(*v);
  return true;
}

Error unusableName(const std::string& filename) {
  return {"Files", 0, "\"" + filename + "\" cannot name a stored file of this user"};
}

}  // namespace

UserTaskStorage::UserTaskStorage(const Platform& platform, std::string userId,
                                 StoredTasks storedTasks)
    : UserTaskStorage(platform, std::move(userId), storedTasks, Unreported()) {
  report();
}

UserTaskStorage::UserTaskStorage(const Platform& platform, std::string userId,
                                 StoredTasks storedTasks, Unreported /*unreported*/)
    : platform_(platform),
      userId_(std::move(userId)),
      durability_(storedTasks == StoredTasks::resume ? Durability::synced : Durability::cached) {
  if (storedTasks == StoredTasks::readOnly) return;
  makeUserRootDir();
  if (storedTasks == StoredTasks::startEmpty) return;
  const Resumed resumed = resumeLog(/*opening=*/true);
  resumed_ = resumed != Resumed::no;
  if (resumed == Resumed::changed) writeShared();
}

std::shared_ptr<UserTaskStorage> UserTaskStorages::open(const std::string& userId,
                                                        StoredTasks storedTasks) {
  if (storedTasks == StoredTasks::startEmpty) {
    return std::make_shared<UserTaskStorage>(platform_, userId);
  }
  std::shared_ptr<UserTaskStorage> storage;
  {
    // The lock is held while the log is read, so that no second storage of the user is made
    // meanwhile.
    MutexLock lock(mutex_);
    std::weak_ptr<UserTaskStorage>& known = resumed_[userId];
    storage = known.lock();
    if (!storage) {
      storage.reset(new UserTaskStorage(platform_, userId, StoredTasks::resume,
                                        UserTaskStorage::Unreported()));
      known = storage;
    }
  }
  storage->report();
  return storage;
}

bool UserTaskStorage::isUsable(const std::string& filename, const AWSLogEntry& entry) const {
  const std::shared_ptr<FileTask> rebuilt = task(filename, &entry);
  if (!rebuilt || !isDataFileName(filename)) return false;
  const AWSParameterMap& base = entry.at("base");
  const auto count = base.find("upload_count");
  return rebuilt->filePath() == relativePath(filename) && rebuilt->uploadCount() >= 0 &&
         rebuilt->uploadCount() < kImpossibleCount &&
         (count == base.end() || convertsToInt(count->second));
}

UserTaskStorage::Resumed UserTaskStorage::resumeLog(bool opening) {
  if (!userDirPathExist()) {
    fault_.store(Error{"Files", ENOENT, "the directory " + userDirPath() + " cannot be made"});
    return Resumed::no;
  }
  if (!takeLock()) return Resumed::no;
  Files& files = platform_.files;
  const Result<Data> bytes = files.read(logPath());
  // Any other error may hide an existing log.
  if (!bytes && bytes.error().code != ENOENT) {
    noteRefusedLink(bytes.error());
    fault_.store(bytes.error());
    return Resumed::no;
  }

  AWSLogMap entries = bytes ? decodeLog(platform_.propertyLists, *bytes) : AWSLogMap();
  bool intact = true;
  std::size_t lost = 0;
  if (bytes) {
    const ScannedLog scanned = scanLog(bytes->text());
    intact = scanned.xml ? scanned.whole && scanned.entries.size() == entries.size()
                         : !entries.empty() || decodesToDictionary(platform_.propertyLists, *bytes);
    for (const auto& [filename, entry] : entries) intact = intact && isUsable(filename, entry);
    if (!intact) {
      entries = wholeEntries(scanned, entries);
      lost = std::max(scanned.marks, entries.size()) - entries.size();
    }
  }
  const std::size_t kept = entries.size();

  // An entry without its file belongs to a task that was being deleted. Without the list of names
  // this is unknown.
  const Result<std::vector<std::string>> names = files.list(userDirPath());
  bool changed = !intact;
  if (names) {
    const std::set<std::string_view> present(names->begin(), names->end());
    changed |= std::erase_if(entries,
                             [&](const auto& entry) { return !present.contains(entry.first); }) > 0;
  }
  Records read;
  read.reserve(entries.size());
  for (const auto& [filename, entry] : entries) read.push_back(makeRecord(filename, entry));
  add(read);

  const std::vector<std::string> unlogged =
      names ? unloggedFiles(*names) : std::vector<std::string>();
  if (intact) {
    // Somebody who examines a damaged log may want the files that it names.
    if (opening && names && std::ranges::none_of(*names, isDamagedLogName)) {
      removeUnfinishedWrites(*names);
      moveAside(unlogged);
    }
    return changed ? Resumed::changed : Resumed::asItStands;
  }
  // An empty log names no entry, but the data files show that there were some.
  lost = std::max(lost, unlogged.size());
  const bool aside = setAside(*bytes);
  if (aside || opening) {
    note(std::string("[Error] damaged log ") + (aside ? "" : "could not be ") + "set aside, " +
         std::to_string(kept) + " kept, " + std::to_string(lost) + " lost");
  }
  if (!aside) fault_.store(Error{"Files", 0, logPath() + " is damaged and cannot be set aside"});
  return aside ? Resumed::changed : Resumed::no;
}

bool UserTaskStorage::takeLock() {
  if (lock_) return true;
  Result<std::unique_ptr<FileLock>> taken = platform_.files.lock(userDirPath());
  if (taken) {
    lock_ = std::move(*taken);
    return true;
  }
  const Error& error = taken.error();
  // The file system has no locks. The operations on the log will show what is possible.
  if (error.code != EWOULDBLOCK && error.code != ELOOP) return true;
  noteRefusedLink(error);
  fault_.store(error.code == ELOOP
                   ? error
                   : Error{"Files", EWOULDBLOCK, userDirPath() + " is in use by another process"});
  return false;
}

void UserTaskStorage::note(std::string message) {
  MutexLock lock(snycLock_);
  unreported_.push_back(std::move(message));
}

void UserTaskStorage::noteRefusedLink(const Error& error) {
  if (error.code == ELOOP) note("[Error] " + error.description);
}

void UserTaskStorage::report() {
  std::vector<std::string> messages;
  {
    MutexLock lock(snycLock_);
    messages.swap(unreported_);
  }
  for (std::string& message : messages) {
    log(platform_, kLogError, std::move(message), kSource, "init(userId:)", __LINE__);
  }
}

AWSLogMap UserTaskStorage::wholeEntries(const ScannedLog& scanned, const AWSLogMap& decoded) const {
  AWSLogMap kept;
  const auto keep = [&](const AWSLogMap& entries) {
    for (const auto& [filename, entry] : entries) {
      if (isUsable(filename, entry)) kept.try_emplace(filename, entry);
    }
  };
  for (const std::string_view text : scanned.entries)
    keep(entriesOf(platform_.propertyLists, text));
  // These entries can be read although their text differs from ours: in a binary log, or with
  // values of other types.
  keep(decoded);
  return kept;
}

bool UserTaskStorage::setAside(const Data& damagedLog) {
  Files& files = platform_.files;
  int number = 1;
  const std::string aside = logPath() + std::string(kAsideSuffix);
  while (files.kind(aside + std::to_string(number)) != PathKind::absent) ++number;
  // The log is copied, not renamed, so that it always exists. After a crash here the next storage
  // finds the damaged log again.
  const std::string_view content = damagedLog.text();
  return !files.write(aside + std::to_string(number), {&content, 1}, WriteMode::atomic,
                      durability_);
}

void UserTaskStorage::removeUnfinishedWrites(const std::vector<std::string>& names) {
  Files& files = platform_.files;
  for (const std::string& name : names) {
    const std::string path = userDirPath() + "/" + name;
    if (name.starts_with(".qx-") && name.ends_with(".tmp") && files.kind(path) == PathKind::file) {
      files.remove(path);
    }
  }
}

std::vector<std::string> UserTaskStorage::unloggedFiles(
    const std::vector<std::string>& names) const {
  std::vector<std::string> unlogged;
  for (const std::string& name : names) {
    if (name.starts_with(".") || name == kLogName || isDamagedLogName(name) || find(name)) continue;
    if (platform_.files.kind(userDirPath() + "/" + name) == PathKind::file) {
      unlogged.push_back(name);
    }
  }
  return unlogged;
}

void UserTaskStorage::moveAside(const std::vector<std::string>& unlogged) {
  if (unlogged.empty()) return;
  Files& files = platform_.files;
  const auto pathOf = [&](int n) {
    return userDirPath() + "/" + std::string(kUnloggedFolder) + std::to_string(n);
  };
  int number = 1;
  while (files.kind(pathOf(number)) != PathKind::absent) ++number;
  std::size_t moved = 0;
  if (!files.createDirectory(pathOf(number))) {
    for (const std::string& name : unlogged) {
      if (!files.rename(userDirPath() + "/" + name, pathOf(number) + "/" + name)) ++moved;
    }
  }
  std::string message = "[Error] data files without a log entry: " + std::to_string(moved) +
                        " moved to " + std::string(kUnloggedFolder) + std::to_string(number);
  if (moved < unlogged.size()) {
    message += ", " + std::to_string(unlogged.size() - moved) + " could not be moved";
  }
  note(std::move(message));
}

std::string UserTaskStorage::relativePath(const std::string& filename) const {
  return std::string(kRootDirectory) + userId_ + "/" + filename;
}

std::string UserTaskStorage::userDirPath() const {
  return documentPath(platform_.files) + "/" + std::string(kRootDirectory) + userId_;
}

std::string UserTaskStorage::logPath() const {
  return userDirPath() + "/" + std::string(kLogName);
}

bool UserTaskStorage::isDataFileName(const std::string& filename) const {
  return isPlainPathComponent(userId_) && isPlainPathComponent(filename) && filename != kLogName;
}

bool UserTaskStorage::isDataFilePath(const std::string& path) const {
  const std::string directory = relativePath("");
  return path.starts_with(directory) && isDataFileName(path.substr(directory.size()));
}

void UserTaskStorage::createUserRootDir() {
  makeUserRootDir();
  report();
}

void UserTaskStorage::makeUserRootDir() {
  if (userDirPathExist()) return;
  if (!isPlainPathComponent(userId_)) {
    platform_.console.printLine("the user id cannot name a directory");
    return;
  }
  if (const auto error = platform_.files.createDirectory(userDirPath())) {
    platform_.console.printLine(error->description);
    noteRefusedLink(*error);
  }
}

bool UserTaskStorage::userDirPathExist() const {
  return isPlainPathComponent(userId_) &&
         platform_.files.kind(userDirPath()) == PathKind::directory;
}

std::shared_ptr<FileTask> UserTaskStorage::storageFile(const std::shared_ptr<Task>& task) {
  const Result<std::shared_ptr<FileTask>> stored = writeFile(task);
  return stored ? *stored : nullptr;
}

Result<std::shared_ptr<FileTask>> UserTaskStorage::writeFile(const std::shared_ptr<Task>& task) {
  if (task->hasPath()) return std::dynamic_pointer_cast<FileTask>(task);
  if (!isDataFileName(task->filename())) return unusableName(task->filename());
  const std::optional<Data> data = task->data();
  if (!data) return Error{"Files", 0, "the task has no bytes"};
  const std::string relative = relativePath(task->filename());
  const std::string_view content = data->text();
  auto error = platform_.files.write(documentPath(platform_.files) + "/" + relative, {&content, 1},
                                     WriteMode::plain, durability_);
  if (error) {
    logRefusedLink(platform_, *error, kSource, "storageFile(task:)", __LINE__);
    return *std::move(error);
  }
  return std::make_shared<FileTask>(platform_.files, task->filename(), task->scope(), relative,
                                    /*uploadCount=*/0, task->extra());
}

bool UserTaskStorage::storageLog(const FileTask& task) {
  return !writeEntry(task);
}

std::optional<Error> UserTaskStorage::writeEntry(const FileTask& task) {
  if (!isDataFileName(task.filename()) || !isDataFilePath(task.filePath())) {
    return unusableName(task.filename());
  }
  if (!update(task)) return Error{"Files", 0, "the extra values cannot be stored"};
  if (syncLog()) return std::nullopt;
  return whyUnwritten();
}

Error UserTaskStorage::whyUnwritten() const {
  if (auto fault = fault_.load()) return *std::move(fault);
  return writeError_.load().value_or(Error{"Files", 0, logPath() + " cannot be written"});
}

Result<std::shared_ptr<FileTask>> UserTaskStorage::store(const std::shared_ptr<Task>& task) {
  Result<std::shared_ptr<FileTask>> stored = writeFile(task);
  if (!stored) return stored;
  if (auto error = writeEntry(**stored)) {
    remove((*stored)->filename());
    return *std::move(error);
  }
  return stored;
}

bool UserTaskStorage::update(const FileTask& task) {
  if (!isDataFileName(task.filename()) || !isDataFilePath(task.filePath())) return false;
  AWSLogEntry entry;
  entry["base"] = {{"file_path", task.filePath()},
                   {"module_key", task.scope()},
                   {"upload_count", task.uploadCount()}};
  entry["extra"] = task.extra();
  const std::shared_ptr<const Record> record = makeRecord(task.filename(), entry);
  change(task.filename(), record);
  return !record->text.empty();
}

std::string UserTaskStorage::textOf(const std::string& filename, const AWSLogEntry& entry) const {
  PropertyLists& lists = platform_.propertyLists;
  const std::optional<std::string> name = lists.key(filename);
  const std::optional<std::string> dictionary = lists.element(valueOf(entry));
  std::string text;
  if (!name || !dictionary) return text;
  text.reserve(name->size() + dictionary->size());
  text += *name;
  text += *dictionary;
  return text;
}

std::shared_ptr<const UserTaskStorage::Record> UserTaskStorage::makeRecord(
    const std::string& filename, const AWSLogEntry& entry) const {
  auto record = std::make_shared<Record>();
  record->filename = filename;
  record->text = textOf(filename, entry);
  record->untold =
      record->text.empty() ? std::make_unique<const AWSLogEntry>(entry) : otherNumbers(entry);
  return record;
}

std::shared_ptr<const UserTaskStorage::Record> UserTaskStorage::find(
    const std::string& filename) const {
  const std::shared_ptr<const Records> records = logsMap_.load();
  const auto found = std::ranges::lower_bound(*records, filename, {}, &Record::filename);
  return found != records->end() && (*found)->filename == filename ? *found : nullptr;
}

void UserTaskStorage::change(const std::string& filename, std::shared_ptr<const Record> record) {
  MutexLock lock(stroageFileLock_);
  const std::shared_ptr<const Records> earlier = logsMap_.load();
  const auto at = std::ranges::lower_bound(*earlier, filename, {}, &Record::filename);
  const bool known = at != earlier->end() && (*at)->filename == filename;
  auto changed = std::make_shared<Records>();
  changed->reserve(earlier->size() + 1);
  changed->insert(changed->end(), earlier->begin(), at);
  if (record) changed->push_back(std::move(record));
  changed->insert(changed->end(), known ? std::next(at) : at, earlier->end());
  logsMap_.store(std::move(changed));
}

void UserTaskStorage::add(const Records& records) {
  MutexLock lock(stroageFileLock_);
  const std::shared_ptr<const Records> earlier = logsMap_.load();
  auto merged = std::make_shared<Records>();
  merged->reserve(earlier->size() + records.size());
  // Of two records of one file, the union keeps that of the first list.
  std::ranges::set_union(*earlier, records, std::back_inserter(*merged), {}, &Record::filename,
                         &Record::filename);
  logsMap_.store(std::move(merged));
}

bool UserTaskStorage::syncLog() {
  const bool written = writeShared();
  report();
  return written;
}

void UserTaskStorage::readLogAgain() {
  if (!resumed_) syncLog();
}

bool UserTaskStorage::writeShared() {
  std::uint64_t write = 0;
  {
    MutexLock lock(snycLock_);
    const std::uint64_t begunBefore = writesBegun_;
    while (writing_) {
      writeEnded_.wait(snycLock_);
      // A write that began after this call began contains all changes of the caller.
      if (lastGoodWrite_ > begunBefore) return true;
    }
    writing_ = true;
    write = ++writesBegun_;
  }
  const bool written = writeLog();
  {
    MutexLock lock(snycLock_);
    writing_ = false;
    if (written) lastGoodWrite_ = write;
  }
  writeEnded_.notifyAll();
  return written;
}

bool UserTaskStorage::writeLog() {
  if (!isPlainPathComponent(userId_)) return false;
  if (!resumed_) resumed_ = resumeLog(/*opening=*/false) != Resumed::no;
  if (!resumed_) return false;
  if (fault_.load()) fault_.store(std::nullopt);
  const std::shared_ptr<const Records> records = logsMap_.load();
  std::vector<std::string_view> pieces = {platform_.propertyLists.documentStart(), kDictStart};
  pieces.reserve(records->size() + 4);
  for (const auto& record : *records) {
    if (!record->text.empty()) pieces.push_back(record->text);
  }
  pieces.push_back(kDictEnd);
  pieces.push_back(platform_.propertyLists.documentEnd());
  const auto error = platform_.files.write(logPath(), pieces, WriteMode::atomic, durability_);
  if (error) noteRefusedLink(*error);
  writeError_.store(error);
  return !error;
}

AWSLogMap UserTaskStorage::localLogs() const {
  Result<AWSLogMap> entries = readLog();
  return entries ? std::move(*entries) : AWSLogMap();
}

Result<AWSLogMap> UserTaskStorage::readLog() const {
  if (!isPlainPathComponent(userId_)) return AWSLogMap();
  const Result<Data> bytes = platform_.files.read(logPath());
  if (!bytes) {
    if (bytes.error().code == ENOENT) return AWSLogMap();
    logRefusedLink(platform_, bytes.error(), kSource, "localLogs()", __LINE__);
    return bytes.error();
  }
  AWSLogMap entries = decodeLog(platform_.propertyLists, *bytes);
  if (entries.empty() && !decodesToDictionary(platform_.propertyLists, *bytes)) {
    return Error{"Files", 0, logPath() + " is damaged: it is no property list with a dictionary"};
  }
  return entries;
}

std::vector<std::shared_ptr<FileTask>> UserTaskStorage::localTasks() const {
  auto logged = readTasks();
  return logged ? std::move((*logged).tasks) : std::vector<std::shared_ptr<FileTask>>();
}

Result<UserTaskStorage::LoggedTasks> UserTaskStorage::readTasks() const {
  const Result<AWSLogMap> entries = readLog();
  if (!entries) return entries.error();
  LoggedTasks logged;
  for (const auto& [filename, info] : *entries) {
    std::shared_ptr<FileTask> rebuilt = task(filename, &info);
    if (!rebuilt || (resumes() && !isUsable(filename, info))) continue;
    const bool inside = isDataFileName(filename) && isDataFilePath(rebuilt->filePath());
    (inside ? logged.tasks : logged.strays).push_back(std::move(rebuilt));
  }
  return logged;
}

std::shared_ptr<FileTask> UserTaskStorage::task(const std::string& filename,
                                                const AWSLogEntry* info) const {
  if (info == nullptr || info->empty()) return nullptr;
  const auto base = info->find("base");
  if (base == info->end()) return nullptr;
  const auto path = base->second.find("file_path");
  const auto scope = base->second.find("module_key");
  if (path == base->second.end() || scope == base->second.end()) return nullptr;
  const auto count = base->second.find("upload_count");
  const bool counted = count != base->second.end() && convertsToInt(count->second);
  const auto extra = info->find("extra");
  return std::make_shared<FileTask>(platform_.files, filename, scope->second.toString(),
                                    path->second.toString(), counted ? count->second.toInt() : 0,
                                    extra == info->end() ? AWSParameterMap() : extra->second);
}

std::optional<AWSLogEntry> UserTaskStorage::entry(const std::string& filename) const {
  const std::shared_ptr<const Record> record = find(filename);
  if (!record) return std::nullopt;
  AWSLogEntry entry = record->text.empty()
                          ? AWSLogEntry()
                          : entryOf(platform_.propertyLists, filename, record->text);
  if (!record->untold) return entry;
  for (const auto& [section, values] : *record->untold) {
    for (const auto& [key, value] : values) entry[section].insert_or_assign(key, value);
  }
  return entry;
}

std::optional<std::string> UserTaskStorage::filePath(const std::string& filename) const {
  const std::optional<AWSLogEntry> info = entry(filename);
  if (!info) return std::nullopt;
  const auto base = info->find("base");
  if (base == info->end()) return std::nullopt;
  const auto path = base->second.find("file_path");
  if (path == base->second.end() || path->second.asText() == nullptr) return std::nullopt;
  return *path->second.asText();
}

bool UserTaskStorage::remove(const std::string& filename) {
  const std::optional<std::string> path = filePath(filename);
  if (!path || !deleteFile(*path)) return false;
  change(filename, nullptr);
  return syncLog();
}

std::map<std::string, Error> UserTaskStorage::removeAll(const std::vector<std::string>& filenames) {
  std::map<std::string, Error> failures;
  bool changed = false;
  for (const std::string& filename : filenames) {
    // The data file is removed first: an entry without a data file does no harm, and a full disk
    // gets room for the log.
    const std::optional<std::string> path = filePath(filename);
    if (auto error = eraseFile(path.value_or(relativePath(filename)))) {
      failures.emplace(filename, *std::move(error));
    } else if (path) {
      change(filename, nullptr);
      changed = true;
    }
  }
  if (changed && !syncLog()) {
    const Error error = whyUnwritten();
    for (const std::string& filename : filenames) failures.emplace(filename, error);
  }
  return failures;
}

bool UserTaskStorage::deleteFile(const std::string& path) {
  return !eraseFile(path);
}

std::optional<Error> UserTaskStorage::eraseFile(const std::string& path) {
  if (!isDataFilePath(path)) return unusableName(path);
  Files& files = platform_.files;
  const std::string absolute = documentPath(platform_.files) + "/" + path;
  if (files.kind(absolute) == PathKind::absent) return std::nullopt;
  auto error = files.remove(absolute);
  if (error) logRefusedLink(platform_, *error, kSource, "deleteFile(path:)", __LINE__);
  return error;
}

}  // namespace qx
