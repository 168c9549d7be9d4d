// main() of every test binary: Google Test's own, plus a way to run many tests, each in a process
// of its own, without starting the binary for each test.
//
//     qx_unit_tests --gtest_list_tests        as ever
//     qx_unit_tests --each-in-a-child NAMES   the tests whose full names stand in the file, a line
//                                             each; under valgrind, a start costs more than a test
//
// Threads: the first process starts no thread, so that it may fork.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr unsigned kLongestSeconds = 300;

std::vector<std::string> linesOf(const char* path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

/// In the child process: true when the one test has run and passed.
bool passes(const std::string& name) {
  ::alarm(kLongestSeconds);
  GTEST_FLAG_SET(filter, name);
  const int status = RUN_ALL_TESTS();
  return status == 0 && testing::UnitTest::GetInstance()->successful_test_count() == 1;
}

/// In the parent process it yields 0 when all tests have passed, in a child process when its test
/// has.
int runEachInAChild(const std::vector<std::string>& names) {
  std::size_t passed = 0;
  for (const std::string& name : names) {
    std::cout.flush();
    const pid_t child = ::fork();
    if (child == 0) return passes(name) ? EXIT_SUCCESS : EXIT_FAILURE;
    int status = 0;
    if (child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
        WEXITSTATUS(status) == 0) {
      ++passed;
    } else {
      std::cout << "did not pass: " << name << std::endl;
    }
  }
  std::cout << "each in a child: " << passed << " passed, " << names.size() - passed << " failed"
            << std::endl;
  return passed == names.size() && passed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  // A death test starts the binary once more, with the arguments with which the binary was started.
  const bool inDeathTest = std::any_of(argv, argv + argc, [](std::string_view argument) {
    return argument.starts_with("--gtest_internal_run_death_test");
  });
  // A death test starts its process anew, for an earlier test may have left threads behind.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  testing::InitGoogleMock(&argc, argv);
  if (!inDeathTest && argc == 3 && std::string_view(argv[1]) == "--each-in-a-child") {
    return runEachInAChild(linesOf(argv[2]));
  }
  return RUN_ALL_TESTS();
}
