// The fast engine.
//
// Notation for one time point (n modes, S the Duschinsky matrix, all diagonals per mode):
//   ag = wg / sin(wg t),  bg = wg / tan(wg t)        (state 1 at time t)
//   ae = we / sin(we z),  be = cos(we z) ae          (state 2 at complex time z = -t - i beta)
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
// (7) Thermal factors without overflow. With q = e^{-beta we} and r = q e^{i we t} (|r| < 1 for
//     Im t > -beta), the state-2 terms are
//       e = i we (1 - r)/(1 + r),   w = i we (1 + r)/(1 - r),
//       ae 4 sinh^2(beta we/2) = 2 i we e^{i we t} (1 - q)^2 / (1 - r^2),
//     finite down to T = 0 (q = r = 0), where 4 sinh^2 and 1/sin(we z) alone overflow. The thermal
//     normalisation prod 4 sinh^2 enters the determinant term mode by mode this way. At complex t
//     the state-1 terms likewise come from u = e^{+-i wg t}, |u| <= 1:
//       ag = -+2 i wg u/(1 - u^2),  g = -+i wg (1 - u)/(1 + u),  h = -+i wg (1 + u)/(1 - u);
//     at real t they are the sine and tangent forms above. Differences 1 - u are taken as
//     -(e^x - 1) with e^x - 1 evaluated without cancellation.
//
// (8) At t = i tau the matrices b -+ a are i times real symmetric matrices. The Gaussian integral
//     converges (t inside the strip where C is analytic) when b - a is i times a positive
//     definite matrix and b + a is i times a negative (tau > 0) or positive (tau < 0) definite
//     one. The signs of the 1x1 blocks of the factorisations give their inertia (a definite
//     matrix never takes a 2x2 block).
//
// (9) Near t = 0 three parts of the formulas cancel terms of order 1/t and lose digits: g = bg -
// ag,
//     the phase sum d^T E d - sted^T P sted, and -sum rif^2 ag + yh^T Q yh/2. The rate needs the
//     real-axis integrand at small t to full precision, so outside the run's table (which keeps
//     the formulas as they are) they are evaluated in forms without the cancellation:
//       g = -+i wg (1 - u)/(1 + u) from (7);
//       phase = (S^-1 d)^T diag(g) ib, since (diag(g) + S^T E S) ib = S^T E d gives
//         S ib - d = -E^-1 S^-T diag(g) ib, and phase = d^T E (d - S ib);
//       with W = S^T diag(w) S and Q (diag(h) + W) = I, diag(h) Q diag(h) = diag(h) - W + W Q W,
//       so -sum rif^2 ag + yh^T Q yh/2 = sum rif^2 g/2 - rif^T W rif/2 + (W rif)^T Q (W rif)/2.
//
// (10) A dipole O = mu0 + m^T Q1 (per Cartesian component) in place of the coupling: the same
//     Gaussian integral over the coordinates x (bra) and x' (ket) of the final state, whose
//     exponent separates in x + x' (matrix b - a) and x - x' (matrix b + a). Its mean is
//     <x> = <x'> = -ib and its covariance <x x'^T> - <x><x'>^T = (i/2)(P - Q), so
//       <O^+(x) O(x')> = (mu0 - m^T ib)^2 + (i/2) m^T (P - Q) m,
//     with P and Q applied to m by solves with the factorisations already made. The Franck-Condon
//     operator 1 leaves the contraction 1. Both are transforms of positive measures, like the
//     coupling's, so whatever integrates the coupling's C(t) integrates theirs.
//
// What remains per time point: two real congruences as symmetric rank-k products (BLAS-3), two
// symmetric factorisations (LAPACK), a few solves and O(n^2) work. The tests check the result
// against the straightforward engine.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <limits>
#include <stdexcept>
#include <vector>

#ifdef _OPENMP
#include <omp.h>
#endif

