// With MPI: every bundled case under 2 and 3 ranks gives the same files, bit for bit (time
// stamps aside), as one process (which test_golden.cpp compares with the expected results).
#ifdef ICTVCF_WITH_MPI

#include <gtest/gtest.h>

#include <filesystem>

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

class MpiCase : public ::testing::TestWithParam<std::string> {};

TEST_P(MpiCase, SameFilesAsOneProcess) {
  const std::string dir = std::string(ICTVCF_TEST_CASES) + "/" + GetParam();
  const auto single = testing::run_case(ICTVCF_EXE, dir);
  for (int ranks : {2, 3}) {
    const auto many = testing::run_case(ICTVCF_EXE, dir, launcher(ranks));
    ASSERT_EQ(single.size(), many.size()) << ranks << " ranks";
    for (const auto& [name, content] : single)
      EXPECT_TRUE(many.count(name) && many.at(name) == content)
          << name << ", " << ranks << " ranks";
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
  testing::write_file("cmd", "ic.inp\n");
  const std::string base = fs::current_path().string();
  const auto single = testing::run_case(ICTVCF_EXE, base);
  const auto many = testing::run_case(ICTVCF_EXE, base, launcher(3));
  EXPECT_EQ(single, many);
  EXPECT_NE(single.at("ft.dat").find("#time(fs)"), std::string::npos);
}

}  // namespace
}  // namespace ictvcf

#endif
