// A library of a test's own.
//
//     FakePlatform& platform = FakePlatform::kept();
//     Library& library = keptLibrary(platform.seams());
//
// Threads: the test's own.
#pragma once

#include <memory>
#include <vector>

#include "Classes/Library.h"
#include "platform/Platform.h"

namespace qx {

/// A new library above `seams`. It lives until the process ends, as a host's does: what a test
/// leaves under way may still refer to it.
inline Library& keptLibrary(const Platform& seams) {
  static auto& kept = *new std::vector<std::unique_ptr<Library>>;
  kept.push_back(std::make_unique<Library>(seams));
  return *kept.back();
}

}  // namespace qx