#include "engine/engine.h"
#include "util/constants.h"
#include "util/lapack.h"
#include "util/memory.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

enum class Path { rank_one_all_pairs, single_mode, general, franck_condon, dipole };

// Everything one thread needs for one time point, allocated once.
struct Workspace {
  explicit Workspace(int n_modes)
      : n(n_modes),
        nn(static_cast<std::size_t>(n) * static_cast<std::size_t>(n)),
        x(4 * static_cast<std::size_t>(n)),
        ag(n),
        g(n),
        h(n),
        aez(n),
        e(n),
        roots(2 * static_cast<std::size_t>(n)),
        rows(2 * static_cast<std::size_t>(n)),
        packed(nn),
        cong(2 * nn),
        bpa(nn),
        bma(nn),
        rhs_p(5 * static_cast<std::size_t>(n)),
        rhs_q(3 * static_cast<std::size_t>(n)),
        sr(n),
        ipiv1(n),
        ipiv2(n) {
    lwork = std::max({lapack::sytrf_lwork(n), lapack::sytri2_lwork(n), 2 * n});
    work.resize(static_cast<std::size_t>(lwork));
  }

  int n;
  std::size_t nn;
  std::vector<double> x;           // the four real diagonals Re w, Im w, Re e, Im e
  std::vector<cplx> ag, g, h;      // state 1
  std::vector<cplx> aez, e;        // state 2: ae 4 sinh^2(beta we/2), and e
  std::vector<double> roots;       // sqrt|x| of the rows of each sign
  std::vector<int> rows;           // the rows of S with x >= 0, then those with x < 0
  std::vector<double> packed;      // rows of S scaled by sqrt|x|, split by the sign of x
  std::vector<double> cong;        // S^T diag(x) S for two of the real diagonals (lower triangles)
  std::vector<cplx> bpa, bma;      // b+a and b-a (lower triangles), then their factorisations
  std::vector<cplx> rhs_p, rhs_q;  // right-hand sides and solutions
  std::vector<cplx> sr;            // w .* (S rif) (or S e_m), on the way to W rif
  std::vector<cplx> inv_p, inv_q;  // the inverses, on the general path only
  std::vector<int> ipiv1, ipiv2;
  std::vector<cplx> work;
  int lwork = 0;
};

// Doubles of one workspace (general path included), for the memory check before it is made.
long long workspace_doubles(long long n) { return 16 * n * n + 42 * n; }

// e^z - 1 without cancellation for small z.
cplx cexpm1(cplx z) {
  const double em1 = std::expm1(z.real()), half = std::sin(0.5 * z.imag());
  return {em1 * std::cos(z.imag()) - 2.0 * half * half, (em1 + 1.0) * std::sin(z.imag())};
}

// ag, g = bg - ag and h = bg + ag of a final-state mode of frequency w at time t (see (7)):
// from e^{+-i w t} (any t), or from the sine and tangent (real t, as the run's table has them).
void final_state_terms_complex(double w, cplx t, cplx& ag, cplx& g, cplx& h) {
  const cplx iw(0.0, t.imag() >= 0.0 ? w : -w);
  // u itself from the exponential (it may be tiny), 1 - u without cancellation.
  const cplx u = std::exp(iw * t), one_minus = -cexpm1(iw * t), one_plus = 1.0 + u;
  ag = -2.0 * iw * u / (one_minus * one_plus);
  g = -iw * one_minus / one_plus;
  h = -iw * one_plus / one_minus;
}

void final_state_terms(double w, cplx t, cplx& ag, cplx& g, cplx& h) {
  if (t.imag() != 0.0) return final_state_terms_complex(w, t, ag, g, h);
  const double a = w / std::sin(w * t.real()), b = w / std::tan(w * t.real());
  ag = a;
  g = b - a;
  h = b + a;
}

