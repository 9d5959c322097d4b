// Every input the fuzzers ever found a fault with, replayed through the same harness: each must
// end in a described outcome. Run under the sanitizers in CI, this also catches out-of-range
// reads and undefined behaviour that do not crash.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "harness.h"

namespace ictvcf {
namespace {

namespace fs = std::filesystem;

template <class F>
void replay(const std::string& target, F harness) {
  const fs::path dir = fs::path(ICTVCF_FUZZ_REGRESSIONS) / target;
  int count = 0;
  for (const auto& e : fs::directory_iterator(dir)) {
    if (!e.is_regular_file() || e.path().filename() == "README") continue;
    std::ifstream in(e.path(), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    SCOPED_TRACE(e.path().string());
    harness(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++count;
  }
  ::testing::Test::RecordProperty("inputs", count);
}

TEST(FuzzRegressions, InputBlock) { replay("input_block", fuzz::input_block); }
TEST(FuzzRegressions, DushinFile) { replay("dushin_file", fuzz::dushin_file); }
TEST(FuzzRegressions, CouplingFile) { replay("coupling_file", fuzz::coupling_file); }
TEST(FuzzRegressions, QuantumChemistryFiles) {
  replay("fchk_file", fuzz::fchk_file);
  replay("orca_hess_file", fuzz::orca_hess_file);
  replay("orca_output", fuzz::orca_output);
  replay("plain_coupling", fuzz::plain_coupling);
  replay("dipole_tables", fuzz::dipole_tables);
  replay("dipole_file", fuzz::dipole_file);
}

}  // namespace
}  // namespace ictvcf
