// A signed-in host, and a backend that knows one scope. Every test of an upload or download needs
// both.
//
// Threads: everything runs on the test's own thread, in run().
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {

inline constexpr const char* kGetUploadConfig = "v3/storage/get_upload_config";

class UploadFixture : public testing::Test {
 protected:
  UploadFixture() {
    platform.mediator.signIn("123456", "token", "https://backend.test");
    backendGives(record());
  }

  /// The credential record of the scope "avatar".
  static Dictionary record() {
    return {{"access_key_id", "KEY"},      {"access_key_secret", "SECRET"},
            {"security_token", "SESSION"}, {"expiration", 1'800'000'000},
            {"bucket", "photos"},          {"region", "eu-west-1"},
            {"authorized_path", "u/7/"},   {"download_url_prefix", "https://cdn.test"}};
  }
  static Dictionary recordWith(const std::string& key, Value value) {
    Dictionary changed = record();
    changed[key] = std::move(value);
    return changed;
  }
  void backendGives(Dictionary avatar) {
    platform.messageClients.answer(
        kGetUploadConfig,
        Dictionary{{"upload_token_map", Dictionary{{"avatar", std::move(avatar)}}}});
  }
  void run() { platform.dispatch.runUntilIdle(); }
  /// The key under which the utility of "avatar" is registered now.
  std::string utilityKey() {
    return "avatar" + library.configure.session.load()->configUUID.value_or("");
  }

  FakePlatform& platform = FakePlatform::kept();
  Library& library = keptLibrary(platform.seams());
};

/// Bytes that a test can recognise by their address, and whose end it can see.
struct TracedBytes {
  explicit TracedBytes(std::string content)
      : owner(std::make_shared<const std::string>(std::move(content))),
        place(reinterpret_cast<const std::byte*>(owner->data())),
        size(owner->size()) {}
  /// Yields the only handle. After this call nothing here keeps the bytes alive.
  Data give() {
    alive = owner;
    return Data(std::exchange(owner, nullptr), place, size);
  }

  std::shared_ptr<const std::string> owner;
  std::weak_ptr<const std::string> alive;
  const std::byte* place;
  std::size_t size;
};

}  // namespace qx
