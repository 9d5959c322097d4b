// The fast engine.
//
// Notation for one time point (n modes, S the Duschinsky matrix, all diagonals per mode):
//   ag = wg / sin(wg t),  bg = wg / tan(wg t)        (state 1, real time t)
//   ae = we / sin(we z),  be = cos(we z) ae          (state 2, complex time z = -t - i beta)
//   a = diag(ag) + S^T diag(ae) S,   b = diag(bg) + S^T diag(be) S
//   g = bg - ag,  h = bg + ag,  e = be - ae,  w = be + ae
//   Q = (b + a)^-1,  P = (b - a)^-1        (both complex symmetric)
//
// The straightforward evaluation forms a and b, the triple products
// invk11 = (b+a)^-1 b (b-a)^-1 and invk12 = (b-a)^-1 a (b+a)^-1, and for every mode pair (j,k) four
// O(n) sums over the congruences, an O(n^3) contraction. Exact identities remove all of that:
//
// (1) b + a = diag(h) + S^T diag(w) S and b - a = diag(g) + S^T diag(e) S: two congruences, not
//     four, and neither a nor b is needed on its own.
//
// (2) Writing b = [(b+a) + (b-a)]/2 and a = [(b+a) - (b-a)]/2 inside the triple products,
//       invk11 = (b+a)^-1 b (b-a)^-1 = [P + Q]/2,   invk12 = (b-a)^-1 a (b+a)^-1 = [P - Q]/2.
//
// (3) The coupling term of a pair, with staes = S^T diag(ae) S, stbes = S^T diag(be) S,
//       trginvk(j,k) = ag_k (staes invk12 - stbes invk11)(j,k)
//                    + bg_k (stbes invk12 - staes invk11)(j,k).
//     By (2), and with staes - stbes = -stes, staes + stbes = W (stes = S^T diag(e) S,
//     W = S^T diag(w) S):
//       staes invk12 - stbes invk11 = [-stes P - W Q]/2,
//       stbes invk12 - staes invk11 = [ stes P - W Q]/2,
//     so trginvk(j,k) = g_k (stes P)(j,k)/2 - h_k (W Q)(j,k)/2. Since stes = (b-a) - diag(g) and
//     W = (b+a) - diag(h), stes P = I - diag(g) P and W Q = I - diag(h) Q, hence (with
//     (g - h)/2 = -ag)
//       trginvk(j,k) = -ag_k delta_jk - g_j g_k P(j,k)/2 + h_j h_k Q(j,k)/2.
//
// (4) q_j = (stes P sted)_j depends on the row j only, and with stes = (b-a) - diag(g) it is
//       q = sted - g .* ib,   ib = P sted   (sted = S^T (d .* e)),
//     so the two remaining pair terms combine into a symmetric rank one:
//       invkftginvkf(j,k) - hinvkf(j,k) = g_k ib_k (q_j - sted_j) = -u_j u_k,   u = g .* ib.
//
// So intsum(j,k) = X [-u_j u_k + i trginvk(j,k)] with X = exp(i phase) is symmetric in (j,k), and
// the sum over the lower triangle with off-diagonal pairs counted twice is the sum over all pairs.
//
// (5) The coupling matrix is the outer product r = rif rif^T. With every pair selected the
//     contraction is then three quadratic forms,
//       sum_jk r(j,k) intsum(j,k) / X = -(rif . u)^2
//          + i [ -sum_k rif_k^2 ag_k - yg^T P yg / 2 + yh^T Q yh / 2 ],   yg = rif .* g, yh = rif
//          .* h,
//     and with a single mode m selected it is r(m,m) [-u_m^2 + i trginvk(m,m)]. Both need P and Q
//     only applied to a few vectors: solves with the factorisations, never the inverses. Any
//     other mask or coupling matrix takes the general path: the inverses, and the pair sum over
//     the lower triangle (O(n^2)).
//
// (6) The determinant of a complex symmetric matrix is the product of the determinants of the
//     1x1 and 2x2 diagonal blocks of its symmetric factorisation P L D L^T P^T (the permutation
//     enters twice and cancels), so no sign needs to be tracked.
//
// What remains per time point: two real congruences as symmetric rank-k products (BLAS-3), two
// symmetric factorisations (LAPACK), a few solves and O(n^2) work. The tests check the result
// against the straightforward engine.
#include <atomic>
#include <cmath>
#include <exception>
#include <optional>
#include <vector>

#ifdef _OPENMP
#include <omp.h>
#endif