// ae 4 sinh^2(beta w/2), e = be - ae and w = be + ae of an initial-state mode (see (7)).
void initial_state_terms(double w, cplx t, double beta, cplx& aez, cplx& e, cplx& wsum) {
  const cplx iw(0.0, w);
  const cplx rm1 = cexpm1(iw * t - beta * w);  // r - 1
  const cplx one_minus = -rm1, one_plus = 2.0 + rm1;
  e = iw * one_minus / one_plus;
  wsum = iw * one_plus / one_minus;
  const double one_minus_q = -std::expm1(-beta * w);
  aez = 2.0 * iw * std::exp(iw * t) * (one_minus_q * one_minus_q) / (one_minus * one_plus);
}

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

// The signs of i D for a factorisation of i M (M real symmetric): whether all 1x1 blocks have
// imaginary parts of one sign (+1 or -1), and no 2x2 block occurs.
struct Inertia {
  bool two_by_two = false;
  int positive = 0, negative = 0;
  bool definite(int sign) const {
    return !two_by_two && (sign > 0 ? negative == 0 : positive == 0);
  }
};

// Symmetric factorisation of the lower triangle of A; returns the determinant of D block by
// block into `det_at` (a 2x2 block's determinant at its first index, 1 at its second). An
// exactly singular D gives a zero block, and so a determinant term that is infinite.
Inertia factorise(Workspace& ws, cplx* A, int* ipiv, std::vector<cplx>& det_at) {
  const int n = ws.n;
  lapack::sytrf(n, A, ipiv, ws.work.data(), ws.lwork);
  Inertia in;
  for (int k = 0; k < n; ++k) {
    const std::size_t kk = static_cast<std::size_t>(k) * (n + 1);
    if (ipiv[k] > 0 || k + 1 == n) {
      det_at[k] = A[kk];
      (A[kk].imag() > 0.0 ? in.positive : in.negative) += 1;
    } else {
      const cplx a11 = A[kk], a21 = A[kk + 1], a22 = A[kk + n + 1];
      det_at[k] = a11 * a22 - a21 * a21;
      det_at[k + 1] = 1.0;
      in.two_by_two = true;
      ++k;
    }
  }
  return in;
}

void solve(Workspace& ws, const cplx* A, const int* ipiv, cplx* b, int nrhs) {
  lapack::sytrs(ws.n, nrhs, A, ipiv, b);
}

// The inverse (lower triangle) from a factorisation (general path).
void invert(Workspace& ws, const cplx* A, const int* ipiv, std::vector<cplx>& inv) {
  inv.assign(A, A + ws.nn);
  lapack::sytri2(ws.n, inv.data(), ipiv, ws.work.data(), ws.lwork);
}

struct Setup {
  const EngineInputs& v;
  double beta;
  Path path;
  int mode;  // the selected mode (0-based) on the single-mode path
  // The run's table: the state-1 sines and tangents and the contraction as the formulas read
  // (at real t). Otherwise the forms of (9), which need S^-1 d.
  bool described = false;
  std::vector<double> sinv_d;  // empty when S is singular: the phase then as in the formulas
  double det_s = 1.0;
  std::vector<double> dmu;  // the dipole's m_kc at [c * n + k], zeros where none were given
};

// W x = S^T (w .* (S x)) for a real vector x (mode = -1) or the unit vector e_mode.
void apply_w(Workspace& ws, const double* S, const double* x, int mode, cplx* out) {
  const int n = ws.n;
  const double* xr = ws.x.data();
  for (int l = 0; l < n; ++l) {
    double sx = 0.0;
    if (mode >= 0)
      sx = S[l + static_cast<std::size_t>(mode) * n];
    else
      for (int k = 0; k < n; ++k) sx += S[l + static_cast<std::size_t>(k) * n] * x[k];
    ws.sr[l] = cplx(xr[l], xr[n + l]) * sx;
  }
  for (int k = 0; k < n; ++k) {
    const double* col = S + static_cast<std::size_t>(k) * n;
    cplx acc(0.0, 0.0);
    for (int l = 0; l < n; ++l) acc += col[l] * ws.sr[l];
    out[k] = acc;
  }
}

