// The system's Python as a second, independent implementation of formats.
#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "contract/TemporaryDirectory.h"

namespace qx {

/// Runs a script with `input` in the file sys.argv[1]. Returns the content of the file sys.argv[2],
/// or "<failed>".
inline std::string runPython(std::string_view script, std::string_view input) {
  const TemporaryDirectory directory;
  const auto path = [&](const char* name) { return directory.path() + "/" + name; };
  std::ofstream(path("script"), std::ios::binary) << script;
  std::ofstream(path("in"), std::ios::binary) << input;
  const std::string command =
      "/usr/bin/python3 " + path("script") + " " + path("in") + " " + path("out");
  if (std::system(command.c_str()) != 0) return "<failed>";
  std::ifstream out(path("out"), std::ios::binary);
  return {std::istreambuf_iterator<char>(out), std::istreambuf_iterator<char>()};
}

}  // namespace qx
