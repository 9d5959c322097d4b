// The quantum-chemistry readers: a coupling given three ways (checkpoint, ORCA output in another
// frame, plain list) giving the same couplings, and bad files reported with their line. (The ORCA
// Hessian layouts are read in prepare/test_real_files.cpp, 6 columns in F format, and
// prepare/test_internal.cpp, 5 in E format, against exact references.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "prepare/modes.h"
#include "prepare_support.h"
#include "test_support.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

using testing::moved;
using testing::qc_file;
using testing::rotation;
using testing::ScratchDir;
using testing::write_file;

TEST(QcFiles, CouplingGivenThreeWaysGivesTheSameCouplings) {
  const QcState s0 = read_qc_state(qc_file("coumarin/coumarin_s0.fchk"));
  const QcState s1 = read_qc_state(qc_file("coumarin/coumarin_s1.fchk"));
  const NacInput in_file{s1.file, s1.nac, NacGeometry::initial_state, {}, {}};
  const std::vector<double> ref = prepare_pair(s0, s1, &in_file).rif;
  double big = 0.0;
  for (double v : ref) big = std::max(big, std::fabs(v));

  ScratchDir dir;
  // An ORCA output in yet another frame: an earlier geometry (another state's), the geometry of
  // the couplings, the couplings, and a later geometry; only the block just before them counts.
  const double shift[3] = {1.0, 2.0, -4.0};
  const QcState t = moved(s1, rotation(2, -1, 1, 77.0), shift);
  auto coordinates = [](const QcState& q) {
    std::string b =
        "\n----------------------------\nCARTESIAN COORDINATES (A.U.)\n"
        "----------------------------\n  NO LB      ZA    FRAG     MASS         X"
        "           Y           Z\n";
    for (int a = 0; a < 17; ++a)
      b += printed("  %2d %-2s %8.4f %4d %10.3f %18.12f %18.12f %18.12f\n", a,
                   element_symbol(q.atomic_number[a]).c_str(), 1.0 * q.atomic_number[a], 0,
                   q.mass[a], q.x[3 * a], q.x[3 * a + 1], q.x[3 * a + 2]);
    return b;
  };
  std::string out = "ORCA output\n" + coordinates(s0) + coordinates(t);
  out +=
      "\n------------------------------------------\nCARTESIAN NON-ADIABATIC COUPLINGS\n"
      "         <S0|d/dx|S1>\n------------------------------------------\n\n";
  for (int a = 0; a < 17; ++a)
    out += printed("   %2d   %-2s :  %18.12f %18.12f %18.12f\n", a,
                   element_symbol(t.atomic_number[a]).c_str(), t.nac[3 * a], t.nac[3 * a + 1],
                   t.nac[3 * a + 2]);
  out += "------------------------------------------\nNORM of the NACME vector\n" + coordinates(s0);
  write_file("nac.out", out);
  // A plain list, in the initial state's frame.
  std::string plain = "# <S0|d/dx|S1>, 1 over bohr\n";
  for (int a = 0; a < 17; ++a)
    plain += printed("%.15e %.15e %.15e\n", s1.nac[3 * a], s1.nac[3 * a + 1], s1.nac[3 * a + 2]);
  write_file("nac.txt", plain);

  for (const char* name : {"nac.out", "nac.txt"}) {
    const NacInput nac = read_nac_file(name, 17, NacGeometry::initial_state);
    const std::vector<double> rif = prepare_pair(s0, s1, &nac).rif;
    for (std::size_t k = 6; k < rif.size(); ++k) EXPECT_NEAR(rif[k], ref[k], 1e-9 * big) << name;
  }
  EXPECT_THROW(read_nac_file("nac.txt", 17, NacGeometry::unknown), IoError);
  write_file("bad.txt", "# x y z\n0 0 0.1\n0 0.1\n");
  EXPECT_THROW_MSG(read_nac_file("bad.txt", 17, NacGeometry::final_state), IoError,
                   "bad.txt, line 3: expected three numbers");
}

// The text with the first `from` replaced by `to`.
std::string edited(const std::string& text, const std::string& from, const std::string& to) {
  std::string t = text;
  const std::size_t at = t.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  t.replace(at, from.size(), to);
  return t;
}

TEST(QcFiles, BadFilesNameTheLineAndWhatWasExpected) {
  ScratchDir dir;
  const std::string fchk = testing::read_file(qc_file("methylium/opt_freq_s0.fchk"));
  const QcState s0 = read_qc_state(qc_file("methylium/opt_freq_s0.fchk"));
  const std::string hess = testing::orca_hess(s0, true, -39.4);
  struct Case {
    std::string text;
    long line;
    std::string expected;
  } cases[] = {
      // a bad value inside the force constants (line 101 holds values 6-10)
      {edited(fchk, "1.51668664E-06", "1.51668664Q-06"), 101,
       "value 8 of 78 of 'Cartesian Force Constants' in columns 33-48"},
      {fchk.substr(0, fchk.find("Cartesian Force Constants") + 300), 0, "(end of file)"},
      {edited(fchk, "Cartesian Force Constants", "Cartesian Other Constants"), 0,
       "an optimisation alone"},
      {edited(fchk, "N=          12\n  4.45", "N=          11\n  4.45"), 24, "expected N= 12"},
      {edited(hess, "$hessian\n12", "$hessian\n9"), 0, "dimension 12"},
      {edited(hess, "\n     3    ", "\n     3 0.5"), 15, "row 3 of the block of columns 0-4"},
      {"just text\n", 0, "expected a Gaussian formatted checkpoint"},
      {edited(hess, "\n C ", "\n Bq "), 0, ": a ghost atom"},
      {edited(fchk, "  1.00782504E+00  1.20000000E+01", "  1.00782504E+00  0.00000000E+00"), 0,
       "atom 2: a ghost atom"},
  };
  // Deuterium by its own symbol, and ghost atoms left out when asked.
  write_file("d.hess", edited(hess, "\n H ", "\n D "));
  const QcState d = read_qc_state("d.hess");
  EXPECT_EQ(d.atomic_number, s0.atomic_number);
  write_file("ghost.hess", edited(hess, "\n C ", "\n Bq "));
  const QcState g = read_qc_state("ghost.hess", true);
  EXPECT_EQ(g.natoms(), 3);
  EXPECT_EQ(g.hessian.rows, 9);
  const int carbon = static_cast<int>(
      std::find(s0.atomic_number.begin(), s0.atomic_number.end(), 6) - s0.atomic_number.begin());
  const int kept = carbon == 0 ? 1 : 0;  // the first atom kept, row 1 of the smaller Hessian
  EXPECT_NEAR(g.hessian(1, 1), s0.hessian(3 * kept + 1, 3 * kept + 1), 1e-9);
  for (const auto& c : cases) {
    write_file("bad", c.text);
    EXPECT_THROW_MSG(read_qc_state("bad"), IoError, c.expected);
    if (c.line > 0)
      EXPECT_THROW_MSG(read_qc_state("bad"), IoError, "bad, line " + std::to_string(c.line) + ":");
  }
}

}  // namespace
}  // namespace ictvcf