void time_point(const Setup& in, Workspace& ws, cplx t, const PointRequest& request,
                cplx* pair_terms, PointValue& out) {
  const EngineInputs& v = in.v;
  const int n = ws.n;
  const double* S = v.s.ptr();
  double* xr = ws.x.data();
  const bool described = in.described && t.imag() == 0.0;
  // Away from the run's table, even a real t takes the forms without cancellation.
  const cplx t1 = described || t.imag() != 0.0 ? t : cplx(t.real(), 0.0);

  for (int j = 0; j < n; ++j) {
    if (described)
      final_state_terms(v.omegag[j], t1, ws.ag[j], ws.g[j], ws.h[j]);
    else
      final_state_terms_complex(v.omegag[j], t1, ws.ag[j], ws.g[j], ws.h[j]);
    cplx w;
    initial_state_terms(v.omegae[j], t, in.beta, ws.aez[j], ws.e[j], w);
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
    const cplx* diag = which == 0 ? ws.h.data() : ws.g.data();
    for (int k = 0; k < n; ++k) {
      const std::size_t ck = static_cast<std::size_t>(k) * n;
      A[ck + k] = cplx(c_re[ck + k], c_im[ck + k]) + diag[k];
      for (int j = k + 1; j < n; ++j) A[ck + j] = cplx(c_re[ck + j], c_im[ck + j]);
    }
  }

  // prod 4 sinh^2 det(diag(ag)) det(diag(ae)) / (det(b+a) det(b-a)) as a scaled product.
  std::vector<cplx>& d1 = ws.rhs_p;  // borrowed as scratch until the solves
  std::vector<cplx>& d2 = ws.rhs_q;
  const Inertia plus = factorise(ws, ws.bpa.data(), ws.ipiv1.data(), d1);
  const Inertia minus = factorise(ws, ws.bma.data(), ws.ipiv2.data(), d2);
  if (t.real() == 0.0 && t.imag() != 0.0)
    out.in_strip = minus.definite(+1) && plus.definite(t.imag() > 0.0 ? -1 : +1);
  else
    out.in_strip = true;
  // The product of the factors, kept in range by exact powers of two.
  cplx m(1.0, 0.0);
  int e2 = 0;
  for (int j = 0; j < n; ++j) {
    m *= (ws.ag[j] * ws.aez[j]) / d1[j] / d2[j];
    int e = 0;
    const double big = std::max(std::fabs(m.real()), std::fabs(m.imag()));
    if (!(big > 0.0) || !std::isfinite(big)) continue;  // zero or not finite: stays so
    std::frexp(big, &e);
    m = cplx(std::ldexp(m.real(), -e), std::ldexp(m.imag(), -e));
    e2 += e;
  }
  out.det = m;
  out.exp2 = e2;
  if (request.determinant_only) return;

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
  const bool coupling = in.path != Path::franck_condon && in.path != Path::dipole;
  const Path path = pair_terms && coupling ? Path::general : in.path;
  int nrhs_p = 1, nrhs_q = 0;
  // The Q right-hand side: yh = rif .* h as the formulas read, or W rif (see (9)); e_m likewise.
  if (path == Path::rank_one_all_pairs) {
    for (int j = 0; j < n; ++j) {
      pg[j] = v.rif[j] * ws.g[j];
      qh[j] = v.rif[j] * ws.h[j];
    }
    if (!described) apply_w(ws, S, v.rif.data(), -1, qh);
    nrhs_p = 2;
    nrhs_q = 1;
  } else if (path == Path::single_mode) {
    std::fill(pg, pg + n, cplx(0.0, 0.0));
    std::fill(qh, qh + n, cplx(0.0, 0.0));
    pg[in.mode] = qh[in.mode] = 1.0;
    if (!described) apply_w(ws, S, nullptr, in.mode, qh);
    nrhs_p = 2;
    nrhs_q = 1;
  } else if (path == Path::dipole) {
    // The three components of m as right-hand sides of both P and Q (see (10)).
    for (int c = 0; c < 3; ++c)
      for (int j = 0; j < n; ++j) pg[c * n + j] = qh[c * n + j] = in.dmu[c * n + j];
    nrhs_p = 4;
    nrhs_q = 3;
  }
  // W rif (or W e_m) before the solve overwrites it.
  cplx* wq = ws.rhs_q.data() + n;
  if (coupling) std::copy(qh, qh + n, wq);
  solve(ws, ws.bma.data(), ws.ipiv2.data(), ib, nrhs_p);
  if (nrhs_q > 0) solve(ws, ws.bpa.data(), ws.ipiv1.data(), qh, nrhs_q);

  cplx phase(0.0, 0.0);
  if (described || in.sinv_d.empty()) {
    cplx dd(0.0, 0.0);
    for (int l = 0; l < n; ++l) phase += v.d[l] * v.d[l] * ws.e[l];
    for (int l = 0; l < n; ++l) dd += sted[l] * ib[l];
    phase -= dd;
  } else {
    for (int l = 0; l < n; ++l) phase += in.sinv_d[l] * (ws.g[l] * ib[l]);
  }
  out.iphase = cplx(0.0, 1.0) * phase;

  if (path == Path::franck_condon) {
    out.pairs = 1.0;
    return;
  }
  if (path == Path::dipole) {
    cplx sum(0.0, 0.0);
    for (int c = 0; c < 3; ++c) {
      const double* m = in.dmu.data() + static_cast<std::size_t>(c) * n;
      cplx mean(in.v.op.mu0[c], 0.0), pm(0.0, 0.0), qm(0.0, 0.0);
      for (int j = 0; j < n; ++j) {
        mean -= m[j] * ib[j];
        pm += m[j] * pg[c * n + j];
        qm += m[j] * qh[c * n + j];
      }
      sum += mean * mean + cplx(0.0, 0.5) * (pm - qm);
    }
    out.pairs = sum;
    return;
  }

  cplx uu(0.0, 0.0), tt(0.0, 0.0);  // sum of r u_j u_k and of r trginvk(j,k) over the pairs
  if (path == Path::rank_one_all_pairs) {
    cplx ru(0.0, 0.0), gpg(0.0, 0.0), hqh(0.0, 0.0), rag(0.0, 0.0), rwr(0.0, 0.0);
    for (int j = 0; j < n; ++j) {
      const double rj = v.rif[j];
      ru += rj * (ws.g[j] * ib[j]);
      gpg += (rj * ws.g[j]) * pg[j];
      if (described) {
        hqh += (rj * ws.h[j]) * qh[j];
        rag += rj * rj * ws.ag[j];
      } else {
        hqh += wq[j] * qh[j];
        rag += rj * rj * ws.g[j];
        rwr += rj * wq[j];
      }
    }
    uu = ru * ru;
    tt = described ? -rag - gpg / 2.0 + hqh / 2.0 : (rag - rwr + hqh - gpg) / 2.0;
  } else if (path == Path::single_mode) {
    const int m = in.mode;
    const double rmm = v.r(m + 1, m + 1);
    const cplx um = ws.g[m] * ib[m];
    uu = rmm * (um * um);
    if (described) {
      tt = rmm * (ws.h[m] * ws.h[m] / 2.0 * qh[m] - ws.g[m] * ws.g[m] / 2.0 * pg[m] - ws.ag[m]);
    } else {
      cplx wqw(0.0, 0.0);
      for (int j = 0; j < n; ++j) wqw += wq[j] * qh[j];
      tt = rmm * (ws.g[m] - wq[m] + wqw - ws.g[m] * ws.g[m] * pg[m]) / 2.0;
    }
  } else {
    invert(ws, ws.bma.data(), ws.ipiv2.data(), ws.inv_p);
    invert(ws, ws.bpa.data(), ws.ipiv1.data(), ws.inv_q);
    const cplx* P = ws.inv_p.data();
    const cplx* Q = ws.inv_q.data();
    const double* r = v.r.ptr();
    const char* mask = v.iscal.ptr();
    const cplx I(0.0, 1.0);
    for (int k = 0; k < n; ++k) {
      const std::size_t ck = static_cast<std::size_t>(k) * n;
      const cplx gk = ws.g[k] / 2.0, hk = ws.h[k] / 2.0;
      const cplx uk = ws.g[k] * ib[k];
      // The diagonal pair, then the pairs below it in column k.
      const cplx diag_uu = uk * uk;
      const cplx diag_tt = ws.h[k] * hk * Q[ck + k] - ws.g[k] * gk * P[ck + k] - ws.ag[k];
      if (pair_terms) pair_terms[ck + k] = -diag_uu + I * diag_tt;
      if (mask[ck + k]) {
        uu += r[ck + k] * diag_uu;
        tt += r[ck + k] * diag_tt;
      }
      cplx uu_k(0.0, 0.0), tt_k(0.0, 0.0);
      for (int j = k + 1; j < n; ++j) {
        const cplx uj = ws.g[j] * ib[j];
        const cplx tjk = ws.h[j] * hk * Q[ck + j] - ws.g[j] * gk * P[ck + j];
        if (pair_terms) pair_terms[ck + j] = -(uj * uk) + I * tjk;
        if (!mask[ck + j]) continue;
        const double rjk = r[ck + j];
        uu_k += rjk * uj;
        tt_k += rjk * tjk;
      }
      uu += 2.0 * (uu_k * uk);
      tt += 2.0 * tt_k;
    }
  }
  out.pairs = -uu + cplx(0.0, 1.0) * tt;
}

