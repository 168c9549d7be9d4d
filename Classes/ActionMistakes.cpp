#include "Classes/ActionMistakes.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Classes/HostCallbacks.h"
#include "platform/Files.h"
#include "platform/Url.h"

namespace qx {
namespace {

struct Key {
  std::string_view name;
  /// The type that the value must have, in a developer's words.
  std::string_view type;
  bool (*fits)(const Dictionary& parameters, std::string_view name);
  bool required = false;
};

/// True when the reader `read`, such as readText, finds a value of its type.
template <auto read>
bool fits(const Dictionary& parameters, std::string_view name) {
  return read(parameters, name).has_value();
}

Key text(std::string_view name) {
  return {name, "a text", fits<readText>};
}
Key integer(std::string_view name) {
  return {name, "a 64-bit integer", fits<readInt>};
}
Key boolean(std::string_view name) {
  return {name, "a boolean", fits<readBool>};
}
Key bytes(std::string_view name) {
  return {name, "bytes (qx::Data)", fits<readData>};
}
Key texts(std::string_view name) {
  return {name, "a list of texts", fits<readTextList>};
}
Key dictionary(std::string_view name) {
  return {name, "a dictionary", fits<readDictionary>};
}
Key textMap(std::string_view name) {
  return {name, "a dictionary of texts", fits<readTextMap>};
}
template <typename Signature>
Key callback(std::string_view name, std::string_view type) {
  return {name, type, fits<readCallback<Signature>>};
}
Key required(Key key) {
  key.required = true;
  return key;
}

/// The keys that an action reads. Empty for an unknown action.
std::vector<Key> keysOf(std::string_view action) {
  if (action == "Action_SetUp:") {
    return {required(boolean("needServerResize")), boolean("resumeStoredTasks")};
  }
  if (action == "Action_SetMaxBackgroundConcurrent:") return {required(integer("count"))};
  if (action == "Action_RegisterBackground:") {
    return {required(callback<HostBackgroundCallback>(
        "callback", "a callback of the type qx::HostBackgroundCallback"))};
  }
  if (action == "Action_Upload:") {
    return {required(text("scope")),
            required(callback<HostUploadComplete>("complete",
                                                  "a callback of the type qx::HostUploadComplete")),
            required(bytes("data")),
            required(text("suffix")),
            text("itemType"),
            text("itemId"),
            integer("imageFrom"),
            texts("tags"),
            dictionary("fields"),
            boolean("disableToPQS"),
            text("tag")};
  }
  if (action == "Action_BackgroundUpload:") {
    return {required(text("scope")),  required(bytes("data")),
            required(text("suffix")), textMap("extra"),
            text("itemType"),         text("itemId"),
            integer("imageFrom"),     texts("tags"),
            dictionary("fields"),     text("tag")};
  }
  if (action == "Action_BackgroundUploadImage:") {
    return {required(text("scope")),
            required(bytes("data")),
            required(text("itemId")),
            required(text("suffix")),
            text("useDetUpload"),
            boolean("updatePQS"),
            texts("tags"),
            dictionary("fields"),
            text("tag")};
  }
  if (action == "Action_Download:") {
    return {required(text("url")), required(text("scope")),
            callback<HostDownloadProgress>("progress",
                                           "a callback of the type qx::HostDownloadProgress"),
            callback<HostDownloadComplete>("complete",
                                           "a callback of the type qx::HostDownloadComplete"),
            text("destination")};
  }
  if (action == "Action_Observe:") {
    return {required(callback<HostEvents>("events", "a callback of the type qx::HostEvents"))};
  }
  if (action == "Action_List:") {
    return {
        required(callback<HostTaskList>("complete", "a callback of the type qx::HostTaskList"))};
  }
  if (action == "Action_Pause:") return {boolean("cancelRunning")};
  if (action == "Action_Cancel:" || action == "Action_Retry:" || action == "Action_Drop:") {
    return {required(texts("names"))};
  }
  if (action == "Action_WhenIdle:") {
    return {required(callback<HostIdle>("complete", "a callback of the type qx::HostIdle"))};
  }
  return {};
}

std::string quoted(std::string_view name) {
  return "\"" + std::string(name) + "\"";
}

/// The reason why a value of the right type cannot be used, or nothing.
std::optional<std::string> unusable(std::string_view action, const Dictionary& parameters,
                                    ImageHeaders& imageHeaders) {
  if (readText(parameters, "suffix").value_or("").starts_with('.')) {
    return " wants \"suffix\" without the dot before it.";
  }
  if (action == "Action_BackgroundUploadImage:") {
    const std::optional<Data> data = readData(parameters, "data");
    if (data && !imageHeaders.size(*data)) {
      return " cannot read the bytes under \"data\" as an image.";
    }
  }
  if (action == "Action_Download:") {
    const std::optional<std::string> address = readText(parameters, "url");
    const std::optional<Url> url = address ? Url::parse(*address) : std::nullopt;
    if (address && (!url || !isPlainPathComponent(url->lastPathComponent()))) {
      return " wants a URL that ends in a file name under \"url\"; it does not call \"complete\".";
    }
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::string> ActionMistakes::inParameters(std::string_view action,
                                                      const Dictionary& parameters,
                                                      ImageHeaders& imageHeaders) {
  const std::vector<Key> keys = keysOf(action);
  if (keys.empty()) return {};
  std::vector<std::string> found;
  for (const Key& key : keys) {
    if (key.fits(parameters, key.name)) continue;
    if (parameters.contains(key.name)) {
      found.push_back(quoted(action) + " wants " + quoted(key.name) + " to be " +
                      std::string(key.type) + (key.required ? "." : ", and goes on without it."));
    } else if (key.required) {
      found.push_back(quoted(action) + " misses " + quoted(key.name) + ", " +
                      std::string(key.type) + ".");
    }
  }
  for (const auto& [name, value] : parameters) {
    if (std::ranges::find(keys, name, &Key::name) == keys.end()) {
      found.push_back(quoted(action) + " does not read " + quoted(name) + ".");
    }
  }
  if (auto sentence = unusable(action, parameters, imageHeaders)) {
    found.push_back(quoted(action) + *std::move(sentence));
  }
  return found;
}

}  // namespace qx