#include "engine/engine.h"
#include "util/constants.h"
#include "util/lapack.h"
#include "util/memory.h"
#include "util/scaled_product.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

enum class Path { rank_one_all_pairs, single_mode, general };

// Everything one thread needs for one time point, allocated once.
struct Workspace {
  explicit Workspace(int n_modes)
      : n(n_modes),
        nn(static_cast<std::size_t>(n) * static_cast<std::size_t>(n)),
        ag(n),
        bg(n),
        g(n),
        h(n),
        x(4 * static_cast<std::size_t>(n)),
        ae(n),
        e(n),
        factors(n),
        roots(2 * static_cast<std::size_t>(n)),
        rows(2 * static_cast<std::size_t>(n)),
        packed(nn),
        cong(2 * nn),
        bpa(nn),
        bma(nn),
        rhs_p(3 * static_cast<std::size_t>(n)),
        rhs_q(2 * static_cast<std::size_t>(n)),
        ipiv1(n),
        ipiv2(n) {
    lwork = lapack::sytrf_lwork(n);
    work.resize(static_cast<std::size_t>(lwork));
  }

  int n;
  std::size_t nn;
  std::vector<double> ag, bg, g, h;
  std::vector<double> x;  // the four real diagonals Re w, Im w, Re e, Im e
  std::vector<cplx> ae, e, factors;
  std::vector<double> roots;       // sqrt|x| of the rows of each sign
  std::vector<int> rows;           // the rows of S with x >= 0, then those with x < 0
  std::vector<double> packed;      // rows of S scaled by sqrt|x|, split by the sign of x
  std::vector<double> cong;        // S^T diag(x) S for two of the real diagonals (lower triangles)
  std::vector<cplx> bpa, bma;      // b+a and b-a (lower triangles), then their factorisations
  std::vector<cplx> rhs_p, rhs_q;  // right-hand sides and solutions
  std::vector<cplx> inv_p, inv_q;  // the inverses, on the general path only
  std::vector<int> ipiv1, ipiv2;
  std::vector<cplx> work;
  int lwork = 0;
};

// Doubles of one workspace (general path included), for the memory check before the threads
// start.
long long workspace_doubles(long long n) { return 16 * n * n + 30 * n; }

struct Inputs {
  const EngineInputs& v;
  double dt;
  double beta;
  Path path;
  int mode;  // the selected mode (0-based) on the single-mode path
  bool keep_imaginary;
};

// Lower triangle of out = S^T diag(xd) S (n x n, leading dimension n), as A+^T A+ - A-^T A- where
// A+ and A- hold the rows of S scaled by sqrt|x| for x >= 0 (or not a number) and x < 0.
void congruence(Workspace& ws, const double* S, const double* xd, double* out) {
  const int n = ws.n;
  // Rows of each sign, and their scale factors.
  int kp = 0, km = 0;
  int* rows_p = ws.rows.data();
  int* rows_m = rows_p + n;
  double* root_p = ws.roots.data();
  double* root_m = root_p + n;
  for (int l = 0; l < n; ++l) {
    if (xd[l] < 0.0) {
      rows_m[km] = l;
      root_m[km++] = std::sqrt(-xd[l]);
    } else {
      rows_p[kp] = l;
      root_p[kp++] = std::sqrt(xd[l]);
    }
  }
  double* ap = ws.packed.data();
  double* am = ap + static_cast<std::size_t>(kp) * n;
  for (int k = 0; k < n; ++k) {
    const double* col = S + static_cast<std::size_t>(k) * n;
    double* cp = ap + static_cast<std::size_t>(k) * kp;
    double* cm = am + static_cast<std::size_t>(k) * km;
    for (int i = 0; i < kp; ++i) cp[i] = root_p[i] * col[rows_p[i]];
    for (int i = 0; i < km; ++i) cm[i] = root_m[i] * col[rows_m[i]];
  }
  lapack::syrk_t(n, kp, 1.0, ap, std::max(kp, 1), 0.0, out);
  if (km > 0) lapack::syrk_t(n, km, -1.0, am, km, 1.0, out);
}

