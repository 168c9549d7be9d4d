// The command line of qxuploader: it reads flags and settings and runs one command.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ActionsCommand.h"
#include "Advice.h"
#include "BackgroundCommand.h"
#include "ConfigCommand.h"
#include "DownloadCommand.h"
#include "Interrupts.h"
#include "Output.h"
#include "Settings.h"
#include "StatusCommand.h"
#include "TasksCommand.h"
#include "Text.h"
#include "UploadCommand.h"
#include "WatchCommand.h"
#include "platform/Files.h"
#include "platform/Url.h"
#include "platform/UserInfo.h"

namespace qx::app {
namespace {

struct CommandLine {
  std::map<std::string, std::string> flags;
  std::optional<std::string> configFile;
  bool json = false;
  bool verbose = false;
  bool forget = false;
  UploadOptions upload;
  BackgroundOptions background;
  BackgroundOptions image;
  ImageItem imageItem;
  DownloadOptions download;
  WatchOptions watch;
  /// The options of "tasks drop" and "tasks retry".
  std::vector<std::string> taskNames;
};

std::string example(const std::string& text) {
  return "Example:\n  " + text;
}

/// Texts such as "key=value".
const CLI::Validator kField(
    [](std::string& text) {
      const std::size_t equals = text.find('=');
      return equals == std::string::npos || equals == 0 ? "\"" + text + "\" is not KEY=VALUE" : "";
    },
    "", "field");

void addSettings(CLI::App& app, CommandLine& line) {
  for (const SettingKey& setting : kSettings) {
    app.add_option_function<std::string>(
           setting.flag(),
           [&line, key = std::string(setting.key)](const std::string& value) {
             line.flags[key] = value;
           },
           std::string(setting.help))
        ->type_name(std::string(setting.argument))
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->group("Settings (also QXUPLOADER_... and the configuration file)");
  }
  app.add_option("--config", line.configFile, "a TOML file with settings")
      ->type_name("FILE")
      ->group("Settings (also QXUPLOADER_... and the configuration file)");
}

void addScope(CLI::App& command, std::string& scope, bool required = true) {
  CLI::Option* option =
      command.add_option("--scope", scope, "the upload scope, as the backend names it")
          ->type_name("SCOPE");
  if (required) option->required();
}

void addConcurrent(CLI::App& command, std::optional<std::int64_t>& concurrent) {
  command.add_option("--concurrent", concurrent, "uploads at once (6)")
      ->type_name("N")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{1000}));
}

CLI::Option* addForget(CLI::App& command, CommandLine& line) {
  return command.add_flag("--forget", line.forget, "drop the tasks that earlier runs stored");
}

const CLI::Range kItemId(std::int64_t{1}, std::numeric_limits<std::int64_t>::max());

void addUpload(CLI::App& app, CommandLine& line) {
  CLI::App* command = app.add_subcommand("upload", "upload files now and print their addresses");
  command->footer(example("qxuploader upload portrait.jpg --scope avatar --server-resize"));
  UploadOptions& options = line.upload;
  command->add_option("FILE", options.files, "files to upload")->type_name("")->required();
  addScope(*command, options.scope);
  command->add_option("--item-id", options.item.itemId, "the item the files belong to")
      ->type_name("N");
  command->add_option("--item-type", options.item.itemType, "the item's type, for its tags")
      ->type_name("T");
  command->add_option("--image-from", options.item.imageFrom, "the image's source, for its tags")
      ->type_name("N");
  command->add_option("--tag", options.item.tags, "a tag of the item; may be repeated")
      ->type_name("A")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command->add_option("--field", options.item.fields, "a field of the item; may be repeated")
      ->type_name("K=V")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(kField);
  command->add_flag("--server-resize", options.serverResize,
                    "through the upload server, which stores a smaller WebP image");
  addForget(*command, line)->group("");  // --forget has no effect here.
}

