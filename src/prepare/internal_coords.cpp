#include "prepare/internal_coords.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "prepare/qc_files.h"
#include "util/lapack.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using Mat = Matrix<double>;
constexpr double kPi = std::numbers::pi;
constexpr double kBohrPerAngstrom = 1.0 / 0.529177210903;

// Covalent radii in angstrom, Z = 1-96 (Cordero et al. 2008; sp3 carbon, low-spin Mn, Fe, Co).
constexpr double kRadius[] = {
    0.31, 0.28, 1.28, 0.96, 0.84, 0.76, 0.71, 0.66, 0.57, 0.58, 1.66, 1.41, 1.21, 1.11, 1.07, 1.05,
    1.02, 1.06, 2.03, 1.76, 1.70, 1.60, 1.53, 1.39, 1.39, 1.32, 1.26, 1.24, 1.32, 1.22, 1.22, 1.20,
    1.19, 1.20, 1.20, 1.16, 2.20, 1.95, 1.90, 1.75, 1.64, 1.54, 1.47, 1.46, 1.42, 1.39, 1.45, 1.44,
    1.42, 1.39, 1.39, 1.38, 1.39, 1.40, 2.44, 2.15, 2.07, 2.04, 2.03, 2.01, 1.99, 1.98, 1.98, 1.96,
    1.94, 1.92, 1.92, 1.89, 1.90, 1.87, 1.87, 1.75, 1.70, 1.62, 1.51, 1.44, 1.41, 1.36, 1.36, 1.32,
    1.45, 1.46, 1.48, 1.40, 1.50, 1.50, 2.60, 2.21, 2.15, 2.06, 2.00, 1.96, 1.90, 1.87, 1.80, 1.69};

double radius_bohr(int z) {
  constexpr int n = sizeof(kRadius) / sizeof(kRadius[0]);
  return (z >= 1 && z <= n ? kRadius[z - 1] : 1.5) * kBohrPerAngstrom;
}

