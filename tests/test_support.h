// Shared test helpers: a scratch working directory, file writing and reading, running the
// program.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "util/errors.h"

namespace ictvcf::testing {

// Runs the test inside a fresh empty directory, removed afterwards.
class ScratchDir {
 public:
  ScratchDir() {
    old_ = std::filesystem::current_path();
    char tmpl[] = "/tmp/ictvcf-test-XXXXXX";
    dir_ = mkdtemp(tmpl);
    std::filesystem::current_path(dir_);
  }
  ~ScratchDir() {
    std::filesystem::current_path(old_);
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  const std::filesystem::path& path() const { return dir_; }

 private:
  std::filesystem::path old_, dir_;
};

inline void write_file(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

inline std::string read_file(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

inline bool exists(const std::string& name) { return std::filesystem::exists(name); }

// An error's message as the program prints it (an input error with its file and line).
inline std::string message_of(const IoError& e) { return describe(e); }
inline std::string message_of(const std::exception& e) { return e.what(); }

// `statement` throws `exception`, whose message contains `text` (after {fmt}'s test helper).
#define EXPECT_THROW_MSG(statement, exception, text)                                  \
  do {                                                                                \
    try {                                                                             \
      statement;                                                                      \
      ADD_FAILURE() << "no " #exception " from " #statement "; expected: " << (text); \
    } catch (const exception& thrown) {                                               \
      const std::string said = ::ictvcf::testing::message_of(thrown);                 \
      EXPECT_NE(said.find(text), std::string::npos) << said;                          \
    }                                                                                 \
  } while (false)

// The dot-files of the current directory, sorted.
inline std::vector<std::string> dot_files() {
  std::vector<std::string> r;
  for (const auto& e : std::filesystem::directory_iterator("."))
    if (e.path().filename().string()[0] == '.') r.push_back(e.path().filename().string());
  std::sort(r.begin(), r.end());
  return r;
}

struct Result {
  int status;
  std::string out, err;
};

// Runs the program with `args` in the current directory (`env`: variable assignments for it), at
// most two minutes; its output goes through out.txt and err.txt, removed afterwards.
inline Result run_exe(const std::string& args, const std::string& env = "") {
  const std::string cmd = env + " timeout 120 '" + ICTVCF_EXE + "' " + args + " >out.txt 2>err.txt";
  const int raw = std::system(cmd.c_str());
  Result r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, read_file("out.txt"), read_file("err.txt")};
  std::filesystem::remove("out.txt");
  std::filesystem::remove("err.txt");
  return r;
}

}  // namespace ictvcf::testing