// Which contraction the coupling matrix and the mask allow.
Path choose_path(const EngineInputs& v, int& mode) {
  if (v.op.kind == OperatorKind::franck_condon) return Path::franck_condon;
  if (v.op.kind == OperatorKind::dipole) return Path::dipole;
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

int thread_count(int threads) {
#ifdef _OPENMP
  return threads > 0 ? threads : omp_get_max_threads();
#else
  (void)threads;
  return 1;
#endif
}

int thread_id() {
#ifdef _OPENMP
  return omp_get_thread_num();
#else
  return 0;
#endif
}

}  // namespace

struct EngineContext::Workspaces {
  std::vector<Workspace> each;
  Setup setup;
};

EngineContext::EngineContext(const EngineInputs& inputs, int thread_limit)
    : in(inputs), threads(thread_count(thread_limit)) {
  const int n = in.nmode;
  check_allocation({{workspace_doubles(n) * threads, sizeof(double)}});
  int mode = 0;
  const Path path = choose_path(in, mode);
  ws.reset(
      new Workspaces{{}, Setup{in, kelvin_per_hartree / in.temp, path, mode, false, {}, 1.0, {}}});
  // S^-1 d and det S from an LU factorisation of S (once per molecule).
  std::vector<double> lu(in.s.data);
  std::vector<int> ipiv(static_cast<std::size_t>(n));
  if (n > 0 && lapack::getrf(n, lu.data(), ipiv.data()) == 0) {
    Setup& setup = ws->setup;
    setup.sinv_d = in.d;
    lapack::getrs(n, lu.data(), ipiv.data(), setup.sinv_d.data());
    for (int j = 0; j < n; ++j)
      setup.det_s *= lu[static_cast<std::size_t>(j) * (n + 1)] * (ipiv[j] != j + 1 ? -1.0 : 1.0);
  }
  if (in.op.kind == OperatorKind::dipole) {
    std::vector<double>& dmu = ws->setup.dmu;
    dmu.assign(3 * static_cast<std::size_t>(n), 0.0);
    std::copy_n(in.op.dmu.begin(), std::min(in.op.dmu.size(), dmu.size()), dmu.begin());
  }
  ws->each.reserve(static_cast<std::size_t>(threads));
  for (int k = 0; k < threads; ++k) ws->each.emplace_back(n);
}

