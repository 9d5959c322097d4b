#include "prepare/modes.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "util/constants.h"
#include "util/errors.h"
#include "util/lapack.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using Mat = Matrix<double>;

// op(a) op(b), op the transpose where the flag is set.
// Each atom's three components rotated: v_i := R v_i.
std::vector<double> rotated(const Mat& r, const std::vector<double>& v) {
  std::vector<double> out(v.size());
  for (std::size_t a = 0; a < v.size() / 3; ++a)
    for (int i = 0; i < 3; ++i)
      for (int k = 0; k < 3; ++k) out[3 * a + i] += r(i + 1, k + 1) * v[3 * a + k];
  return out;
}

// R applied to every atom: the 3N x 3N block-diagonal matrix.
Mat block_rotation(const Mat& r, int natoms) {
  Mat big(3 * natoms, 3 * natoms);
  for (int a = 0; a < natoms; ++a)
    for (int j = 1; j <= 3; ++j)
      for (int i = 1; i <= 3; ++i) big(3 * a + i, 3 * a + j) = r(i, j);
  return big;
}

// The inertia tensor sum_i m_i (|x_i|^2 1 - x_i x_i^T): the Gram matrix of the three rotation
// vectors sqrt(m_i) (e_a x x_i).
// The sign that makes the first of the largest components of the column positive (components
// within a relative 1e-6 of the largest count as largest, so that symmetry-equal pairs do not
// flip the choice with rounding).
void fix_sign(Mat& l, int col) {
  double big = 0.0;
  for (int i = 1; i <= l.rows; ++i) big = std::max(big, std::fabs(l(i, col)));
  for (int i = 1; i <= l.rows; ++i)
    if (std::fabs(l(i, col)) >= (1.0 - 1e-6) * big) {
      if (l(i, col) < 0)
        for (int k = 1; k <= l.rows; ++k) l(k, col) = -l(k, col);
      return;
    }
}

double signed_root(double w) { return w < 0 ? -std::sqrt(-w) : std::sqrt(w); }

// Largest gradient component, and how far the gradient along the modes puts the minimum away
// from the file's geometry: |g_k| / w_k^2 for the vibrations above 20 cm-1.
void gradient_checks(const std::vector<double>& g, const std::vector<double>& m,
                     const NormalModes& modes, PrepareResult::StateChecks& c) {
  if (g.empty()) return;
  for (std::size_t i = 0; i < g.size(); ++i)
    if (std::fabs(g[i]) > c.grad_max) {
      c.grad_max = std::fabs(g[i]);
      c.grad_atom = static_cast<int>(i / 3) + 1;
    }
  std::vector<double> gw(g.size());
  for (std::size_t i = 0; i < g.size(); ++i) gw[i] = g[i] / std::sqrt(m[i / 3]);
  const std::vector<double> gq = mul(modes.l, true, gw);
  for (int k = 7; k <= modes.l.cols; ++k) {
    const double w = modes.omega[k - 1];
    if (w * au2cm < 20.0) continue;
    const double shift = std::fabs(gq[k - 1]) / (w * w);
    if (shift > c.shift) {
      c.shift = shift;
      c.shift_mode = k;
    }
  }
}

}  // namespace

Matrix<double> mul(const Matrix<double>& a, bool ta, const Matrix<double>& b, bool tb) {
  const int m = ta ? a.cols : a.rows, k = ta ? a.rows : a.cols, n = tb ? b.rows : b.cols;
  Matrix<double> c(m, n);
  if (m == 0 || n == 0) return c;
  lapack::dgemm(ta, tb, m, n, k, 1.0, a.ptr(), std::max(1, a.rows), b.ptr(), std::max(1, b.rows),
                0.0, c.ptr(), std::max(1, m));
  return c;
}

std::vector<double> mul(const Matrix<double>& a, bool ta, const std::vector<double>& v) {
  Matrix<double> x(static_cast<int>(v.size()), 1);
  x.data = v;
  return mul(a, ta, x, false).data;
}

