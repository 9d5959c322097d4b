#include "prepare/atom_order.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <numeric>

#include "prepare/modes.h"
#include "util/lapack.h"

namespace ictvcf {

namespace {

using Mat = Matrix<double>;

// Up to this many atoms the starting rotations include a set spread evenly over all rotations
// (a spherical top such as methane has no principal axes to start from).
constexpr int kSpreadStartsUpTo = 40;
constexpr int kSpreadStarts = 240;
// A renumbering is taken when it lowers the rms distance by more than this fraction (equal
// distances come from relabelling symmetry-equivalent atoms: the numbering as given stays).
constexpr double kWorthIt = 1e-4;
constexpr double kNoDistance = 1e-6;

// The principal axes (columns, by rising moment) of the centred geometry.
Mat principal_axes(const std::vector<double>& m, const std::vector<double>& x) {
  Mat t = inertia_tensor(m, x);
  double mu[3];
  lapack::syev(3, t.ptr(), mu);
  return t;
}

Mat product(const Mat& a, const Mat& b, bool transpose_b) {
  Mat c(3, 3);
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= 3; ++j)
      for (int k = 1; k <= 3; ++k) c(i, j) += a(i, k) * (transpose_b ? b(j, k) : b(k, j));
  return c;
}

double det3(const Mat& a) {
  return a(1, 1) * (a(2, 2) * a(3, 3) - a(2, 3) * a(3, 2)) -
         a(1, 2) * (a(2, 1) * a(3, 3) - a(2, 3) * a(3, 1)) +
         a(1, 3) * (a(2, 1) * a(3, 2) - a(2, 2) * a(3, 1));
}

// The 24 proper rotations that map the coordinate axes onto each other (signed permutations
// with determinant +1).
std::vector<Mat> axis_rotations() {
  std::vector<Mat> out;
  int perm[3] = {0, 1, 2};
  do {
    for (int signs = 0; signs < 8; ++signs) {
      Mat o(3, 3);
      for (int i = 0; i < 3; ++i) o(i + 1, perm[i] + 1) = (signs >> i) & 1 ? -1.0 : 1.0;
      if (det3(o) > 0) out.push_back(o);
    }
  } while (std::next_permutation(perm, perm + 3));
  return out;
}

// Rotations spread evenly over SO(3): unit quaternions on a super-Fibonacci spiral.
std::vector<Mat> spread_rotations(int count) {
  const double phi = std::sqrt(2.0), psi = 1.533751168755204288118041;
  std::vector<Mat> out;
  for (int i = 0; i < count; ++i) {
    const double s = i + 0.5, r = std::sqrt(s / count), big = std::sqrt(1.0 - s / count);
    const double alpha = 2.0 * std::numbers::pi * s / phi, beta = 2.0 * std::numbers::pi * s / psi;
    const double w = r * std::sin(alpha), x = r * std::cos(alpha), y = big * std::sin(beta),
                 z = big * std::cos(beta);
    Mat q(3, 3);
    q(1, 1) = 1 - 2 * (y * y + z * z);
    q(1, 2) = 2 * (x * y - z * w);
    q(1, 3) = 2 * (x * z + y * w);
    q(2, 1) = 2 * (x * y + z * w);
    q(2, 2) = 1 - 2 * (x * x + z * z);
    q(2, 3) = 2 * (y * z - x * w);
    q(3, 1) = 2 * (x * z - y * w);
    q(3, 2) = 2 * (y * z + x * w);
    q(3, 3) = 1 - 2 * (x * x + y * y);
    out.push_back(q);
  }
  return out;
}

struct Fit {
  std::vector<int> order;
  double cost = std::numeric_limits<double>::infinity();  // sum_i m_i |a_i - R b_order(i)|^2
  Mat rotation;
};

double fit_cost(const std::vector<double>& m, const std::vector<double>& a,
                const std::vector<double>& b, const std::vector<int>& order, const Mat& r) {
  double cost = 0.0;
  for (std::size_t i = 0; i < m.size(); ++i)
    for (int k = 0; k < 3; ++k) {
      double y = 0.0;
      for (int l = 0; l < 3; ++l) y += r(k + 1, l + 1) * b[3 * order[i] + l];
      cost += m[i] * (a[3 * i + k] - y) * (a[3 * i + k] - y);
    }
  return cost;
}

// From a starting rotation: assign each element's atoms to the nearest under the rotation, fit
// the rotation to that assignment, and repeat until the assignment no longer changes.
Fit refine(const std::vector<double>& m, const std::vector<double>& a, const std::vector<double>& b,
           const std::vector<std::vector<int>>& groups_a,
           const std::vector<std::vector<int>>& groups_b, Mat r) {
  const std::size_t n = m.size();
  std::vector<int> order(n, -1), previous;
  for (int iteration = 0; iteration < 50; ++iteration) {
    std::vector<double> rb(3 * n);
    for (std::size_t j = 0; j < n; ++j)
      for (int k = 0; k < 3; ++k)
        for (int l = 0; l < 3; ++l) rb[3 * j + k] += r(k + 1, l + 1) * b[3 * j + l];
    for (std::size_t g = 0; g < groups_a.size(); ++g) {
      const auto& ia = groups_a[g];
      const auto& ib = groups_b[g];
      const int size = static_cast<int>(ia.size());
      std::vector<double> cost(static_cast<std::size_t>(size) * size);
      for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j) {
          double d = 0.0;
          for (int k = 0; k < 3; ++k) d += std::pow(a[3 * ia[i] + k] - rb[3 * ib[j] + k], 2);
          cost[static_cast<std::size_t>(i) * size + j] = d;
        }
      const std::vector<int> assigned = cheapest_assignment(cost, size);
      for (int i = 0; i < size; ++i) order[ia[i]] = ib[assigned[i]];
    }
    const std::vector<double> bo = renumbered(b, order);
    r = best_rotation(m, a, bo);
    if (order == previous) break;
    previous = order;
  }
  return Fit{order, fit_cost(m, a, b, order, r), r};
}

