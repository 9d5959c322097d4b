#include "prepare/models.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "util/constants.h"
#include "util/errors.h"
#include "util/lapack.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using Mat = Matrix<double>;

// Each atom's three components turned by r (transposed with `back`).
std::vector<double> rotated(const Mat& r, const std::vector<double>& v, bool back = false) {
  std::vector<double> out(v.size());
  for (std::size_t a = 0; a < v.size() / 3; ++a)
    for (int i = 0; i < 3; ++i)
      for (int k = 0; k < 3; ++k)
        out[3 * a + i] += (back ? r(k + 1, i + 1) : r(i + 1, k + 1)) * v[3 * a + k];
  return out;
}

// R^T H R with R the rotation r applied to every atom.
Mat hessian_turned_back(const Mat& r, const Mat& h) {
  const int n3 = h.rows;
  Mat out(n3, n3);
  for (int a = 0; a < n3; a += 3)
    for (int b = 0; b < n3; b += 3)
      for (int i = 1; i <= 3; ++i)
        for (int j = 1; j <= 3; ++j) {
          double v = 0.0;
          for (int k = 1; k <= 3; ++k)
            for (int l = 1; l <= 3; ++l) v += r(k, i) * h(a + k, b + l) * r(l, j);
          out(a + i, b + j) = v;
        }
  return out;
}

void totals(PrepareResult& r) {
  r.lambda1 = r.lambda2 = r.hr1 = r.hr2 = 0.0;
  for (int k = 7; k <= r.n3; ++k) {
    const double w1 = r.modes1.omega[k - 1], w2 = r.modes2.omega[k - 1];
    const double q1 = r.d1[k - 1], q2 = r.d2[k - 1];
    r.lambda1 += 0.5 * w1 * w1 * q1 * q1;
    r.lambda2 += 0.5 * w2 * w2 * q2 * q2;
    r.hr1 += 0.5 * std::fabs(w1) * q1 * q1;
    r.hr2 += 0.5 * std::fabs(w2) * q2 * q2;
  }
}

// Where the Cartesian frame and the curvilinear one part: the Duschinsky matrices' largest
// difference, and the largest turn of a bond between the minima (a bond turning by theta mixes,
// in Cartesian coordinates, the modes that stretch it with those that turn it by about sin theta;
// along the bond the frames agree).
void compare_frames(const PrepareResult& r, const Curvilinear& c, const std::vector<int>& z,
                    ModelReport& rep) {
  for (int j = 1; j <= r.nvib; ++j)
    for (int i = 1; i <= r.nvib; ++i) {
      const double d = std::fabs(r.s(i + 6, j + 6) - c.polar.q(i, j));
      if (d > rep.s_difference) {
        rep.s_difference = d;
        rep.s_row = i + 6;
        rep.s_col = j + 6;
      }
    }
  for (const Primitive& p : c.set.prims) {
    if (p.kind != PrimitiveKind::bond) continue;
    const double turn = bond_turn(p, r.x1, r.x2);
    if (turn > rep.turn) {
      rep.turn = turn;
      rep.turn_label = primitive_label(p, z);
    }
  }
}

void adiabatic(const QcState& fin, const QcState& ini, const NacInput* nac, const ModelOptions& o,
               ModelReport& rep, PrepareResult& r) {
  r = prepare_pair(fin, ini, nac);
  rep.lambda_cart[0] = r.lambda1;
  rep.lambda_cart[1] = r.lambda2;
  rep.hr_cart[0] = r.hr1;
  rep.hr_cart[1] = r.hr2;
  try {
    const Curvilinear c = curvilinear(r, find_internals(fin.atomic_number, r.x1, r.x2));
    rep.internal_ok = true;
    rep.set = c.set;
    rep.lambda_int[0] = c.lambda1;
    rep.lambda_int[1] = c.lambda2;
    rep.hr_int[0] = c.hr1;
    rep.hr_int[1] = c.hr2;
    for (int s = 0; s < 2; ++s)
      if (rep.lambda_int[s] > 0)
        rep.difference =
            std::max(rep.difference, std::fabs(rep.lambda_cart[s] / rep.lambda_int[s] - 1.0));
    std::vector<int> order(c.energy.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&c](int i, int j) {
      return std::fabs(c.energy[i]) > std::fabs(c.energy[j]);
    });
    for (std::size_t k = 0; k < std::min<std::size_t>(3, order.size()); ++k) {
      const int i = order[k];
      const Primitive& p = c.set.prims[i];
      rep.carriers.push_back(
          {primitive_label(p, fin.atomic_number), p.kind, c.energy[i], c.ds[i], c.chord[i]});
    }
    compare_frames(r, c, fin.atomic_number, rep);
    if (o.coordinates == Coordinates::internal) use_curvilinear(r, c);
  } catch (const InternalsUnavailable& e) {
    if (o.coordinates == Coordinates::internal)
      throw IoError(e.state == 2 ? ini.file : fin.file, 0, e.what());
    rep.internal_why = e.what();
  }
}