std::vector<double> centred(const std::vector<double>& m, const std::vector<double>& x) {
  double c[3] = {0, 0, 0}, total = 0;
  for (std::size_t a = 0; a < m.size(); ++a) {
    total += m[a];
    for (int k = 0; k < 3; ++k) c[k] += m[a] * x[3 * a + k];
  }
  std::vector<double> r(x);
  for (std::size_t a = 0; a < m.size(); ++a)
    for (int k = 0; k < 3; ++k) r[3 * a + k] -= c[k] / total;
  return r;
}

Matrix<double> inertia_tensor(const std::vector<double>& m, const std::vector<double>& x) {
  Mat t(3, 3);
  for (std::size_t a = 0; a < m.size(); ++a) {
    const double* p = &x[3 * a];
    const double r2 = p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) t(i + 1, j + 1) += m[a] * ((i == j ? r2 : 0.0) - p[i] * p[j]);
  }
  return t;
}

Matrix<double> best_rotation(const std::vector<double>& m, const std::vector<double>& a,
                             const std::vector<double>& b) {
  // With H = sum_i m_i b_i a_i^T = U S V^T, R = V diag(1, 1, det(V U^T)) U^T maximises
  // sum_i m_i a_i . R b_i = tr(R H).
  Mat h(3, 3);
  for (std::size_t k = 0; k < m.size(); ++k)
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 3; ++i) h(i + 1, j + 1) += m[k] * b[3 * k + i] * a[3 * k + j];
  Mat u(3, 3), vt(3, 3);
  double s[3];
  if (lapack::gesvd(3, 3, h.ptr(), s, u.ptr(), vt.ptr()) != 0)
    throw FatalError(std::string("ictvcf prepare: ") +
                     "the singular value decomposition of the alignment did not converge");
  const Mat vu = mul(vt, true, u, true);
  const double det = vu(1, 1) * (vu(2, 2) * vu(3, 3) - vu(2, 3) * vu(3, 2)) -
                     vu(1, 2) * (vu(2, 1) * vu(3, 3) - vu(2, 3) * vu(3, 1)) +
                     vu(1, 3) * (vu(2, 1) * vu(3, 2) - vu(2, 2) * vu(3, 1));
  for (int i = 1; i <= 3; ++i) vt(3, i) *= det < 0 ? -1.0 : 1.0;
  return mul(vt, true, u, true);
}

double inertia_ratio(const std::vector<double>& m, const std::vector<double>& x) {
  Mat t = inertia_tensor(m, centred(m, x));
  double mu[3];
  lapack::syev(3, t.ptr(), mu);
  return mu[2] > 0 ? std::max(0.0, mu[0]) / mu[2] : 0.0;
}

Matrix<double> external_basis(const std::vector<double>& m, const std::vector<double>& x) {
  const int n = static_cast<int>(m.size());
  Mat e(3 * n, 6), rot(3 * n, 3);
  double total = 0.0;
  for (double v : m) total += v;
  for (int a = 0; a < n; ++a) {
    const double sm = std::sqrt(m[a]);
    const double* p = &x[3 * a];
    for (int k = 1; k <= 3; ++k) e(3 * a + k, k) = sm / std::sqrt(total);
    // e_x x p = (0, -z, y), e_y x p = (z, 0, -x), e_z x p = (-y, x, 0)
    rot(3 * a + 2, 1) = -sm * p[2];
    rot(3 * a + 3, 1) = sm * p[1];
    rot(3 * a + 1, 2) = sm * p[2];
    rot(3 * a + 3, 2) = -sm * p[0];
    rot(3 * a + 1, 3) = -sm * p[1];
    rot(3 * a + 2, 3) = sm * p[0];
  }
  // Symmetric orthonormalisation: rot I^-1/2, I the inertia tensor (the Gram matrix).
  Mat v = inertia_tensor(m, x);
  double mu[3];
  lapack::syev(3, v.ptr(), mu);
  Mat root(3, 3);
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= 3; ++j)
      for (int k = 1; k <= 3; ++k) root(i, j) += v(i, k) * v(j, k) / std::sqrt(mu[k - 1]);
  const Mat r = mul(rot, false, root, false);
  for (int j = 1; j <= 3; ++j)
    for (int i = 1; i <= 3 * n; ++i) e(i, j + 3) = r(i, j);
  return e;
}