void addBackground(CLI::App& app, CommandLine& line) {
  CLI::App* command = app.add_subcommand(
      "background", "store files as tasks and upload them; what fails stays stored");
  command->footer(example("qxuploader background holiday/ --scope item-image --wait") +
                  "\nGo on with what earlier runs stored:\n  qxuploader background --wait");
  BackgroundOptions& options = line.background;
  command->add_option("FILE", options.paths, "files, or directories with files")->type_name("");
  addScope(*command, options.scope, false);
  addConcurrent(*command, options.concurrent);
  command->add_flag("--wait", options.wait,
                    "until nothing is stored any more: what fails is tried again every minute, "
                    "ten times at most");
  addForget(*command, line);
}

void addBackgroundImage(CLI::App& app, CommandLine& line) {
  CLI::App* command = app.add_subcommand(
      "background-image", "upload an item's original images and tell the backend where they are");
  command->footer(
      example("qxuploader background-image front.jpg --scope item-image --item-id 17 --tag blue"));
  BackgroundOptions& options = line.image;
  command->add_option("FILE", options.paths, "images")->type_name("")->required();
  addScope(*command, options.scope);
  command->add_option("--item-id", line.imageItem.itemId, "the item the images belong to")
      ->type_name("N")
      ->required()
      ->check(kItemId);
  command->add_flag("--det", line.imageItem.det, "report them as the item's det images");
  command->add_option("--tag", line.imageItem.tags, "a tag of the item; may be repeated")
      ->type_name("A")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  addConcurrent(*command, options.concurrent);
  command->add_flag("--wait", options.wait, "until nothing is stored any more");
  addForget(*command, line);
}

void addDownload(CLI::App& app, CommandLine& line) {
  CLI::App* command = app.add_subcommand("download", "download objects by their addresses");
  command->footer(
      example("qxuploader download https://store.example.com/photos/a.jpg --scope avatar "
              "--output ."));
  DownloadOptions& options = line.download;
  command->add_option("URL", options.urls, "addresses as the upload printed them")
      ->type_name("")
      ->required();
  addScope(*command, options.scope);
  command
      ->add_option("--output", options.output,
                   "where to put the files; otherwise they stay in the cache directory")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory);
  addForget(*command, line)->group("");
}

void addTasks(CLI::App& app, CommandLine& line) {
  CLI::App* tasks = app.add_subcommand("tasks", "list stored tasks, try them again, drop them");
  tasks->require_subcommand(1);
  tasks->footer(example("qxuploader tasks list") + "\n  qxuploader tasks drop 1700000000-41.jpg");
  tasks->add_subcommand("list", "tell the stored tasks, each with its name first")
      ->footer(example("qxuploader tasks list --json"));
  const auto addNamed = [&](const char* name, const char* help) {
    CLI::App* command = tasks->add_subcommand(name, help);
    command->footer(example("qxuploader tasks " + std::string(name) + " 1700000000-41.jpg"));
    command->add_option("NAME", line.taskNames, "names as \"tasks list\" tells them")
        ->type_name("")
        ->required();
  };
  addNamed("retry", "give stored tasks all their attempts back and try them now");
  addNamed("drop", "remove stored tasks with their data");
}

void addOthers(CLI::App& app, CommandLine& line) {
  app.add_subcommand("status", "tell what is stored and not yet uploaded")
      ->footer(example("qxuploader status --verbose"));
  CLI::App* watch = app.add_subcommand("watch", "upload each new image of a directory");
  watch->footer(example("qxuploader watch ~/camera --scope item-image"));
  watch->add_option("DIR", line.watch.directory, "the directory")
      ->type_name("")
      ->required()
      ->check(CLI::ExistingDirectory);
  addScope(*watch, line.watch.scope);
  addConcurrent(*watch, line.watch.concurrent);
  addForget(*watch, line);
  app.add_subcommand("actions", "take actions as JSON lines, print what happens as JSON lines")
      ->footer(example("echo '{\"action\":\"SetUp:\",\"params\":{\"needServerResize\":false}}' | "
                       "qxuploader actions") +
               "\nThe manual page qxuploader(1) describes the lines.");
  app.add_subcommand("config", "show the settings in force and where each came from")
      ->footer(example("QXUPLOADER_USER_ID=42 qxuploader config"));
}