// Both states expanded about FINAL's geometry; the initial state's minimum lies at
// x1 - H2^-1 g, so that D2 = L2^T M^1/2 (x1 - x2) = g_k / w_k^2 along its modes.
void vertical(const QcState& fin, const QcState& ini, const NacInput* nac, const ModelOptions& o,
              ModelReport& rep, PrepareResult& r) {
  const char* name = o.model == Model::vg ? "vg" : "vh";
  if (ini.gradient.empty())
    throw IoError(ini.file, 0,
                  std::string("expected the initial state's gradient at the final geometry for "
                              "--model ") +
                      name +
                      " ('Cartesian Gradient' of a formatted checkpoint, or an ORCA .engrad "
                      "file)");
  check_pair(fin, ini);
  QcState second = ini;
  if (o.model == Model::vg) {
    // FINAL's Hessian written in INITIAL's frame, so that the alignment turns it back.
    std::vector<double> m(fin.mass);
    for (double& v : m) v *= amu_in_me;
    const Mat turn = best_rotation(m, centred(m, fin.x), centred(m, ini.x));
    second.hessian = hessian_turned_back(turn, fin.hessian);
  }
  r = prepare_pair(fin, second, nac);
  rep.geometry_rms = r.rms_change;
  if (r.rms_change > kVerticalGeometryBohr)
    throw IoError(ini.file, 0,
                  printed("expected the gradient at the geometry of %s (the vertical models "
                          "expand both states there), found a geometry %.3g bohr (rms) from it",
                          fin.file.c_str(), r.rms_change));
  if (o.model == Model::vg) {
    r.modes2 = r.modes1;
    for (Mat* s : {&r.s, &r.s_raw}) {
      *s = Mat(r.n3, r.n3);
      for (int i = 1; i <= r.n3; ++i) (*s)(i, i) = 1.0;
    }
    r.min_singular = 1.0;
    r.max_change = r.leak = r.leak_mean = 0.0;
    r.leak_mode = 7;
  }
  // INITIAL's gradient is not a sign of a poorly converged minimum here.
  r.state[1] = PrepareResult::StateChecks{};

  std::vector<double> g = rotated(r.rotation, ini.gradient);
  for (int i = 0; i < r.n3; ++i) g[i] /= std::sqrt(r.mass[i / 3]);
  r.d2.assign(r.n3, 0.0);
  double g2 = 0.0;
  for (int k = 7; k <= r.n3; ++k) {
    double gk = 0.0;
    for (int i = 1; i <= r.n3; ++i) gk += r.modes2.l(i, k) * g[i - 1];
    const double w = r.modes2.omega[k - 1];
    r.d2[k - 1] = gk / (w * std::fabs(w));
    g2 += gk * gk;
  }
  rep.gradient_norm = std::sqrt(g2);
  r.d1.assign(r.n3, 0.0);
  for (int k = 1; k <= r.n3; ++k)
    for (int j = 1; j <= r.n3; ++j) r.d1[k - 1] += r.s_raw(j, k) * r.d2[j - 1];
  totals(r);
  r.lambda1_cart = r.lambda1;
  r.lambda2_cart = r.lambda2;
  rep.ead_shift = -r.lambda2;
}

}  // namespace

std::pair<int, double> drop_modes_below(PrepareResult& r, double omega_min) {
  std::vector<double> removed(r.n3, 0.0);
  int count = 0;
  double lambda = 0.0;
  for (int k = 7; k <= r.n3; ++k) {
    const double w = r.modes1.omega[k - 1];
    if (w >= omega_min) continue;
    removed[k - 1] = r.d1[k - 1];
    lambda += 0.5 * w * w * r.d1[k - 1] * r.d1[k - 1];
    r.d1[k - 1] = 0.0;
    ++count;
  }
  for (int i = 1; i <= r.n3; ++i)
    for (int k = 1; k <= r.n3; ++k) r.d2[i - 1] -= r.s(i, k) * removed[k - 1];
  totals(r);
  return {count, lambda};
}

PrepareResult prepare_model(const QcState& fin, const QcState& ini, const NacInput* nac,
                            const ModelOptions& o, ModelReport& rep) {
  rep = ModelReport{};
  rep.model = o.model;
  rep.coordinates = o.model == Model::ah ? o.coordinates : Coordinates::cartesian;
  PrepareResult r;
  if (o.model == Model::ah)
    adiabatic(fin, ini, nac, o, rep, r);
  else
    vertical(fin, ini, nac, o, rep, r);
  if (o.drop_below > 0.0) {
    rep.drop_below = o.drop_below;
    rep.lambda2_before = r.lambda2;
    const auto [count, lambda] = drop_modes_below(r, o.drop_below);
    rep.dropped = count;
    rep.dropped_lambda1 = lambda;
  }
  return r;
}

}  // namespace ictvcf