double rms_of(const std::vector<double>& a, const std::vector<double>& b,
              const std::vector<int>& order, const Mat& r) {
  const std::vector<double> ones(a.size() / 3, 1.0);
  return std::sqrt(fit_cost(ones, a, b, order, r) / static_cast<double>(ones.size()));
}

}  // namespace

bool AtomMatch::renumbered() const {
  for (std::size_t i = 0; i < order.size(); ++i)
    if (order[i] != static_cast<int>(i)) return true;
  return false;
}

std::vector<int> cheapest_assignment(const std::vector<double>& cost, int n) {
  // Shortest augmenting paths with row and column potentials u, v; indices from 1, column 0 the
  // free end of the current path.
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> u(n + 1), v(n + 1);
  std::vector<int> match(n + 1), way(n + 1);
  for (int i = 1; i <= n; ++i) {
    match[0] = i;
    int j0 = 0;
    std::vector<double> minv(n + 1, inf);
    std::vector<char> used(n + 1, 0);
    do {
      used[j0] = 1;
      const int i0 = match[j0];
      double delta = inf;
      int j1 = 0;
      for (int j = 1; j <= n; ++j)
        if (!used[j]) {
          const double cur = cost[static_cast<std::size_t>(i0 - 1) * n + (j - 1)] - u[i0] - v[j];
          if (cur < minv[j]) {
            minv[j] = cur;
            way[j] = j0;
          }
          if (minv[j] < delta) {
            delta = minv[j];
            j1 = j;
          }
        }
      for (int j = 0; j <= n; ++j)
        if (used[j]) {
          u[match[j]] += delta;
          v[j] -= delta;
        } else {
          minv[j] -= delta;
        }
      j0 = j1;
    } while (match[j0] != 0);
    do {
      const int j1 = way[j0];
      match[j0] = match[j1];
      j0 = j1;
    } while (j0 != 0);
  }
  std::vector<int> out(n);
  for (int j = 1; j <= n; ++j) out[match[j] - 1] = j - 1;
  return out;
}