int wrongUsage(const std::string& message) {
  std::fprintf(stderr, "qxuploader: %s\n", printable(message).c_str());
  return kWrongUsage;
}

std::string missing(std::string_view key) {
  for (const SettingKey& setting : kSettings) {
    if (setting.key == key) {
      return "the setting " + std::string(key) + " is missing; give " + setting.flag() + ", " +
             setting.environmentVariable() + " or a line in " + Settings::userConfigFile();
    }
  }
  return {};
}

/// The fault of the user id, which names a directory, or an empty text.
std::string faultOfUserId(const Settings& settings) {
  const auto userId = settings.get("user_id");
  if (!userId) return missing("user_id");
  if (isPlainPathComponent(*userId)) return {};
  return settings.entry("user_id").origin + ": a user id cannot be \"" + *userId + "\"";
}

/// The fault of the settings that every transfer needs, or an empty text.
std::string faultOfSettings(const Settings& settings, bool hasToken, bool needsUploadServer) {
  if (std::string wrong = faultOfUserId(settings); !wrong.empty()) return wrong;
  if (!hasToken) return missing("token") + " (or token_command)";
  if (!settings.get("backend")) return missing("backend");
  if (needsUploadServer && !settings.get("upload_server")) return missing("upload_server");
  for (const std::string_view key : {"backend", "upload_server", "store"}) {
    const auto url = settings.get(key);
    if (!url) continue;
    const std::optional<Url> address = Url::parse(*url);
    if (!address || !address->isHttp()) {
      return settings.entry(key).origin + ": " + std::string(key) + " is \"" +
             withoutUserInfo(*url, "***", false) + "\", not an http:// or https:// address";
    }
  }
  return {};
}

template <typename Command, typename... Arguments>
int run(Arguments&&... arguments) {
  return Command(std::forward<Arguments>(arguments)...).run();
}

int runTransfer(const std::string& name, CommandLine& line, const Context& context) {
  if (name == "upload") return run<UploadCommand>(context, line.upload);
  if (name == "background") return run<BackgroundCommand>(context, line.background);
  if (name == "tasks retry") {
    line.background.retried = line.taskNames;
    return run<BackgroundCommand>(context, line.background);
  }
  if (name == "background-image") {
    line.image.image = line.imageItem;
    return run<BackgroundCommand>(context, line.image);
  }
  if (name == "download") return run<DownloadCommand>(context, line.download);
  return run<WatchCommand>(context, line.watch);
}

/// Runs a command that sends nothing.
int runStored(const std::string& name, const CommandLine& line, const Context& context) {
  Interrupts::block();
  if (name == "status") return run<StatusCommand>(context);
  if (name == "tasks list") return run<TasksListCommand>(context);
  return run<TasksDropCommand>(context, line.taskNames);
}

int runCommand(const std::string& name, CommandLine& line) {
  Settings settings;
  if (const auto fault = Settings::load(line.flags, line.configFile, settings)) {
    return wrongUsage(fault->message);
  }
  Output out(line.json);
  if (name == "config") return runConfig(settings, out);
  if (name == "status" || name == "tasks list" || name == "tasks drop") {
    const std::string wrong = faultOfUserId(settings);
    if (!wrong.empty()) return wrongUsage(wrong);
    return runStored(name, line, {settings, out, "", line.verbose});
  }

  SettingsFault fault;
  const auto token = settings.token(fault);
  if (!fault.message.empty()) {
    out.failure({{"event", "failed"}, {"error", fault.message}}, fault.message);
    return kSomeFailed;
  }
  const Context context = {settings, out, token.value_or(""), line.verbose, line.forget};
  if (name == "actions") {
    const std::string unusable = faultOfPlatform(settings);
    if (!unusable.empty()) return wrongUsage(unusable);
    Interrupts::block();
    return run<ActionsCommand>(context);
  }
  if (name == "background") {
    if (line.background.paths.empty() && !line.background.wait) {
      return wrongUsage("name files to upload, or give --wait to go on with what is stored");
    }
    if (!line.background.paths.empty() && line.background.scope.empty()) {
      return wrongUsage("--scope is required with files");
    }
  }
  const std::string missing =
      faultOfSettings(settings, token.has_value(), name == "upload" && line.upload.serverResize);
  if (!missing.empty()) return wrongUsage(missing);
  const std::string unusable = faultOfPlatform(settings);
  if (!unusable.empty()) return wrongUsage(unusable);
  Interrupts::block();
  return runTransfer(name, line, context);
}