EngineContext::~EngineContext() = default;

namespace {

// Evaluates the points m = 0 .. count-1 at time_of(m) on the context's threads and hands each
// value to store(m, value). No exception leaves an iteration: the first one is kept and rethrown
// after the loop, which every thread reaches.
template <class TimeOf, class Store>
void for_points(EngineContext& ctx, std::int64_t count, TimeOf time_of, Store store,
                const PointRequest& request, const Progress& progress) {
  if (ctx.in.nmode <= 0 || count <= 0) return;
  if (request.pair_terms && ctx.in.op.kind != OperatorKind::coupling)
    throw std::invalid_argument("the pair terms belong to the coupling operator");
  [[maybe_unused]] const int nthreads =
      static_cast<int>(std::min<std::int64_t>(ctx.threads, count));
  const std::size_t nn = static_cast<std::size_t>(ctx.in.nmode) * ctx.in.nmode;
  // BLAS single-threaded inside each point: its arithmetic does not depend on the thread count.
  const lapack::SingleThreadedBlas single;
  std::atomic<std::int64_t> done{0};
  std::atomic<bool> failed{false};
  std::exception_ptr error;

#pragma omp parallel num_threads(nthreads)
  {
    Workspace& ws = ctx.ws->each[static_cast<std::size_t>(thread_id())];
#pragma omp for schedule(dynamic, 1)
    for (std::int64_t m = 0; m < count; ++m) {
      if (failed.load(std::memory_order_relaxed)) continue;
      try {
        PointValue value;
        cplx* terms =
            request.pair_terms ? request.pair_terms + static_cast<std::size_t>(m) * nn : nullptr;
        time_point(ctx.ws->setup, ws, time_of(m), request, terms, value);
        store(m, value);
      } catch (...) {
#pragma omp critical(ictvcf_engine_error)
        {
          if (!failed.exchange(true)) error = std::current_exception();
        }
        continue;
      }
      const std::int64_t now = done.fetch_add(1, std::memory_order_relaxed) + 1;
      if (progress && thread_id() == 0) progress(now, count);
    }
  }
  if (error) std::rethrow_exception(error);
  if (progress) progress(count, count);
}

}  // namespace

