// Normal modes, alignment, Duschinsky relation and couplings on the bundled Gaussian pairs:
// agreement with the files' own frequency analysis and with an independent analysis of the same
// pairs, exact identities, and invariance under rigid motions and under swapping the states.
#include <gtest/gtest.h>

#include <cmath>

#include "prepare/modes.h"
#include "prepare_support.h"
#include "util/constants.h"

namespace ictvcf {
namespace {

using testing::moved;
using testing::qc_file;
using testing::rotation;

double max_diff(const std::vector<double>& a, const std::vector<double>& b, double sign = 1.0) {
  double d = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) d = std::max(d, std::fabs(a[i] - sign * b[i]));
  return d;
}

NacInput nac_of(const QcState& s) {
  return NacInput{s.file, s.nac, NacGeometry::initial_state, {}, {}};
}

struct Coumarin : ::testing::Test {
  static void SetUpTestSuite() {
    s0 = new QcState(read_qc_state(qc_file("coumarin/coumarin_s0.fchk")));
    s1 = new QcState(read_qc_state(qc_file("coumarin/coumarin_s1.fchk")));
  }
  static void TearDownTestSuite() {
    delete s0;
    delete s1;
  }
  static QcState *s0, *s1;
};
QcState* Coumarin::s0 = nullptr;
QcState* Coumarin::s1 = nullptr;

TEST_F(Coumarin, MatchesTheFilesAndTheIndependentAnalysis) {
  const NacInput nac = nac_of(*s1);
  const PrepareResult r = prepare_pair(*s0, *s1, &nac);
  ASSERT_EQ(r.nvib, 45);
  EXPECT_LT(r.state[0].omega_dev, 1e-3);
  EXPECT_LT(r.state[1].omega_dev, 1e-3);
  // The two ways of the reorganisation energy, and the written S orthogonal over 3N.
  EXPECT_NEAR(r.lambda1 / r.lambda1_cart, 1.0, 1e-8);
  EXPECT_NEAR(r.lambda2 / r.lambda2_cart, 1.0, 1e-8);
  EXPECT_LT(testing::orthogonality_defect(r.s), 1e-12);
  // D1 = S^T D2 with the exact S; the Eckart condition holds after the alignment.
  std::vector<double> std2(r.n3, 0.0);
  for (int k = 1; k <= r.n3; ++k)
    for (int j = 1; j <= r.n3; ++j) std2[k - 1] += r.s_raw(j, k) * r.d2[j - 1];
  EXPECT_LT(max_diff(r.d1, std2), 1e-10);
  double eckart[3] = {0, 0, 0};
  for (int a = 0; a < r.natoms; ++a)
    for (int i = 0; i < 3; ++i) {
      const int j = (i + 1) % 3, k = (i + 2) % 3;
      eckart[i] +=
          r.mass[a] * (r.x1[3 * a + j] * r.x2[3 * a + k] - r.x1[3 * a + k] * r.x2[3 * a + j]);
    }
  for (double e : eckart) EXPECT_LT(std::fabs(e), 1e-9);
  // The independent analysis of the same pair (qc-data README).
  EXPECT_NEAR(r.rotation_deg, 0.49, 0.005);
  EXPECT_NEAR(r.lambda1 * au2cm, 6298.24, 0.005);
  EXPECT_NEAR(r.lambda2 * au2cm, 6146.90, 0.005);
  EXPECT_NEAR(r.hr1, 5.04, 0.005);
  EXPECT_NEAR(r.hr2, 5.00, 0.005);
  EXPECT_NEAR(r.min_singular, 0.99935, 5e-6);
  EXPECT_LT(r.nac_external, 0.05);
}

TEST_F(Coumarin, RigidMotionsAndSwappingChangeNothing) {
  const NacInput nac = nac_of(*s1);
  const PrepareResult ref = prepare_pair(*s0, *s1, &nac);

  // INITIAL turned half round and shifted: every output number stays.
  const double shift[3] = {3.0, -7.0, 11.0};
  const QcState turned = moved(*s1, rotation(0.3, -1.0, 0.7, 180.0), shift);
  const NacInput nac_t = nac_of(turned);
  const PrepareResult r = prepare_pair(*s0, turned, &nac_t);
  EXPECT_LT(max_diff(r.s.data, ref.s.data), 1e-10);
  EXPECT_LT(max_diff(r.d1, ref.d1), 1e-10);
  EXPECT_LT(max_diff(r.d2, ref.d2), 1e-10);
  EXPECT_LT(max_diff(r.rif, ref.rif), 1e-10);
  EXPECT_LT(max_diff(r.modes2.omega, ref.modes2.omega), 1e-10);

  // FINAL's own copy, turned and shifted, as INITIAL: no displacement and S_vib = 1.
  const PrepareResult same =
      prepare_pair(*s0, moved(*s0, rotation(1, 2, 3, 123.0), shift), nullptr);
  EXPECT_LT(max_diff(same.d2, std::vector<double>(same.n3, 0.0)), 1e-9);
  for (int i = 7; i <= same.n3; ++i)
    for (int j = 7; j <= same.n3; ++j) EXPECT_NEAR(same.s(i, j), i == j ? 1.0 : 0.0, 1e-10);

  // The states swapped (INITIAL already in FINAL's frame, so that both runs share one frame):
  // S becomes S^T, and D2 becomes -D1.
  const double none[3] = {0, 0, 0};
  const QcState aligned = moved(*s1, ref.rotation, none);
  const PrepareResult ab = prepare_pair(*s0, aligned, nullptr);
  const PrepareResult ba = prepare_pair(aligned, *s0, nullptr);
  for (int i = 1; i <= ab.n3; ++i)
    for (int j = 1; j <= ab.n3; ++j) ASSERT_NEAR(ba.s(i, j), ab.s(j, i), 1e-10) << i << "," << j;
  EXPECT_LT(max_diff(ba.d2, ab.d1, -1.0), 1e-10);
  EXPECT_LT(max_diff(ba.d1, ab.d2, -1.0), 1e-10);
}

}  // namespace
}  // namespace ictvcf
