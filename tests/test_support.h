// Shared test helpers: a scratch working directory, file writing and reading.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

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

// The dot-files of the current directory, sorted.
inline std::vector<std::string> dot_files() {
  std::vector<std::string> r;
  for (const auto& e : std::filesystem::directory_iterator("."))
    if (e.path().filename().string()[0] == '.') r.push_back(e.path().filename().string());
  std::sort(r.begin(), r.end());
  return r;
}

}  // namespace ictvcf::testing