// Symmetric factorisation of the lower triangle of A; returns the determinant of D block by
// block into `det_at` (a 2x2 block's determinant at its first index, 1 at its second).
void factorise(Workspace& ws, cplx* A, int* ipiv, std::vector<cplx>& det_at) {
  const int n = ws.n;
  lapack::sytrf(n, A, ipiv, ws.work.data(), ws.lwork);
  for (int k = 0; k < n; ++k) {
    const std::size_t kk = static_cast<std::size_t>(k) * (n + 1);
    if (ipiv[k] > 0 || k + 1 == n) {
      det_at[k] = A[kk];
    } else {
      const cplx a11 = A[kk], a21 = A[kk + 1], a22 = A[kk + n + 1];
      det_at[k] = a11 * a22 - a21 * a21;
      det_at[k + 1] = 1.0;
      ++k;
    }
  }
}

void solve(Workspace& ws, const cplx* A, const int* ipiv, cplx* b, int nrhs) {
  lapack::sytrs(ws.n, nrhs, A, ipiv, b);
}

// The full inverse from a factorisation (general path).
void invert(Workspace& ws, const cplx* A, const int* ipiv, std::vector<cplx>& inv) {
  inv.assign(ws.nn, cplx(0.0, 0.0));
  for (int j = 0; j < ws.n; ++j) inv[static_cast<std::size_t>(j) * (ws.n + 1)] = 1.0;
  solve(ws, A, ipiv, inv.data(), ws.n);
}