std::vector<double> renumbered(const std::vector<double>& v, const std::vector<int>& order) {
  std::vector<double> out(v.size());
  for (std::size_t i = 0; i < order.size(); ++i)
    for (int k = 0; k < 3; ++k) out[3 * i + k] = v[3 * order[i] + k];
  return out;
}

AtomMatch match_atoms(const std::vector<double>& mass, const std::vector<int>& element_a,
                      const std::vector<double>& a, const std::vector<int>& element_b,
                      const std::vector<double>& b) {
  const int n = static_cast<int>(mass.size());
  const std::vector<double> ac = centred(mass, a), bc = centred(mass, b);
  std::map<int, std::vector<int>> by_a, by_b;
  for (int i = 0; i < n; ++i) {
    by_a[element_a[i]].push_back(i);
    by_b[element_b[i]].push_back(i);
  }
  std::vector<std::vector<int>> groups_a, groups_b;
  for (const auto& [z, atoms] : by_a) {
    groups_a.push_back(atoms);
    groups_b.push_back(by_b[z]);
  }

  AtomMatch out;
  std::vector<int> identity(n);
  std::iota(identity.begin(), identity.end(), 0);
  const Mat r0 = best_rotation(mass, ac, bc);
  const double cost0 = fit_cost(mass, ac, bc, identity, r0);
  out.rms_before = rms_of(ac, bc, identity, r0);

  std::vector<Mat> starts{r0};
  const Mat pa = principal_axes(mass, ac), pb = principal_axes(mass, bc);
  for (const Mat& o : axis_rotations()) starts.push_back(product(product(pa, o, false), pb, true));
  if (n <= kSpreadStartsUpTo)
    for (const Mat& q : spread_rotations(kSpreadStarts)) starts.push_back(q);
  Fit best;
  for (const Mat& r : starts) {
    Fit f = refine(mass, ac, bc, groups_a, groups_b, r);
    if (f.cost < best.cost) best = std::move(f);
  }
  // The numbering as given unless another removes a distance worth removing.
  // (With the elements in another order the numbering as given is no candidate.) A distance
  // below kNoDistance bohr is rounding, nothing to remove.
  const double rms_best = rms_of(ac, bc, best.order, best.rotation);
  const bool better =
      element_a != element_b || (std::sqrt(best.cost) < (1.0 - kWorthIt) * std::sqrt(cost0) &&
                                 out.rms_before - rms_best > kNoDistance);
  if (better) {
    out.order = best.order;
    out.rms_after = rms_best;
  } else {
    out.order = identity;
    out.rms_after = out.rms_before;
  }
  return out;
}

std::string describe_order(const std::vector<int>& order, const std::vector<int>& element,
                           std::size_t limit) {
  std::string s;
  std::size_t shown = 0, moved = 0;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (order[i] == static_cast<int>(i)) continue;
    ++moved;
    if (shown == limit) continue;
    s += (shown ? ", " : "") + element_symbol(element[i]) + std::to_string(i + 1) + " <- " +
         element_symbol(element[i]) + std::to_string(order[i] + 1);
    ++shown;
  }
  if (moved > shown) s += ", ... (" + std::to_string(moved) + " atoms in all)";
  return s;
}

void renumber_atoms(QcState& s, const std::vector<int>& order) {
  const int n = static_cast<int>(order.size());
  std::vector<int> z(n);
  std::vector<double> mass(n);
  for (int i = 0; i < n; ++i) {
    z[i] = s.atomic_number[order[i]];
    mass[i] = s.mass[order[i]];
  }
  s.atomic_number = z;
  s.mass = mass;
  s.x = renumbered(s.x, order);
  if (!s.gradient.empty()) s.gradient = renumbered(s.gradient, order);
  if (!s.nac.empty()) s.nac = renumbered(s.nac, order);
  if (!s.hessian.empty()) {
    Mat h(3 * n, 3 * n);
    for (int j = 0; j < 3 * n; ++j)
      for (int i = 0; i < 3 * n; ++i)
        h(i + 1, j + 1) = s.hessian(3 * order[i / 3] + i % 3 + 1, 3 * order[j / 3] + j % 3 + 1);
    s.hessian = h;
  }
}

}  // namespace ictvcf