struct V3 {
  double x = 0, y = 0, z = 0;
};
V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
V3 operator+(V3 a, V3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
V3 operator*(double s, V3 a) { return {s * a.x, s * a.y, s * a.z}; }
double dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
V3 cross(V3 a, V3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
double norm(V3 a) { return std::sqrt(dot(a, a)); }
V3 at(const std::vector<double>& x, int i) { return {x[3 * i], x[3 * i + 1], x[3 * i + 2]}; }

double distance(const std::vector<double>& x, int i, int j) { return norm(at(x, i) - at(x, j)); }

// The angle between two directions, 0 .. pi, accurate near both ends.
double between(V3 u, V3 v) { return std::atan2(norm(cross(u, v)), dot(u, v)); }

double angle(const std::vector<double>& x, int a, int b, int c) {
  return between(at(x, a) - at(x, b), at(x, c) - at(x, b));
}

// Wrapped into (-pi, pi].
double wrapped(double t) {
  t = std::remainder(t, 2.0 * kPi);
  return t <= -kPi ? t + 2.0 * kPi : t;
}

// Adds v to the three components of atom i in row `row` of b.
void add(Mat& b, int row, int i, V3 v) {
  b(row, 3 * i + 1) += v.x;
  b(row, 3 * i + 2) += v.y;
  b(row, 3 * i + 3) += v.z;
}

// The generalised inverse of a (m x n, m >= n) from its singular value decomposition; `ratio` is
// its smallest singular value over the largest, 0 when m < n.
Mat pseudo_inverse(const Mat& a, double& ratio) {
  const int m = a.rows, n = a.cols;
  ratio = 0.0;
  Mat p(n, m);
  if (m < n || n == 0) return p;
  Mat work = a, u(m, n), vt(n, n);
  std::vector<double> s(n);
  if (lapack::gesvd_thin(m, n, work.ptr(), s.data(), u.ptr(), vt.ptr()) != 0)
    throw InternalsUnavailable(
        "the singular value decomposition of the internal coordinates did not converge", 0);
  ratio = s[0] > 0 ? s[n - 1] / s[0] : 0.0;
  for (int k = 1; k <= n; ++k) {
    if (s[k - 1] <= 1e-12 * s[0]) continue;
    for (int j = 1; j <= m; ++j) {
      const double uk = u(j, k) / s[k - 1];
      for (int i = 1; i <= n; ++i) p(i, j) += vt(k, i) * uk;
    }
  }
  return p;
}

// A_2^T Gm^+ A_1 with Gm = (A_1 A_1^T + A_2 A_2^T) / 2 taken over its largest eigenvalues, as many
// as there are vibrations (the rest, of the order of the square of the geometry change, belong to
// neither state's range). With C = [A_1 A_2] and C^T C = W L W^T, Gm = C C^T / 2 has the
// eigenvectors C w_k / sqrt(l_k), and the product reduces to 2 sum_k w2_k w1_k^T over the largest
// l_k (w1, w2 the halves of w): no matrix over the primitives is formed.
Mat mean_metric_duschinsky(const Mat& a1, const Mat& a2) {
  const int ns = a1.rows, nv = a1.cols;
  Mat c(ns, 2 * nv);
  std::copy(a1.data.begin(), a1.data.end(), c.data.begin());
  std::copy(a2.data.begin(), a2.data.end(), c.data.begin() + a1.data.size());
  Mat w = mul(c, true, c, false);
  std::vector<double> l(2 * nv);
  if (lapack::syev(2 * nv, w.ptr(), l.data()) != 0)
    throw InternalsUnavailable("the eigenvalues of the kinetic metric did not converge", 0);
  Mat s(nv, nv);
  for (int k = nv + 1; k <= 2 * nv; ++k)
    for (int j = 1; j <= nv; ++j)
      for (int i = 1; i <= nv; ++i) s(i, j) += 2.0 * w(nv + i, k) * w(j, k);
  return s;
}

// A = B(x) M^-1/2 L_vib: the state's vibrations as changes of the primitives.
Mat modes_in_primitives(const InternalSet& set, const std::vector<double>& x,
                        const std::vector<double>& m, const NormalModes& modes) {
  Mat b = wilson_b(set, x);
  for (int j = 1; j <= b.cols; ++j) {
    const double w = 1.0 / std::sqrt(m[(j - 1) / 3]);
    for (int i = 1; i <= b.rows; ++i) b(i, j) *= w;
  }
  const int n3 = modes.l.rows;
  Mat lv(n3, n3 - 6);
  std::copy(modes.l.data.begin() + 6 * static_cast<std::size_t>(n3), modes.l.data.end(),
            lv.data.begin());
  return mul(b, false, lv, false);
}

}  // namespace

InternalSet find_internals(const std::vector<int>& z, const std::vector<double>& x1,
                           const std::vector<double>& x2) {
  const int n = static_cast<int>(z.size());
  InternalSet set;
  std::vector<std::vector<int>> nbr(n);
  std::vector<int> piece(n);
  std::iota(piece.begin(), piece.end(), 0);
  auto root = [&piece](int i) {
    while (piece[i] != i) i = piece[i] = piece[piece[i]];
    return i;
  };
  auto bond = [&](int i, int j) {
    set.prims.push_back({PrimitiveKind::bond, i, j, -1, -1, {0, 0, 0}});
    ++set.bonds;
    nbr[i].push_back(j);
    nbr[j].push_back(i);
    piece[root(i)] = root(j);
  };
  for (int i = 0; i < n; ++i)
    for (int j = i + 1; j < n; ++j) {
      const double limit = 1.3 * (radius_bohr(z[i]) + radius_bohr(z[j]));
      if (distance(x1, i, j) < limit || distance(x2, i, j) < limit) bond(i, j);
    }
  // Pieces joined, closest first, at the final geometry.
  for (;;) {
    double best = 0.0;
    int bi = -1, bj = -1;
    for (int i = 0; i < n; ++i)
      for (int j = i + 1; j < n; ++j)
        if (root(i) != root(j) && (bi < 0 || distance(x1, i, j) < best)) {
          best = distance(x1, i, j);
          bi = i;
          bj = j;
        }
    if (bi < 0) break;
    if (best > kMaxJoinBohr)
      throw InternalsUnavailable(
          printed("expected one molecule: the geometry falls into pieces whose closest atoms "
                  "(%d and %d) are %.2f bohr apart, more than the %.0f bohr over which internal "
                  "coordinates join them",
                  bi + 1, bj + 1, best, kMaxJoinBohr),
          1);
    bond(bi, bj);
    ++set.joins;
  }
  for (auto& v : nbr) std::sort(v.begin(), v.end());

  const double linear = kLinearDeg * kPi / 180.0;
  auto straight = [&](int a, int b, int c) {
    return angle(x1, a, b, c) > linear || angle(x2, a, b, c) > linear;
  };
  for (int b = 0; b < n; ++b)
    for (std::size_t i = 0; i < nbr[b].size(); ++i)
      for (std::size_t k = i + 1; k < nbr[b].size(); ++k) {
        const int a = nbr[b][i], c = nbr[b][k];
        if (!straight(a, b, c)) {
          set.prims.push_back({PrimitiveKind::angle, a, b, c, -1, {0, 0, 0}});
          ++set.angles;
          continue;
        }
        // Two directions perpendicular to the a-c axis: the Cartesian axis least along it, made
        // perpendicular, and the third of the right-handed set. Any orthonormal pair gives the
        // same displacements (they enter only through least squares).
        V3 w = at(x1, c) - at(x1, a);
        w = (1.0 / norm(w)) * w;
        const double aw[3] = {std::fabs(w.x), std::fabs(w.y), std::fabs(w.z)};
        const int axis = static_cast<int>(std::min_element(aw, aw + 3) - aw);
        V3 e1{axis == 0 ? 1.0 : 0.0, axis == 1 ? 1.0 : 0.0, axis == 2 ? 1.0 : 0.0};
        e1 = e1 - dot(e1, w) * w;
        e1 = (1.0 / norm(e1)) * e1;
        const V3 e2 = cross(w, e1);
        for (V3 e : {e1, e2})
          set.prims.push_back({PrimitiveKind::linear_bend, a, b, c, -1, {e.x, e.y, e.z}});
        set.linear_bends += 2;
      }
  for (int b = 0; b < n; ++b)
    for (int c : nbr[b]) {
      if (c < b) continue;
      for (int a : nbr[b])
        for (int d : nbr[c]) {
          if (a == c || d == b || a == d || straight(a, b, c) || straight(b, c, d)) continue;
          set.prims.push_back({PrimitiveKind::dihedral, a, b, c, d, {0, 0, 0}});
          ++set.dihedrals;
        }
    }
  for (int b = 0; b < n; ++b) {
    if (nbr[b].size() != 3) continue;
    const int a = nbr[b][0], c = nbr[b][1], d = nbr[b][2];
    if (straight(a, b, c) || straight(c, b, d)) continue;
    set.prims.push_back({PrimitiveKind::out_of_plane, a, b, c, d, {0, 0, 0}});
    ++set.out_of_plane;
  }
  // Torsions about straight chains p-x-...-q (C-C#C-C): the dihedrals a-p-q-d between the atoms
  // bonded to its two ends, which no dihedral above describes.
  for (int p = 0; p < n; ++p)
    for (int x : nbr[p]) {
      int prev = p, cur = x, steps = 0;
      for (bool more = true; more && steps <= n; ++steps) {
        more = false;
        for (int next : nbr[cur])
          if (next != prev && straight(prev, cur, next)) {
            prev = cur;
            cur = next;
            more = true;
            break;
          }
      }
      const int q = cur;
      if (steps < 2 || q <= p) continue;  // no straight angle at x, or the chain seen from q
      for (int a : nbr[p])
        for (int d : nbr[q])
          if (a != x && d != prev && a != d && !straight(a, p, x) && !straight(prev, q, d)) {
            set.prims.push_back({PrimitiveKind::dihedral, a, p, q, d, {0, 0, 0}});
            ++set.dihedrals;
          }
    }
  return set;
}

double primitive_value(const Primitive& p, const std::vector<double>& x) {
  switch (p.kind) {
    case PrimitiveKind::bond:
      return distance(x, p.a, p.b);
    case PrimitiveKind::angle:
      return angle(x, p.a, p.b, p.c);
    case PrimitiveKind::linear_bend: {
      const V3 u = at(x, p.a) - at(x, p.b), v = at(x, p.c) - at(x, p.b);
      const V3 e{p.e[0], p.e[1], p.e[2]};
      return dot(e, (1.0 / norm(u)) * u + (1.0 / norm(v)) * v);
    }
    case PrimitiveKind::dihedral:
    case PrimitiveKind::out_of_plane: {
      // F = a - b, G = b - c, H = d - c; A = F x G, B = H x G; the angle between A and B, its
      // sign that of (B x A) . G (Blondel and Karplus, J. Comput. Chem. 17, 1132 (1996)).
      const V3 f = at(x, p.a) - at(x, p.b), g = at(x, p.b) - at(x, p.c),
               h = at(x, p.d) - at(x, p.c);
      const V3 a = cross(f, g), b = cross(h, g);
      return std::atan2(dot(cross(b, a), g) / norm(g), dot(a, b));
    }
  }
  return 0.0;
}

std::vector<double> internal_difference(const InternalSet& set, const std::vector<double>& x1,
                                        const std::vector<double>& x2) {
  std::vector<double> ds(set.prims.size());
  for (std::size_t i = 0; i < ds.size(); ++i) {
    const Primitive& p = set.prims[i];
    ds[i] = primitive_value(p, x1) - primitive_value(p, x2);
    if (p.kind == PrimitiveKind::dihedral || p.kind == PrimitiveKind::out_of_plane)
      ds[i] = wrapped(ds[i]);
  }
  return ds;
}

double bond_turn(const Primitive& p, const std::vector<double>& x1, const std::vector<double>& x2) {
  return between(at(x1, p.b) - at(x1, p.a), at(x2, p.b) - at(x2, p.a));
}

Matrix<double> wilson_b(const InternalSet& set, const std::vector<double>& x) {
  Mat b(static_cast<int>(set.prims.size()), static_cast<int>(x.size()));
  for (std::size_t k = 0; k < set.prims.size(); ++k) {
    const Primitive& p = set.prims[k];
    const int row = static_cast<int>(k) + 1;
    switch (p.kind) {
      case PrimitiveKind::bond: {
        V3 u = at(x, p.a) - at(x, p.b);
        u = (1.0 / norm(u)) * u;
        add(b, row, p.a, u);
        add(b, row, p.b, -1.0 * u);
        break;
      }
      case PrimitiveKind::angle: {
        const V3 u = at(x, p.a) - at(x, p.b), v = at(x, p.c) - at(x, p.b);
        const double lu = norm(u), lv = norm(v);
        const V3 eu = (1.0 / lu) * u, ev = (1.0 / lv) * v;
        const double c = dot(eu, ev), s = norm(cross(eu, ev));
        const V3 da = (1.0 / (lu * s)) * (c * eu - ev), dc = (1.0 / (lv * s)) * (c * ev - eu);
        add(b, row, p.a, da);
        add(b, row, p.c, dc);
        add(b, row, p.b, -1.0 * (da + dc));
        break;
      }
      case PrimitiveKind::linear_bend: {
        const V3 u = at(x, p.a) - at(x, p.b), v = at(x, p.c) - at(x, p.b);
        const double lu = norm(u), lv = norm(v);
        const V3 eu = (1.0 / lu) * u, ev = (1.0 / lv) * v, e{p.e[0], p.e[1], p.e[2]};
        const V3 da = (1.0 / lu) * (e - dot(e, eu) * eu), dc = (1.0 / lv) * (e - dot(e, ev) * ev);
        add(b, row, p.a, da);
        add(b, row, p.c, dc);
        add(b, row, p.b, -1.0 * (da + dc));
        break;
      }
      case PrimitiveKind::dihedral:
      case PrimitiveKind::out_of_plane: {
        // Blondel and Karplus (1996), eq. 27.
        const V3 f = at(x, p.a) - at(x, p.b), g = at(x, p.b) - at(x, p.c),
                 h = at(x, p.d) - at(x, p.c);
        const V3 a = cross(f, g), bb = cross(h, g);
        const double a2 = dot(a, a), b2 = dot(bb, bb), lg = norm(g);
        const double fg = dot(f, g) / (a2 * lg), hg = dot(h, g) / (b2 * lg);
        const V3 di = (-lg / a2) * a, dl = (lg / b2) * bb;
        add(b, row, p.a, di);
        add(b, row, p.b, (lg / a2) * a + fg * a - hg * bb);
        add(b, row, p.c, hg * bb - fg * a - (lg / b2) * bb);
        add(b, row, p.d, dl);
        break;
      }
    }
  }
  return b;
}

std::string primitive_label(const Primitive& p, const std::vector<int>& z) {
  auto atom = [&z](int i) { return element_symbol(z[i]) + std::to_string(i + 1); };
  switch (p.kind) {
    case PrimitiveKind::bond:
      return atom(p.a) + "-" + atom(p.b) + " bond";
    case PrimitiveKind::angle:
      return atom(p.a) + "-" + atom(p.b) + "-" + atom(p.c) + " angle";
    case PrimitiveKind::linear_bend:
      return atom(p.a) + "-" + atom(p.b) + "-" + atom(p.c) + " linear bend";
    case PrimitiveKind::dihedral:
      return atom(p.a) + "-" + atom(p.b) + "-" + atom(p.c) + "-" + atom(p.d) + " dihedral";
    case PrimitiveKind::out_of_plane:
      return atom(p.b) + " out of plane (" + atom(p.a) + "-" + atom(p.b) + "-" + atom(p.c) + "-" +
             atom(p.d) + ")";
  }
  return "";
}

Curvilinear curvilinear(const PrepareResult& r, const InternalSet& set) {
  Curvilinear c;
  c.set = set;
  const int nv = r.nvib, ns = static_cast<int>(set.prims.size());
  const Mat a1 = modes_in_primitives(set, r.x1, r.mass, r.modes1);
  const Mat a2 = modes_in_primitives(set, r.x2, r.mass, r.modes2);
  double ratio1 = 0.0, ratio2 = 0.0;
  const Mat p1 = pseudo_inverse(a1, ratio1), p2 = pseudo_inverse(a2, ratio2);
  c.min_singular_a = std::min(ratio1, ratio2);
  if (c.min_singular_a < kMinSpan)
    throw InternalsUnavailable(
        printed("expected internal coordinates that describe every vibration: the %d primitives "
                "leave one out (smallest singular value %.1e of the largest, state %d)",
                ns, c.min_singular_a, ratio1 <= ratio2 ? 1 : 2),
        0);

  c.ds = internal_difference(set, r.x1, r.x2);
  const std::vector<double> q1 = mul(p1, false, c.ds), q2 = mul(p2, false, c.ds);
  c.s_raw = mean_metric_duschinsky(a1, a2);
  c.polar = nearest_orthogonal(c.s_raw);
  c.d1.assign(r.n3, 0.0);
  c.d2.assign(r.n3, 0.0);
  for (int k = 0; k < nv; ++k) {
    c.d1[k + 6] = q1[k];
    c.d2[k + 6] = q2[k];
    const double w1 = r.modes1.omega[k + 6], w2 = r.modes2.omega[k + 6];
    c.lambda1 += 0.5 * w1 * w1 * q1[k] * q1[k];
    c.lambda2 += 0.5 * w2 * w2 * q2[k] * q2[k];
    c.hr1 += 0.5 * std::fabs(w1) * q1[k] * q1[k];
    c.hr2 += 0.5 * std::fabs(w2) * q2[k] * q2[k];
  }

  // lambda1(Cartesian) - lambda1(internal) = 1/2 (D_c - D)^T W^2 (D_c + D) with D_c = A^+ chord
  // and D = A^+ ds, split over the primitives as 1/2 (chord - ds)_i [A^+T W^2 (D_c + D)]_i.
  std::vector<double> dc(nv), y(nv);
  for (int k = 0; k < nv; ++k) {
    dc[k] = r.d1[k + 6];
    const double w = r.modes1.omega[k + 6];
    y[k] = w * w * (dc[k] + q1[k]);
  }
  c.chord = mul(a1, false, dc);
  const std::vector<double> f = mul(p1, true, y);
  c.energy.resize(ns);
  for (int i = 0; i < ns; ++i) c.energy[i] = 0.5 * (c.chord[i] - c.ds[i]) * f[i];
  return c;
}

void use_curvilinear(PrepareResult& r, const Curvilinear& c) {
  const int nv = r.nvib;
  for (int j = 1; j <= nv; ++j)
    for (int i = 1; i <= nv; ++i) r.s(i + 6, j + 6) = c.polar.q(i, j);
  r.min_singular = c.polar.min_singular;
  r.max_change = c.polar.max_change;
  r.d1 = c.d1;
  r.d2 = c.d2;
  r.lambda1 = c.lambda1;
  r.lambda2 = c.lambda2;
  r.hr1 = c.hr1;
  r.hr2 = c.hr2;
}

}  // namespace ictvcf