void evaluate(EngineContext& ctx, std::span<const cplx> times, std::span<PointValue> out,
              const PointRequest& request, const Progress& progress) {
  for_points(
      ctx, static_cast<std::int64_t>(times.size()),
      [&](std::int64_t m) { return times[static_cast<std::size_t>(m)]; },
      [&](std::int64_t m, const PointValue& v) { out[static_cast<std::size_t>(m)] = v; }, request,
      progress);
}

void compute_correlation(const EngineInputs& v, double dt, std::int64_t nstart, std::int64_t nend,
                         cplx* usqrt, cplx* f, bool keep_imaginary, int threads,
                         const Progress& progress) {
  if (v.nmode <= 0 || nend < nstart) return;
  EngineContext ctx(v, threads);
  ctx.ws->setup.described = true;
  auto time_of = [&](std::int64_t m) {
    const std::int64_t q = nstart + m;
    return cplx(q == 0 ? dt * 1e-05 : dt * static_cast<double>(q), 0.0);
  };
  auto store = [&](std::int64_t m, const PointValue& p) {
    const int e2 = static_cast<int>(p.exp2);
    usqrt[m] = cplx(std::ldexp(p.det.real(), e2), std::ldexp(p.det.imag(), e2));
    const cplx value = std::exp(p.iphase) * p.pairs;
    f[m] = keep_imaginary ? value : cplx(value.real(), 0.0);
  };
  for_points(ctx, nend - nstart + 1, time_of, store, PointRequest{}, progress);
}