void time_point(const Inputs& in, Workspace& ws, std::int64_t q, cplx& usqrt, cplx& f) {
  const EngineInputs& v = in.v;
  const int n = ws.n;
  const double* S = v.s.ptr();
  const double t = q == 0 ? in.dt * 1e-05 : in.dt * static_cast<double>(q);
  const cplx z(-t, -in.beta);
  double* xr = ws.x.data();

  for (int j = 0; j < n; ++j) {
    const double wg = v.omegag[j], we = v.omegae[j];
    ws.ag[j] = wg / std::sin(wg * t);
    ws.bg[j] = wg / std::tan(wg * t);
    ws.ae[j] = we / std::sin(we * z);
    const cplx be = std::cos(we * z) * ws.ae[j];
    ws.g[j] = ws.bg[j] - ws.ag[j];
    ws.h[j] = ws.bg[j] + ws.ag[j];
    ws.e[j] = be - ws.ae[j];
    const cplx w = be + ws.ae[j];
    xr[j] = w.real();
    xr[n + j] = w.imag();
    xr[2 * n + j] = ws.e[j].real();
    xr[3 * n + j] = ws.e[j].imag();
  }

  // b + a = diag(h) + S^T diag(w) S and b - a = diag(g) + S^T diag(e) S, lower triangles.
  double* c_re = ws.cong.data();
  double* c_im = c_re + ws.nn;
  for (int which = 0; which < 2; ++which) {
    congruence(ws, S, xr + 2 * which * n, c_re);
    congruence(ws, S, xr + (2 * which + 1) * n, c_im);
    cplx* A = which == 0 ? ws.bpa.data() : ws.bma.data();
    const double* diag = which == 0 ? ws.h.data() : ws.g.data();
    for (int k = 0; k < n; ++k) {
      const std::size_t ck = static_cast<std::size_t>(k) * n;
      A[ck + k] = cplx(c_re[ck + k] + diag[k], c_im[ck + k]);
      for (int j = k + 1; j < n; ++j) A[ck + j] = cplx(c_re[ck + j], c_im[ck + j]);
    }
  }

  // det(diag(ag)) det(diag(ae)) / (det(b+a) det(b-a)) as a scaled product.
  std::vector<cplx>& d1 = ws.rhs_p;  // borrowed as scratch until the solves
  std::vector<cplx>& d2 = ws.rhs_q;
  factorise(ws, ws.bpa.data(), ws.ipiv1.data(), d1);
  factorise(ws, ws.bma.data(), ws.ipiv2.data(), d2);
  for (int j = 0; j < n; ++j) ws.factors[j] = (ws.ag[j] * ws.ae[j]) / d1[j] / d2[j];
  cplx det[2];
  zdetm(ws.factors.data(), n, det);
  usqrt = v.invz2det[0] * det[0] * std::pow(cplx(10.0, 0.0), cplx(v.invz2det[1], 0.0) + det[1]);

  // sted = S^T (d .* e), the right-hand sides, and the solves with P = (b-a)^-1, Q = (b+a)^-1.
  cplx* sted = ws.rhs_p.data();
  for (int j = 0; j < n; ++j) {
    const double* col = S + static_cast<std::size_t>(j) * n;
    cplx acc(0.0, 0.0);
    for (int l = 0; l < n; ++l) acc += col[l] * (v.d[l] * ws.e[l]);
    sted[j] = acc;
  }
  cplx* ib = ws.rhs_p.data() + n;
  cplx* pg = ws.rhs_p.data() + 2 * n;
  cplx* qh = ws.rhs_q.data();
  std::copy(sted, sted + n, ib);
  int nrhs_p = 1, nrhs_q = 0;
  if (in.path == Path::rank_one_all_pairs) {
    for (int j = 0; j < n; ++j) {
      pg[j] = v.rif[j] * ws.g[j];
      qh[j] = v.rif[j] * ws.h[j];
    }
    nrhs_p = 2;
    nrhs_q = 1;
  } else if (in.path == Path::single_mode) {
    std::fill(pg, pg + n, cplx(0.0, 0.0));
    std::fill(qh, qh + n, cplx(0.0, 0.0));
    pg[in.mode] = qh[in.mode] = 1.0;
    nrhs_p = 2;
    nrhs_q = 1;
  }
  solve(ws, ws.bma.data(), ws.ipiv2.data(), ib, nrhs_p);
  if (nrhs_q > 0) solve(ws, ws.bpa.data(), ws.ipiv1.data(), qh, nrhs_q);

  cplx phase(0.0, 0.0), dd(0.0, 0.0);
  for (int l = 0; l < n; ++l) phase += v.d[l] * v.d[l] * ws.e[l];
  for (int l = 0; l < n; ++l) dd += sted[l] * ib[l];
  phase -= dd;
  const cplx X = std::exp(cplx(0.0, 1.0) * phase);

  cplx uu(0.0, 0.0), tt(0.0, 0.0);  // sum of r u_j u_k and of r trginvk(j,k) over the pairs
  if (in.path == Path::rank_one_all_pairs) {
    cplx ru(0.0, 0.0), gpg(0.0, 0.0), hqh(0.0, 0.0);
    double rag = 0.0;
    for (int j = 0; j < n; ++j) {
      const double rj = v.rif[j];
      ru += rj * (ws.g[j] * ib[j]);
      gpg += (rj * ws.g[j]) * pg[j];
      hqh += (rj * ws.h[j]) * qh[j];
      rag += rj * rj * ws.ag[j];
    }
    uu = ru * ru;
    tt = -rag - gpg / 2.0 + hqh / 2.0;
  } else if (in.path == Path::single_mode) {
    const int m = in.mode;
    const double rmm = v.r(m + 1, m + 1);
    const cplx um = ws.g[m] * ib[m];
    uu = rmm * (um * um);
    tt = rmm * (ws.h[m] * ws.h[m] / 2.0 * qh[m] - ws.g[m] * ws.g[m] / 2.0 * pg[m] - ws.ag[m]);
  } else {
    invert(ws, ws.bma.data(), ws.ipiv2.data(), ws.inv_p);
    invert(ws, ws.bpa.data(), ws.ipiv1.data(), ws.inv_q);
    const cplx* P = ws.inv_p.data();
    const cplx* Q = ws.inv_q.data();
    const double* r = v.r.ptr();
    const char* mask = v.iscal.ptr();
    for (int k = 0; k < n; ++k) {
      const std::size_t ck = static_cast<std::size_t>(k) * n;
      const double gk = ws.g[k] / 2.0, hk = ws.h[k] / 2.0;
      const cplx uk = ws.g[k] * ib[k];
      if (mask[ck + k]) {
        const double rkk = r[ck + k];
        uu += rkk * (uk * uk);
        tt += rkk * (ws.h[k] * hk * Q[ck + k] - ws.g[k] * gk * P[ck + k] - ws.ag[k]);
      }
      cplx uu_k(0.0, 0.0), tt_k(0.0, 0.0);
      for (int j = k + 1; j < n; ++j) {
        if (!mask[ck + j]) continue;
        const double rjk = r[ck + j];
        uu_k += rjk * (ws.g[j] * ib[j]);
        tt_k += rjk * (ws.h[j] * hk * Q[ck + j] - ws.g[j] * gk * P[ck + j]);
      }
      uu += 2.0 * (uu_k * uk);
      tt += 2.0 * tt_k;
    }
  }
  const cplx sum = X * (-uu + cplx(0.0, 1.0) * tt);
  f = in.keep_imaginary ? sum : cplx(sum.real(), 0.0);
}

