// Files from public repositories as users have them: every layout read (the file's own frequencies
// reproduced, a state paired with itself giving D = 0 and S = I), each file that cannot be a state
// refused as such, and atoms of one element numbered differently in the two files.
#include <gtest/gtest.h>

#include <cmath>

#include "prepare/atom_order.h"
#include "prepare/modes.h"
#include "prepare_support.h"
#include "test_support.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

using testing::qc_file;

std::string real(const std::string& name) { return qc_file("real/" + name); }

void read_and_pair(const std::string& file) {
  const QcState s = read_qc_state(file);
  prepare_pair(s, s, nullptr);
}

TEST(RealFiles, EachLayoutReadAndPairedWithItself) {
  struct Case {
    const char* file;
    bool own_frequencies;
    double asymmetry;  // max|H - H^T| as written
  };
  const Case cases[] = {
      {"orca/opan_test_orca_v3.0.2.hess", true, 3.3e-4},
      {"orca/opan_test_orca_v3.0.3.hess", true, -1},
      {"orca/opan_CH4_Spher.hess", true, -1},
      {"orca/orcaparser_COO.hess", true, 5.5e-3},
      {"orca/orcaparser_Coordination_0_orca5.0.3.hess", true, -1},
      {"gaussian/cclib_g09_dvb_ir.fchk", false, 0.0},
      {"gaussian/cclib_g16_dvb_ir.fchk", true, 0.0},
      {"qchem/cclib_qchem5.4_water_ir.fchk", false, 0.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const QcState s = read_qc_state(real(c.file));
    EXPECT_EQ(!s.file_omega.empty(), c.own_frequencies);
    if (c.asymmetry >= 0) {
      EXPECT_NEAR(s.hessian_asymmetry, c.asymmetry, 0.05 * c.asymmetry);
    }
    const PrepareResult r = prepare_pair(s, s, nullptr);
    if (c.own_frequencies) {
      EXPECT_GE(r.state[0].omega_dev, 0.0);  // compared at all
      EXPECT_LT(r.state[0].omega_dev, 0.1);
    }
    for (int k = 7; k <= r.n3; ++k) {
      EXPECT_LT(std::fabs(r.d1[k - 1]), 1e-8);
      for (int j = 7; j <= r.n3; ++j) EXPECT_NEAR(r.s(j, k), j == k ? 1.0 : 0.0, 1e-8);
    }
  }
  // The Q-Chem file gives no masses: the most abundant isotopes' (its own default).
  const QcState water = read_qc_state(real("qchem/cclib_qchem5.4_water_ir.fchk"));
  EXPECT_FALSE(water.mass_origin.empty());
  EXPECT_DOUBLE_EQ(water.mass[0], 15.9949146);
  EXPECT_DOUBLE_EQ(water.mass[1], 1.00782503);
  // A frequency job that did not compute the coupling writes the field, all zeros.
  const QcState dvb = read_qc_state(real("gaussian/cclib_g16_dvb_ir.fchk"));
  EXPECT_TRUE(dvb.nac.empty() && dvb.nac_all_zero);

  EXPECT_THROW_MSG(read_and_pair(real("orca/opan_Cu_Atom.hess")), IoError,
                   "a single atom (Cu) has no vibrations");
  EXPECT_THROW_MSG(read_and_pair(real("orca/opan_HC2Cl_Linear.hess")), IoError,
                   "expected a non-linear molecule");
  EXPECT_THROW_MSG(read_and_pair(real("gaussian/cclib_g16_dvb_td.fchk")), IoError,
                   "'Cartesian Force Constants'");
}

TEST(RealFiles, AtomsOfOneElementNumberedDifferently) {
  // Two methane files, another orientation and another numbering of the hydrogens: after the
  // best rotation 2.12 bohr apart as numbered, 0.0135 bohr once H2 and H3 trade places.
  const QcState a = read_qc_state(real("orca/opan_CH4_Spher.hess"));
  const QcState b = read_qc_state(real("orca/opan_test_orca_v3.0.2.hess"));
  const AtomMatch m = match_atoms(a.mass, a.atomic_number, a.x, b.atomic_number, b.x);
  EXPECT_TRUE(m.renumbered());
  EXPECT_NEAR(m.rms_before, 2.12, 0.01);
  EXPECT_NEAR(m.rms_after, 0.0135, 5e-4);
  EXPECT_EQ(describe_order(m.order, a.atomic_number), "H2 <- H3, H3 <- H2");

  // Two hydrogens moved just past the middle between their places: the exchange lowers the rms
  // change by a fraction of a percent, and is taken.
  QcState near = b;
  const double eps = 0.002;
  for (int k = 0; k < 3; ++k) {
    const double h2 = b.x[3 + k], h3 = b.x[6 + k];
    near.x[3 + k] = h2 + (0.5 + eps) * (h3 - h2);
    near.x[6 + k] = h3 + (0.5 + eps) * (h2 - h3);
  }
  const AtomMatch tie = match_atoms(b.mass, b.atomic_number, b.x, near.atomic_number, near.x);
  EXPECT_TRUE(tie.renumbered());
  EXPECT_GT(tie.rms_after, 0.99 * tie.rms_before);

  // Coumarin's S1 with three hydrogens renumbered and turned: the renumbering undoes the cycle,
  // and the correctly numbered pair keeps its numbering.
  const QcState s0 = read_qc_state(qc_file("coumarin/coumarin_s0.fchk"));
  QcState s1 = read_qc_state(qc_file("coumarin/coumarin_s1.fchk"));
  const double shift[3] = {0.3, -1.0, 2.0};
  s1 = testing::moved(s1, testing::rotation(1, 2, 3, 140.0), shift);
  EXPECT_FALSE(match_atoms(s0.mass, s0.atomic_number, s0.x, s1.atomic_number, s1.x).renumbered());
  std::vector<int> cycle(17), hydrogens;
  for (int i = 0; i < 17; ++i) {
    cycle[i] = i;
    if (s1.atomic_number[i] == 1) hydrogens.push_back(i);
  }
  // Three hydrogens in a cycle (an order that is not its own inverse).
  cycle[hydrogens[0]] = hydrogens[3];
  cycle[hydrogens[3]] = hydrogens[1];
  cycle[hydrogens[1]] = hydrogens[0];
  QcState swapped = s1;
  renumber_atoms(swapped, cycle);
  for (int i = 0; i < 51; ++i)  // each atom keeps its own gradient
    EXPECT_EQ(swapped.gradient[i], s1.gradient[3 * cycle[i / 3] + i % 3]);
  const AtomMatch back =
      match_atoms(s0.mass, s0.atomic_number, s0.x, swapped.atomic_number, swapped.x);
  EXPECT_GT(back.rms_before, 1.0);
  renumber_atoms(swapped, back.order);
  EXPECT_EQ(swapped.x, s1.x);
  EXPECT_EQ(swapped.hessian.data, s1.hessian.data);
  EXPECT_EQ(swapped.nac, s1.nac);
  EXPECT_EQ(swapped.gradient, s1.gradient);

  // The assignment itself, against all 120 orders of a 5 x 5 problem.
  std::vector<double> cost(25);
  for (int i = 0; i < 25; ++i) cost[i] = std::fmod(37.0 * i * i + 11.0 * i, 23.0);
  std::vector<int> p{0, 1, 2, 3, 4};
  double best = 1e300;
  do {
    double c = 0.0;
    for (int i = 0; i < 5; ++i) c += cost[5 * i + p[i]];
    best = std::min(best, c);
  } while (std::next_permutation(p.begin(), p.end()));
  const std::vector<int> got = cheapest_assignment(cost, 5);
  double c = 0.0;
  for (int i = 0; i < 5; ++i) c += cost[5 * i + got[i]];
  EXPECT_EQ(c, best);
}

}  // namespace
}  // namespace ictvcf