NormalModes normal_modes(const std::vector<double>& m, const std::vector<double>& x,
                         const Matrix<double>& h) {
  const int n3 = static_cast<int>(x.size());
  const Mat e = external_basis(m, x);
  // An orthonormal basis of the vibrations: the eigenvectors of the projector 1 - E E^T with
  // eigenvalue 1 (the last 3N - 6; the first six have eigenvalue 0).
  Mat p = mul(e, false, e, true);
  for (int j = 1; j <= n3; ++j)
    for (int i = 1; i <= n3; ++i) p(i, j) = (i == j ? 1.0 : 0.0) - p(i, j);
  std::vector<double> ev(n3);
  if (lapack::syev(n3, p.ptr(), ev.data()) != 0)
    throw FatalError(std::string("ictvcf prepare: ") +
                     "the projector's eigenvalues did not converge");
  const int nvib = n3 - 6;
  Mat c(n3, nvib);
  std::copy(p.data.begin() + 6 * static_cast<std::size_t>(n3), p.data.end(), c.data.begin());

  Mat hw(n3, n3);
  for (int j = 1; j <= n3; ++j)
    for (int i = 1; i <= n3; ++i) hw(i, j) = h(i, j) / std::sqrt(m[(i - 1) / 3] * m[(j - 1) / 3]);
  Mat k = mul(c, true, mul(hw, false, c, false), false);
  std::vector<double> w2(nvib);
  if (lapack::syev(nvib, k.ptr(), w2.data()) != 0)
    throw FatalError(std::string("ictvcf prepare: ") +
                     "the vibrational eigenvalues did not converge");
  const Mat lv = mul(c, false, k, false);

  NormalModes modes;
  modes.l = Mat(n3, n3);
  modes.omega.assign(n3, 0.0);
  std::copy(e.data.begin(), e.data.end(), modes.l.data.begin());
  std::copy(lv.data.begin(), lv.data.end(),
            modes.l.data.begin() + 6 * static_cast<std::size_t>(n3));
  const Mat he = mul(e, true, mul(hw, false, e, false), false);
  for (int j = 1; j <= 6; ++j) modes.omega[j - 1] = signed_root(he(j, j));
  for (int j = 7; j <= n3; ++j) {
    fix_sign(modes.l, j);
    modes.omega[j - 1] = signed_root(w2[j - 7]);
  }
  return modes;
}

Polar nearest_orthogonal(const Matrix<double>& a) {
  const int n = a.rows;
  Polar p;
  if (n == 0) return p;
  Mat work = a, u(n, n), vt(n, n);
  std::vector<double> s(n);
  if (lapack::gesvd(n, n, work.ptr(), s.data(), u.ptr(), vt.ptr()) != 0)
    throw FatalError(std::string("ictvcf prepare: ") +
                     "the singular value decomposition of S did not converge");
  p.q = mul(u, false, vt, false);
  p.min_singular = s.back();
  for (std::size_t i = 0; i < a.data.size(); ++i)
    p.max_change = std::max(p.max_change, std::fabs(p.q.data[i] - a.data[i]));
  return p;
}

void check_pair(const QcState& fin, const QcState& ini) {
  const int n = fin.natoms();
  if (ini.natoms() != n)
    throw IoError(ini.file, 0,
                  "expected the same " + std::to_string(n) + " atoms as " + fin.file + ", found " +
                      std::to_string(ini.natoms()));
  for (int a = 0; a < n; ++a)
    if (ini.atomic_number[a] != fin.atomic_number[a])
      throw IoError(ini.file, 0,
                    "expected the atoms in the same order as " + fin.file + ": atom " +
                        std::to_string(a + 1) + " is " + element_symbol(ini.atomic_number[a]) +
                        " here but " + element_symbol(fin.atomic_number[a]) + " there");
  for (const QcState* s : {&fin, &ini})
    if (n < 3 || inertia_ratio(s->mass, s->x) < 1e-6)
      throw IoError(s->file, 0,
                    "expected a non-linear molecule: linear molecules (5 translations and "
                    "rotations) are not supported");
}