/// Where many values are allowed, the parser takes an argument "[a,b]" for a list of two. A mark
/// after the bracket hides it until the values are read.
constexpr char kMark = '\x1f';

std::vector<std::string> markedArguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  for (std::string& argument : arguments) {
    if (argument.ends_with(']') || argument.ends_with(kMark)) argument += kMark;
  }
  std::reverse(arguments.begin(), arguments.end());  // In the order that the parser wants.
  return arguments;
}

void removeMarks(CLI::App& command) {
  for (CLI::Option* option : command.get_options()) {
    option->transform(CLI::Validator(
        [](std::string& value) {
          if (value.ends_with(kMark)) value.pop_back();
          return std::string();
        },
        ""));
  }
}

void prepare(CLI::App& app) {
  removeMarks(app);
  for (CLI::App* command : app.get_subcommands({})) {
    command->fallthrough();
    prepare(*command);
  }
}

/// A file that this program opens must not become its standard input or output.
void openStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free descriptor is the missing one.
    if (::fcntl(fd, F_GETFD) == -1) (void)::open("/dev/null", O_RDWR);
  }
}

int start(int argc, char** argv) {
  CommandLine line;
  CLI::App app(
      "Uploads files to an object store with the credentials of an application's backend, "
      "and downloads them.",
      "qxuploader");
  app.set_version_flag("--version", std::string("qxuploader ") + QX_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  app.add_flag("--json", line.json, "one JSON object per event");
  app.add_flag("--verbose", line.verbose,
               "show the library's log records (environment test only); status: file by file");
  addSettings(app, line);
  addUpload(app, line);
  addBackground(app, line);
  addBackgroundImage(app, line);
  addDownload(app, line);
  addTasks(app, line);
  addOthers(app, line);
  app.footer(
      "Exit status: 0 all done, 1 some failed, 2 wrong usage, 130 interrupted.\n"
      "The manual page qxuploader(1) tells more.");
  prepare(app);
  try {
    app.parse(markedArguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    if (app.get_subcommands().empty() && argc > 1 && *argv[1] != '-') {
      return wrongUsage("no command is named \"" + std::string(argv[1]) +
                        "\"; \"qxuploader --help\" lists them");
    }
    if (error.get_exit_code() == 0) {
      // The help is not written straight to standard output, because the end of the program checks
      // whether all output could be written.
      std::ostringstream text;
      const int status = app.exit(error, text, text);
      std::fputs(text.str().c_str(), stdout);
      return status;
    }
    return wrongUsage(error.what() + std::string("; \"--help\" tells more"));
  }
  std::string name;
  for (const CLI::App* command = &app; !command->get_subcommands().empty();) {
    command = command->get_subcommands().front();
    name += (name.empty() ? "" : " ") + command->get_name();
  }
  return runCommand(name, line);
}

}  // namespace
}  // namespace qx::app

int main(int argc, char** argv) {
  qx::app::openStandardDescriptors();
  int status = qx::app::start(argc, argv);
  if (const auto failure = qx::app::Output::writeFailure()) {
    std::fprintf(stderr, "qxuploader: standard output could not be written: %s\n",
                 failure->c_str());
    if (status == qx::app::kAllDone) status = qx::app::kSomeFailed;
  }
  return status;
}