// Which contraction the coupling matrix and the mask allow.
Path choose_path(const EngineInputs& v, int& mode) {
  const int n = v.nmode;
  int selected = 0, diagonal = -1;
  bool rank_one = true;
  for (int k = 1; k <= n; ++k)
    for (int j = 1; j <= n; ++j) {
      if (v.iscal(j, k)) {
        ++selected;
        if (j == k) diagonal = j - 1;
      }
      if (v.r(j, k) != v.rif[j - 1] * v.rif[k - 1]) rank_one = false;
    }
  if (selected == 1 && diagonal >= 0) {
    mode = diagonal;
    return Path::single_mode;
  }
  if (selected == n * n && rank_one) return Path::rank_one_all_pairs;
  return Path::general;
}

}  // namespace

void compute_correlation(const EngineInputs& v, double dt, std::int64_t nstart, std::int64_t nend,
                         cplx* usqrt, cplx* f, bool keep_imaginary, int threads,
                         const Progress& progress) {
  const int n = v.nmode;
  if (n <= 0 || nend < nstart) return;
  const std::int64_t total = nend - nstart + 1;
#ifdef _OPENMP
  int nthreads = threads > 0 ? threads : omp_get_max_threads();
#else
  int nthreads = 1;
  (void)threads;
#endif
  if (total < nthreads) nthreads = static_cast<int>(total);
  check_allocation({{workspace_doubles(n) * nthreads, sizeof(double)}});

  int mode = 0;
  const Path path = choose_path(v, mode);
  const Inputs in{v, dt, kelvin_per_hartree / v.temp, path, mode, keep_imaginary};
  // One thread per time point, BLAS single-threaded inside: the arithmetic of a point does not
  // depend on how many threads run.
  const lapack::SingleThreadedBlas single;
  std::atomic<std::int64_t> done{0};
  std::atomic<bool> failed{false};
  std::exception_ptr error;
  auto fail = [&]() {
#pragma omp critical(ictvcf_engine_error)
    {
      if (!failed.exchange(true)) error = std::current_exception();
    }
  };

  // Every thread reaches the worksharing loop, even when its workspace could not be made, and
  // no exception leaves an iteration: the first one is kept and rethrown after the loop.
#pragma omp parallel num_threads(nthreads)
  {
    std::optional<Workspace> ws;
    try {
      ws.emplace(n);
    } catch (...) {
      fail();
    }
#pragma omp for schedule(dynamic, 1)
    for (std::int64_t m = 0; m < total; ++m) {
      if (failed.load(std::memory_order_relaxed)) continue;
      try {
        time_point(in, *ws, nstart + m, usqrt[m], f[m]);
      } catch (...) {
        fail();
        continue;
      }
      const std::int64_t now = done.fetch_add(1, std::memory_order_relaxed) + 1;
#ifdef _OPENMP
      const bool reporter = omp_get_thread_num() == 0;
#else
      const bool reporter = true;
#endif
      if (progress && reporter) progress(now, total);
    }
  }
  if (error) std::rethrow_exception(error);
  if (progress) progress(total, total);
}

std::vector<double> pack(const EngineInputs& in) {
  std::vector<double> buf{static_cast<double>(in.nmode), in.temp, in.invz2det[0], in.invz2det[1]};
  for (const std::vector<double>* x : {&in.omegag, &in.omegae, &in.d, &in.rif})
    buf.insert(buf.end(), x->begin(), x->end());
  buf.insert(buf.end(), in.s.data.begin(), in.s.data.end());
  buf.insert(buf.end(), in.r.data.begin(), in.r.data.end());
  for (char c : in.iscal.data) buf.push_back(c ? 1.0 : 0.0);
  return buf;
}

EngineInputs unpack_engine_inputs(std::span<const double> buf) {
  EngineInputs in;
  const int n = static_cast<int>(buf[0]);
  in.nmode = n;
  in.temp = buf[1];
  in.invz2det[0] = buf[2];
  in.invz2det[1] = buf[3];
  std::size_t at = 4;
  for (std::vector<double>* x : {&in.omegag, &in.omegae, &in.d, &in.rif}) {
    x->assign(buf.begin() + at, buf.begin() + at + n);
    at += n;
  }
  const std::size_t nn = static_cast<std::size_t>(n) * n;
  in.s = Matrix<double>(n, n);
  in.r = Matrix<double>(n, n);
  in.iscal = Matrix<char>(n, n);
  std::copy(buf.begin() + at, buf.begin() + at + nn, in.s.data.begin());
  at += nn;
  std::copy(buf.begin() + at, buf.begin() + at + nn, in.r.data.begin());
  at += nn;
  for (std::size_t i = 0; i < nn; ++i) in.iscal.data[i] = buf[at + i] != 0.0;
  return in;
}

}  // namespace ictvcf
