// Helpers of the prepare tests: the bundled Gaussian pairs, rigid motions of a state, and an
// ORCA Hessian file written from a state.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "prepare/qc_files.h"
#include "util/strings.h"

namespace ictvcf::testing {

inline std::string qc_file(const std::string& rel) {
  return std::string(ICTVCF_TEST_DATA) + "/qc/" + rel;
}

// Rotation by `deg` degrees about the axis (ax, ay, az).
inline Matrix<double> rotation(double ax, double ay, double az, double deg) {
  const double n = std::sqrt(ax * ax + ay * ay + az * az), u[3] = {ax / n, ay / n, az / n};
  const double c = std::cos(deg * std::numbers::pi / 180.0),
               s = std::sin(deg * std::numbers::pi / 180.0);
  Matrix<double> r(3, 3);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      r(i + 1, j + 1) = (i == j ? c : 0.0) + (1 - c) * u[i] * u[j];
      const int k = 3 - i - j;
      if (i != j) r(i + 1, j + 1) += ((j - i + 3) % 3 == 1 ? -1.0 : 1.0) * s * u[k];
    }
  return r;
}

// max |S^T S - 1|: how far S is from orthogonal.
inline double orthogonality_defect(const Matrix<double>& s) {
  double off = 0.0;
  for (int i = 1; i <= s.cols; ++i)
    for (int j = 1; j <= s.cols; ++j) {
      double dot = 0.0;
      for (int k = 1; k <= s.rows; ++k) dot += s(k, i) * s(k, j);
      off = std::max(off, std::fabs(dot - (i == j ? 1.0 : 0.0)));
    }
  return off;
}

// The state moved rigidly, x := R x + t, its Hessian, gradient and coupling turned with it.
inline QcState moved(QcState s, const Matrix<double>& r, const double t[3]) {
  auto turn = [&r](std::vector<double>& v, const double* add) {
    for (std::size_t a = 0; a < v.size() / 3; ++a) {
      double o[3] = {0, 0, 0};
      for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) o[i] += r(i + 1, k + 1) * v[3 * a + k];
      for (int i = 0; i < 3; ++i) v[3 * a + i] = o[i] + (add ? add[i] : 0.0);
    }
  };
  turn(s.x, t);
  turn(s.gradient, nullptr);
  turn(s.nac, nullptr);
  const int n3 = s.hessian.rows;
  Matrix<double> h(n3, n3);
  for (int a = 0; a < n3; a += 3)
    for (int b = 0; b < n3; b += 3)
      for (int i = 1; i <= 3; ++i)
        for (int j = 1; j <= 3; ++j)
          for (int k = 1; k <= 3; ++k)
            for (int l = 1; l <= 3; ++l)
              h(a + i, b + j) += r(i, k) * s.hessian(a + k, b + l) * r(j, l);
  s.hessian = h;
  return s;
}

// An ORCA Hessian file of the state: 5 columns a block in E format or 6 in F format, the matrix
// made slightly asymmetric as such files hold it.
inline std::string orca_hess(const QcState& s, bool e_format, double energy = 0.0) {
  const int n3 = s.hessian.rows, per = e_format ? 5 : 6;
  std::string t =
      printed("$orca_hessian_file\n\n$act_atom\n  0\n\n$act_energy\n  %.8f\n\n", energy);
  t += printed("$hessian\n%d\n", n3);
  for (int c0 = 0; c0 < n3; c0 += per) {
    t += "          ";
    for (int c = c0; c < std::min(n3, c0 + per); ++c) t += printed(e_format ? "%19d" : "%11d", c);
    t += "\n";
    for (int r = 0; r < n3; ++r) {
      t += printed("%6d    ", r);
      for (int c = c0; c < std::min(n3, c0 + per); ++c) {
        const double v = s.hessian(r + 1, c + 1) + 1e-9 * (r - c);
        t += printed(e_format ? " %18.10E" : " %10.6f", v);
      }
      t += "\n";
    }
  }
  t += printed("\n$vibrational_frequencies\n%d\n", n3);
  for (int k = 0; k < n3; ++k) t += printed("%5d %12.6f\n", k, 0.0);
  t += printed("\n$atoms\n%d\n", s.natoms());
  for (int a = 0; a < s.natoms(); ++a)
    t += printed(" %-2s %12.8f %17.12f %17.12f %17.12f\n",
                 element_symbol(s.atomic_number[a]).c_str(), s.mass[a], s.x[3 * a], s.x[3 * a + 1],
                 s.x[3 * a + 2]);
  return t + "\n$end\n";
}

}  // namespace ictvcf::testing