PrepareResult prepare_pair(const QcState& fin, const QcState& ini, const NacInput* nac) {
  check_pair(fin, ini);
  const int n = fin.natoms();
  PrepareResult r;
  r.natoms = n;
  r.n3 = 3 * n;
  r.nvib = r.n3 - 6;
  for (int a = 0; a < n; ++a) {
    r.mass.push_back(fin.mass[a] * amu_in_me);
    r.max_mass_change =
        std::max(r.max_mass_change, std::fabs(ini.mass[a] - fin.mass[a]) / fin.mass[a]);
  }
  const std::vector<double>& m = r.mass;

  // The initial state turned into the final state's frame.
  r.x1 = centred(m, fin.x);
  const std::vector<double> x2c = centred(m, ini.x);
  r.rotation = best_rotation(m, r.x1, x2c);
  // The angle from both its cosine (the trace) and its sine (the antisymmetric part), accurate
  // also near 0 and 180 degrees.
  const Mat& q = r.rotation;
  const double sine = 0.5 * std::hypot(q(3, 2) - q(2, 3), q(1, 3) - q(3, 1), q(2, 1) - q(1, 2));
  r.rotation_deg =
      std::atan2(sine, 0.5 * (q(1, 1) + q(2, 2) + q(3, 3) - 1.0)) * 180.0 / std::numbers::pi;
  r.x2 = rotated(r.rotation, x2c);
  r.rms_change = rms_distance(r.x1, r.x2);
  const Mat big = block_rotation(r.rotation, n);
  const Mat h2 = mul(big, false, mul(ini.hessian, false, big, true), false);

  r.modes1 = normal_modes(m, r.x1, fin.hessian);
  r.modes2 = normal_modes(m, r.x2, h2);
  const Mat& l1 = r.modes1.l;
  const Mat& l2 = r.modes2.l;

  r.s_raw = mul(l2, true, l1, false);
  std::vector<double> dx(r.n3), delta(r.n3);
  for (int i = 0; i < r.n3; ++i) {
    dx[i] = r.x1[i] - r.x2[i];
    delta[i] = std::sqrt(m[i / 3]) * dx[i];
  }
  r.d1 = mul(l1, true, delta);
  r.d2 = mul(l2, true, delta);

  // S over 3N: the external block and the vibrational block each made orthogonal.
  const int nv = r.nvib;
  Mat ext(6, 6), vib(nv, nv);
  for (int j = 1; j <= 6; ++j)
    for (int i = 1; i <= 6; ++i) ext(i, j) = r.s_raw(i, j);
  for (int j = 1; j <= nv; ++j)
    for (int i = 1; i <= nv; ++i) vib(i, j) = r.s_raw(i + 6, j + 6);
  const Polar pe = nearest_orthogonal(ext), pv = nearest_orthogonal(vib);
  r.min_singular = pv.min_singular;
  r.max_change = pv.max_change;
  r.s = Mat(r.n3, r.n3);
  for (int j = 1; j <= 6; ++j)
    for (int i = 1; i <= 6; ++i) r.s(i, j) = pe.q(i, j);
  for (int j = 1; j <= nv; ++j)
    for (int i = 1; i <= nv; ++i) r.s(i + 6, j + 6) = pv.q(i, j);
  for (int k = 7; k <= r.n3; ++k) {
    double w = 0.0;
    for (int j = 1; j <= 6; ++j) w += r.s_raw(j, k) * r.s_raw(j, k);
    r.leak_mean += w / nv;
    if (w > r.leak) {
      r.leak = w;
      r.leak_mode = k;
    }
  }

  for (int k = 7; k <= r.n3; ++k) {
    const double w1 = r.modes1.omega[k - 1], w2 = r.modes2.omega[k - 1];
    r.lambda1 += 0.5 * w1 * w1 * r.d1[k - 1] * r.d1[k - 1];
    r.lambda2 += 0.5 * w2 * w2 * r.d2[k - 1] * r.d2[k - 1];
    r.hr1 += 0.5 * std::fabs(w1) * r.d1[k - 1] * r.d1[k - 1];
    r.hr2 += 0.5 * std::fabs(w2) * r.d2[k - 1] * r.d2[k - 1];
  }
  const std::vector<double> h1dx = mul(fin.hessian, false, dx), h2dx = mul(h2, false, dx);
  for (int i = 0; i < r.n3; ++i) {
    r.lambda1_cart += 0.5 * dx[i] * h1dx[i];
    r.lambda2_cart += 0.5 * dx[i] * h2dx[i];
  }

  // The files' own frequencies, where they were computed with the same masses.
  const QcState* states[2] = {&fin, &ini};
  const NormalModes* modes[2] = {&r.modes1, &r.modes2};
  for (int s = 0; s < 2; ++s) {
    const auto& own = states[s]->file_omega;
    if (static_cast<int>(own.size()) == nv && (s == 0 || r.max_mass_change < 1e-9)) {
      r.state[s].omega_dev = 0.0;
      for (int k = 0; k < nv; ++k)
        r.state[s].omega_dev =
            std::max(r.state[s].omega_dev, std::fabs(modes[s]->omega[k + 6] * au2cm - own[k]));
    }
  }
  gradient_checks(fin.gradient, m, r.modes1, r.state[0]);
  gradient_checks(ini.gradient.empty() ? ini.gradient : rotated(r.rotation, ini.gradient), m,
                  r.modes2, r.state[1]);

  if (nac) {
    // The coupling and its geometry in the final state's frame.
    std::vector<double> xn, dn;
    if (nac->at == NacGeometry::final_state) {
      xn = r.x1;
      dn = nac->d;
    } else if (nac->at == NacGeometry::initial_state) {
      xn = r.x2;
      dn = rotated(r.rotation, nac->d);
    } else {
      for (int a = 0; a < static_cast<int>(nac->atomic_number.size()) && a < n; ++a)
        if (nac->atomic_number[a] != fin.atomic_number[a])
          throw IoError(nac->file, 0,
                        "expected the atoms in the same order as " + fin.file + ": atom " +
                            std::to_string(a + 1) + " is " + element_symbol(nac->atomic_number[a]) +
                            " here but " + element_symbol(fin.atomic_number[a]) + " there");
      const std::vector<double> xc = centred(m, nac->x);
      const Mat rn = best_rotation(m, r.x1, xc);
      xn = rotated(rn, xc);
      dn = rotated(rn, nac->d);
    }
    r.nac_to_final = rms_distance(xn, r.x1);
    r.nac_to_initial = rms_distance(xn, r.x2);
    double sum[3] = {0, 0, 0}, norms = 0.0;
    for (int a = 0; a < n; ++a) {
      double len = 0.0;
      for (int k = 0; k < 3; ++k) {
        sum[k] += dn[3 * a + k];
        len += dn[3 * a + k] * dn[3 * a + k];
      }
      norms += std::sqrt(len);
    }
    r.nac_sum =
        norms > 0 ? std::sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]) / norms : 0.0;
    // Mass-weighted, its translations and rotations at its own geometry removed, then along the
    // final state's modes.
    std::vector<double> g(r.n3);
    for (int i = 0; i < r.n3; ++i) g[i] = dn[i] / std::sqrt(m[i / 3]);
    const Mat en = external_basis(m, xn);
    const std::vector<double> ge = mul(en, true, g);
    double all = 0.0, outside = 0.0;
    for (double v : g) all += v * v;
    for (double v : ge) outside += v * v;
    r.nac_external = all > 0 ? outside / all : 0.0;
    const std::vector<double> back = mul(en, false, ge);
    for (int i = 0; i < r.n3; ++i) g[i] -= back[i];
    r.rif = mul(l1, true, g);
  }
  return r;
}

double rms_distance(const std::vector<double>& a, const std::vector<double>& b) {
  double s = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) s += (a[i] - b[i]) * (a[i] - b[i]);
  return std::sqrt(s / static_cast<double>(a.size() / 3));
}

std::string mode_name(int k, const NormalModes& modes) {
  return printed("mode %d (%.2f cm-1)", k - 6, modes.omega[std::max(k, 1) - 1] * au2cm);
}

}  // namespace ictvcf