double correlation_at_zero(EngineContext& ctx) {
  const EngineInputs& in = ctx.in;
  const int n = in.nmode;
  const double beta = kelvin_per_hartree / in.temp;
  std::vector<double> weight(static_cast<std::size_t>(n));
  for (int j = 0; j < n; ++j) {
    const double w = in.omegae[j], q = std::exp(-beta * w);
    weight[j] = 0.5 * w * (1.0 + q) / -std::expm1(-beta * w);  // (w/2) coth(beta w/2)
  }
  const Setup& setup = ctx.ws->setup;
  if (in.op.kind == OperatorKind::franck_condon) return 1.0 / std::fabs(setup.det_s);
  if (in.op.kind == OperatorKind::dipole) {
    double c0 = 0.0;
    for (int c = 0; c < 3; ++c) {
      const double* m = setup.dmu.data() + static_cast<std::size_t>(c) * n;
      double mean = in.op.mu0[c], spread = 0.0;
      for (int k = 0; k < n; ++k) mean -= m[k] * (setup.sinv_d.empty() ? 0.0 : setup.sinv_d[k]);
      for (int j = 1; j <= n; ++j) {
        double sm = 0.0;  // (S m)_j
        for (int k = 1; k <= n; ++k) sm += in.s(j, k) * m[k - 1];
        const double w = in.omegae[j - 1];
        spread += sm * sm * weight[j - 1] / (w * w);  // coth(beta w/2)/(2w) (S m)_j^2
      }
      c0 += mean * mean + spread;
    }
    return c0 / std::fabs(setup.det_s);
  }
  double c0 = 0.0;
  for (int l = 1; l <= n; ++l)
    for (int k = 1; k <= n; ++k) {
      if (!in.iscal(k, l) || in.r(k, l) == 0.0) continue;
      double m = 0.0;
      for (int j = 1; j <= n; ++j) m += in.s(j, k) * in.s(j, l) * weight[j - 1];
      c0 += in.r(k, l) * m;
    }
  // The Gaussian integrals over Q1 carry the Jacobian of Q2 = S Q1 + d: 1 / |det S|.
  return c0 / std::fabs(setup.det_s);
}

std::vector<double> pack(const EngineInputs& in) {
  std::vector<double> buf{static_cast<double>(in.nmode), in.temp};
  for (const std::vector<double>* x : {&in.omegag, &in.omegae, &in.d, &in.rif})
    buf.insert(buf.end(), x->begin(), x->end());
  buf.insert(buf.end(), in.s.data.begin(), in.s.data.end());
  buf.insert(buf.end(), in.r.data.begin(), in.r.data.end());
  for (char c : in.iscal.data) buf.push_back(c ? 1.0 : 0.0);
  buf.push_back(static_cast<double>(in.op.kind));
  buf.insert(buf.end(), in.op.mu0.begin(), in.op.mu0.end());
  buf.push_back(static_cast<double>(in.op.dmu.size()));
  buf.insert(buf.end(), in.op.dmu.begin(), in.op.dmu.end());
  return buf;
}

EngineInputs unpack_engine_inputs(std::span<const double> buf) {
  EngineInputs in;
  const int n = static_cast<int>(buf[0]);
  in.nmode = n;
  in.temp = buf[1];
  std::size_t at = 2;
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
  at += nn;
  in.op.kind = static_cast<OperatorKind>(static_cast<int>(buf[at++]));
  for (double& x : in.op.mu0) x = buf[at++];
  const std::size_t ndmu = static_cast<std::size_t>(buf[at++]);
  in.op.dmu.assign(buf.begin() + at, buf.begin() + at + ndmu);
  return in;
}

}  // namespace ictvcf
