#include "vibronic/checks.h"

#include <cmath>
#include <string>
#include <vector>

#include "util/constants.h"
#include "util/lapack.h"
#include "util/strings.h"
#include "util/warning.h"

namespace ictvcf {

namespace {

std::string number(double x) { return printed("%.4g", x); }

// The first value that is not finite, and how many there are.
struct NonFinite {
  int count = 0;
  std::string first;
  void check(double x, const std::string& what) {
    if (std::isfinite(x)) return;
    if (count++ == 0) first = what + " (" + number(x) + ")";
  }
  void report(const std::string& file) const {
    if (count > 0)
      warn(file + ": " + std::to_string(count) + (count == 1 ? " value is" : " values are") +
           " not finite, the first: " + first + "; the table will not be finite");
  }
};

// The name of the matrix the engine uses, as the file heads it.
std::string matrix_name(const ParameterSet& p) {
  if (p.dushtype != 1) return p.dush12 == 1 ? "the matrix after 'Dushin Matrix S'" : "identity";
  return p.dush12 == 1 ? "BEGIN_DUSH_DATA_1" : "BEGIN_DUSH_DATA_2";
}

}  // namespace

Orthogonality orthogonality(const Matrix<double>& s) {
  const int n = s.rows;
  Orthogonality o;
  if (n == 0) return o;
  Matrix<double> sts(n, n);
  lapack::syrk_t(n, n, 1.0, s.ptr(), n, 0.0, sts.ptr());
  for (int j = 1; j <= n; ++j)
    for (int i = j; i <= n; ++i)
      o.deviation = std::max(o.deviation, std::fabs(sts(i, j) - (i == j ? 1.0 : 0.0)));
  Matrix<double> lu = s;
  std::vector<int> ipiv(static_cast<std::size_t>(n));
  if (lapack::getrf(n, lu.ptr(), ipiv.data()) > 0) {
    o.abs_det = 0.0;
    return o;
  }
  double log_det = 0.0;  // as a sum of logarithms, so that large n neither overflows nor vanishes
  for (int i = 1; i <= n; ++i) log_det += std::log(std::fabs(lu(i, i)));
  o.abs_det = std::exp(log_det);
  return o;
}

void check_vibronic_data(const ParameterSet& p, const DushinData& v) {
  const std::string ds(rtrim(p.dsfile));
  const int n = v.nmode;

  NonFinite bad;
  for (int i = 1; i <= n; ++i) {
    const std::string mode = " of mode " + std::to_string(i);
    bad.check(v.omegag(i), "the state-1 frequency" + mode);
    bad.check(v.omegae(i), "the state-2 frequency" + mode);
    bad.check(v.d1(i), "the state-1 displacement" + mode);
    bad.check(v.d2(i), "the state-2 displacement" + mode);
  }
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= n; ++i)
      bad.check(v.s(i, j), "S(" + std::to_string(i) + "," + std::to_string(j) + ")");
  bad.report(ds);
  NonFinite bad_coupling;
  for (int i = 1; i <= n; ++i)
    bad_coupling.check(v.rif(i), "the coupling of mode " + std::to_string(i));
  bad_coupling.report(std::string(rtrim(p.coulfile)));

  if (p.dushin && p.dushtype != 1 && p.dush12 != 1)
    warn(ds + ": the column layout (dushtype = " + std::to_string(p.dushtype) +
         ") holds only the first Duschinsky matrix, but dush12 = " + std::to_string(p.dush12) +
         " selects the second, the identity: the matrix read is not used (set dush12 = 1)");
  if (p.dushin && bad.count == 0) {
    const Orthogonality o = orthogonality(v.s);
    if (o.deviation > kMaxOrthogonalityDeviation ||
        std::fabs(o.abs_det - 1.0) > kMaxOrthogonalityDeviation)
      warn(ds + ": the Duschinsky matrix used (" + matrix_name(p) + ", " + std::to_string(n) +
           " x " + std::to_string(n) + ") is not a rotation: max|S^T S - I| = " +
           number(o.deviation) + ", |det S| = " + number(o.abs_det) +
           " (0 and 1 for a rotation); the correlation function assumes one, check the matrix");
  }

  double hr1 = 0.0, hr2 = 0.0;
  for (int i = 1; i <= n; ++i) {
    hr1 += v.hr(i, 1);
    hr2 += v.hr(i, 2);
  }
  if (std::max(hr1, hr2) > kMaxHuangRhys)
    warn(ds + ": the total Huang-Rhys factor is " + number(hr1) + " (state 1) and " + number(hr2) +
         " (state 2), implausibly large for one molecule (above " + number(kMaxHuangRhys) +
         "): the two geometries are probably not in one frame (not aligned, translations and "
         "rotations not removed) or the displacements are not mass-weighted atomic units");
  const double lambda = std::max(v.lamt1, v.lamt2);
  if (p.ead > 0.0 && lambda > p.ead)
    warn(ds + ": the reorganisation energy " + number(lambda * au2cm) +
         " cm-1 is above the adiabatic gap ead = " + number(p.ead * au2cm) +
         " cm-1: unusual for internal conversion; check the frame and units of the "
         "displacements, and the unit of ead");
}

}  // namespace ictvcf
