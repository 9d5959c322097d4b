// With MPI: every bundled case under 2 and 3 ranks gives the same files, bit for bit (time
// stamps aside), as one process, and matches its expected results.
#ifdef ICTVCF_WITH_MPI

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "run/case_compare.h"
#include "test_support.h"

namespace ictvcf {
namespace {

namespace fs = std::filesystem;

std::string launcher(int ranks) {
  return "env OMP_NUM_THREADS=1 OMPI_MCA_rmaps_base_oversubscribe=1 '" ICTVCF_MPIEXEC
         "' --allow-run-as-root --oversubscribe -np " +
         std::to_string(ranks);
}

// Runs the case in a scratch copy; returns its status, standard output and every file it wrote.
std::map<std::string, std::string> outputs(const std::string& case_dir, const std::string& prefix) {
  testing::ScratchDir dir;
  std::vector<std::string> inputs;
  for (const auto& e : fs::directory_iterator(case_dir))
    if (e.is_regular_file() && e.path().filename() != "cmd") {
      fs::copy_file(e.path(), e.path().filename());
      inputs.push_back(e.path().filename().string());
    }
  std::string arg = testing::read_file(case_dir + "/cmd");
  arg = arg.substr(0, arg.find('\n'));
  const std::string cmd = prefix + " '" ICTVCF_EXE "' '" + arg + "' >.stdout 2>/dev/null";
  const int raw = std::system(cmd.c_str());
  std::map<std::string, std::string> out;
  out["<status>"] = std::to_string(WIFEXITED(raw) ? WEXITSTATUS(raw) : -1);
  for (const auto& e : fs::directory_iterator("."))
    if (std::find(inputs.begin(), inputs.end(), e.path().filename().string()) == inputs.end()) {
      std::stringstream in(testing::read_file(e.path().string()));
      std::string text, line;
      while (std::getline(in, line)) {
        text += testing::strip_stamp(line);
        text += '\n';
      }
      out[e.path().filename().string()] = text;
    }
  return out;
}

class MpiCase : public ::testing::TestWithParam<std::string> {};

TEST_P(MpiCase, SameFilesAsOneProcess) {
  const std::string dir = std::string(ICTVCF_TEST_CASES) + "/" + GetParam();
  const auto single = outputs(dir, "");
  for (int ranks : {2, 3}) {
    const auto many = outputs(dir, launcher(ranks));
    ASSERT_EQ(single.size(), many.size()) << ranks << " ranks";
    for (const auto& [name, content] : single)
      EXPECT_TRUE(many.count(name) && many.at(name) == content)
          << name << ", " << ranks << " ranks";
    for (const std::string& p : testing::check_case(ICTVCF_EXE, dir, 1e-8, 1e-5, launcher(ranks)))
      ADD_FAILURE() << ranks << " ranks: " << p;
  }
}

std::vector<std::string> case_names() {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(ICTVCF_TEST_CASES))
    if (fs::exists(e.path() / "cmd")) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

INSTANTIATE_TEST_SUITE_P(Cases, MpiCase, ::testing::ValuesIn(case_names()), [](const auto& info) {
  std::string n = info.param;
  std::replace(n.begin(), n.end(), '-', '_');
  return n;
});

// More ranks than time points: the ranks without a block take part and write nothing.
TEST(Mpi, MoreRanksThanTimePoints) {
  const std::string dir = std::string(ICTVCF_TEST_CASES) + "/three-modes";
  testing::ScratchDir scratch;
  for (const auto& e : fs::directory_iterator(dir))
    if (e.is_regular_file()) fs::copy_file(e.path(), e.path().filename());
  std::string inp = testing::read_file("ic.inp");
  inp.replace(inp.find("tmax     = 100 fs"), 17, "tmax     = 10 fs ");
  testing::write_file("ic.inp", inp);
  const std::string base = fs::current_path().string();
  const auto single = outputs(base, "");
  const auto many = outputs(base, launcher(3));
  EXPECT_EQ(single, many);
  EXPECT_NE(single.at("ft.dat").find("#time(fs)"), std::string::npos);
}

}  // namespace
}  // namespace ictvcf

#endif
