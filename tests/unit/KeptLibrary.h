// A library for one test.
//
//     FakePlatform& platform = FakePlatform::kept();
//     Library& library = keptLibrary(platform.seams());
//
// Threads: only for the test's own thread.
#pragma once

#include <memory>
#include <vector>

#include "Classes/Library.h"
#include "platform/Platform.h"

namespace qx {

/// Makes a library above `seams` that lives until the process ends, as the library of a host does,
/// because uploads that a test leaves under way may still refer to it.
inline Library& keptLibrary(const Platform& seams) {
  static auto& kept = *new std::vector<std::unique_ptr<Library>>;
  kept.push_back(std::make_unique<Library>(seams));
  return *kept.back();
}

}  // namespace qx
