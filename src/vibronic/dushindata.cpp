#include "vibronic/dushindata.h"

#include "util/errors.h"
#include "util/memory.h"

namespace ictvcf {

void allocatedushindata(DushinData& v, std::int64_t nt) {
  if (v.nmode == 0) return;
  if (v.allocated) throw FatalError("Attempting to allocate already allocated variable 'order'");
  const long long n = v.nmode < 0 ? 0 : v.nmode;
  const long long times = nt < 0 ? 0 : nt + 1;
  // order, hr: n x 2; nine n x n matrices; nine vectors; sqrtdone.
  check_allocation({{2 * n, sizeof(std::int32_t)},
                    {2 * n, sizeof(double)},
                    {n * n, 8 * sizeof(double) + sizeof(char)},
                    {n, 9 * sizeof(double)},
                    {times, sizeof(std::complex<double>)}});
  const int m = static_cast<int>(n);
  v.order = Matrix<std::int32_t>(m, 2);
  v.omegae.assign(m, 0.0);
  v.omegag.assign(m, 0.0);
  v.d.assign(m, 0.0);
  v.d1.assign(m, 0.0);
  v.d2.assign(m, 0.0);
  v.lam1.assign(m, 0.0);
  v.lam2.assign(m, 0.0);
  v.hr = Matrix<double>(m, 2);
  v.rif.assign(m, 0.0);
  v.r = Matrix<double>(m, m);
  v.r1 = Matrix<double>(m, m);
  v.r2 = Matrix<double>(m, m);
  v.dr = Matrix<double>(m, m);
  v.iscal = Matrix<char>(m, m);
  v.invz2.assign(m, 0.0);
  v.s = Matrix<double>(m, m);
  v.s1 = Matrix<double>(m, m);
  v.s2 = Matrix<double>(m, m);
  v.sqrtdone.assign(static_cast<std::size_t>(times), {0.0, 0.0});
  v.allocated = true;
}

}  // namespace ictvcf
