// The engines against correlation functions known in closed form (physics/README.md).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "engine/engine.h"
#include "engine/engine_support.h"
#include "run/table.h"
#include "util/constants.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;

// The table as the reference engine makes it, or as the run makes it (the fast engine, whose
// thermal factors stay finite down to 0 K), or the exact function (the fast engine with the
// imaginary part kept).
std::vector<cplx> table_of(testing::Loaded& l, bool reference, bool exact = false) {
  const std::int64_t nt = l.p.nt;
  std::vector<cplx> usqrt(nt + 1), ft(nt + 1);
  if (reference)
    getintegratedata(l.in, l.p.dt, 0, nt, usqrt.data(), ft.data());
  else
    compute_correlation(l.in, l.p.dt, 0, nt, usqrt.data(), ft.data(), exact);
  return assemble(nt, usqrt, ft, l.v.sqrtdone);
}

// An accepting mode a (Huang-Rhys factor 1.2, no coupling) and a promoting mode p (no
// displacement, coupling 0.04), equal frequencies in both states, no rotation: C(t) in closed form
// (physics/README.md). The reference engine's table at the case's temperature (within 1e-7 of the
// largest value, with the imaginary column zero), or the fast engine's table and exact function
// at `temp` (within 1e-8).
void check_closed_form(const std::string& name, double temp = -1.0) {
  testing::Loaded l = testing::load_case(std::string(ICTVCF_TEST_PHYSICS) + "/" + name);
  if (temp >= 0.0) l.in.temp = l.p.temp = temp;
  const bool reference = temp < 0.0;
  const std::vector<cplx> table = table_of(l, reference),
                          exact = reference ? table : table_of(l, false, true);
  const double beta = kelvin_per_hartree / l.p.temp;
  const double wa = 1500.0 / au2cm, wp = 700.0 / au2cm, sa = 1.2, rp = 0.04;
  const double na = 1.0 / std::expm1(beta * wa), np = 1.0 / std::expm1(beta * wp);
  const double tolerance = reference ? 1e-7 : 1e-8;
  const cplx I(0.0, 1.0);
  const std::int64_t nt = l.p.nt;
  std::vector<cplx> expected(nt + 1);
  double largest = 0.0;
  for (std::int64_t k = 0; k <= nt; ++k) {
    const double t = k == 0 ? l.p.dt * 1e-5 : l.p.dt * static_cast<double>(k);
    const cplx promoting =
        rp * rp * (wp / 2) * ((np + 1) * std::exp(-I * wp * t) + np * std::exp(I * wp * t));
    const cplx accepting = std::exp(
        -sa * ((2 * na + 1) - (na + 1) * std::exp(-I * wa * t) - na * std::exp(I * wa * t)));
    expected[k] = promoting * accepting;
    largest = std::max(largest, std::abs(expected[k]));
  }
  for (std::int64_t k = 0; k <= nt; ++k) {
    const cplx got = table[nt + k];
    EXPECT_NEAR(got.real(), expected[k].real(), tolerance * largest) << name << " k=" << k;
    EXPECT_NEAR(got.imag(), 0.0, 1e-9 * largest) << name << " k=" << k;
    EXPECT_EQ(table[nt - k], std::conj(got));
    if (!reference) {
      EXPECT_LT(std::abs(exact[nt + k] - expected[k]), tolerance * largest) << name << " k=" << k;
    }
  }
}

TEST(ClosedForm, EqualFrequenciesAt10K) { check_closed_form("closed_T10"); }
TEST(ClosedForm, EqualFrequenciesAt300K) { check_closed_form("closed_T300"); }
TEST(ClosedForm, EqualFrequenciesAt2000K) { check_closed_form("closed_T2000"); }
TEST(ClosedForm, EqualFrequenciesOnTheRunsPathFrom0To2000K) {
  for (double temp : {0.0, 2.0, 300.0, 2000.0}) check_closed_form("closed_T10", temp);
}

}  // namespace
}  // namespace ictvcf
