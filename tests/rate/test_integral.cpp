// The rate on the real axis: the Lorentzian damping and the phase recurrence over a long grid on a
// correlation function whose transform is known, the damping from the input, the warnings, and
// the plots' handling of rates without a logarithm. (The Gaussian rate on the real axis is checked
// against the golden rule in engine/test_sum_over_states.cpp.)
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "rate/integral.h"
#include "rate/plot.h"
#include "run/prepare_data.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;
const double pi = std::numbers::pi;

// One vibronic line: C(t) = a e^{-i w0 t}, i.e. a transition that releases w0 into vibrations.
std::vector<cplx> line(double a, double w0, double dt, std::int64_t nt) {
  std::vector<cplx> c(nt + 1);
  for (std::int64_t k = 0; k <= nt; ++k) c[k] = a * std::polar(1.0, -w0 * dt * k);
  return c;
}

// The width of the Franck-Condon line, which sets the correlation plot's window: a displaced mode's
// S w^2 coth(beta w / 2) (S = w d^2 / 2), and a mode that only changes frequency, whose gap
// (w1^2 - w2^2) Q^2 / 2 has the variance (w1^2 - w2^2)^2 <Q^2>^2 / 2; each at 0 K and 300 K.
TEST(RateIntegral, GapVarianceOfTheClosedForms) {
  EngineInputs in;
  in.nmode = 1;
  in.s = Matrix<double>(1, 1);
  in.s(1, 1) = 1.0;
  const double w = 0.007, d = 9.0, kt = 300.0 / kelvin_per_hartree;
  for (double temp : {0.0, 300.0}) {
    in.temp = temp;
    const double coth = temp > 0 ? 1.0 / std::tanh(w / (2.0 * kt)) : 1.0;
    in.omegag = in.omegae = {w};
    in.d = {d};
    EXPECT_NEAR(gap_variance(in), 0.5 * w * d * d * w * w * coth, 1e-12 * w * w);
    in.omegag = {1.3 * w};
    in.d = {0.0};
    const double q2 = coth / (2.0 * w), m = 0.69 * w * w;
    EXPECT_NEAR(gap_variance(in), 0.5 * m * m * q2 * q2, 1e-12 * w * w);
  }
}

// With exp(-gamma |t|) the grid sum is a geometric series, summed exactly here: a check of every
// term over a long grid, the phase recurrence included, and of the t = 0 weight.
TEST(RateIntegral, LorentzianGridSumOverALongGrid) {
  const double w0 = 0.02, gamma = 2e-4, dt = 2.0;
  const std::int64_t nt = 100000;
  const std::vector<cplx> c = line(1.0, w0, dt, nt);
  const Damping d{DampingShape::lorentzian, gamma, false};
  for (double gap : {w0, w0 + 3e-4, 0.5 * w0, -w0}) {
    const cplx q = std::exp(cplx(-gamma, gap - w0) * dt);
    const double want = dt * (2.0 * ((1.0 - std::pow(q, nt + 1)) / (1.0 - q)).real() - 1.0);
    EXPECT_NEAR(rate_at(c, dt, d, gap), want, 1e-11 * std::fabs(want)) << gap;
  }
  // ... which is the Lorentzian 2 gamma / (x^2 + gamma^2) up to the grid's O(dt^2) error.
  EXPECT_NEAR(rate_at(c, dt, d, w0), 2.0 / gamma, 1e-5 * 2.0 / gamma);
}

// The scan's middle gap is the adiabatic gap itself, not a neighbour within rounding.
TEST(RateIntegral, ScanGridHoldsTheGapExactly) {
  const std::vector<double> gaps = gap_grid(0.0167, 1.0 / au2ev, 201);
  ASSERT_EQ(gaps.size(), 201u);
  EXPECT_EQ(gaps[100], 0.0167);
  EXPECT_NEAR(gaps.back() - gaps.front(), 2.0 / au2ev, 1e-15);
}

// The warnings on one line C = a e^{-i w0 t}, whose rate at each gap is known: each one alone,
// ended by "|".
TEST(RateWarnings, EachCondition) {
  const double dt = 5.0, w0 = 0.01;
  const Damping d{DampingShape::gaussian, 200.0 / au2cm, false};
  auto warnings = [&](double a, double w, std::int64_t nt, double gap) {
    const std::vector<cplx> c = line(a, w, dt, nt);
    std::string all;
    for (const std::string& s : rate_warnings(c, dt, d, gap, rate_at(c, dt, d, gap)))
      all.append(s).append("|");
    return all;
  };
  auto alone = [](const std::string& all, const char* start) {
    return all.rfind(start, 0) == 0 && all.find('|') + 1 == all.size();
  };
  // D = 1e-6 at t = sqrt(2 ln 1e6) / sigma, about 5700 au.
  const auto decayed =
      static_cast<std::int64_t>(std::ceil(std::sqrt(2 * std::log(1e6)) / d.width / dt));
  EXPECT_EQ(warnings(1e-6, w0, decayed, w0), "");
  // At the line's centre the cut hardly matters, but it is reported.
  EXPECT_TRUE(alone(warnings(1e-6, w0, decayed - 1, w0), "the damping is still"));
  // Eight widths off the line the rate is e^-32 of its peak: the decayed window is not enough.
  const std::string far = warnings(1e-6, w0, decayed, w0 + 8 * d.width);
  EXPECT_EQ(far.rfind("the rate changes by", 0), 0u) << far;
  EXPECT_EQ(far.find("the damping is still"), std::string::npos) << far;
  // A line at -0.8 pi/dt shows up at the gap 1.2 pi/dt, one period of the grid higher.
  EXPECT_TRUE(alone(warnings(1e-6, -0.8 * pi / dt, decayed, 1.2 * pi / dt), "the gap"));
  EXPECT_EQ(warnings(1e-6, 0.99 * pi / dt, decayed, 0.99 * pi / dt), "");
  EXPECT_TRUE(alone(warnings(-1e-6, w0, decayed, w0), "the rate is negative"));
  // Moving off the line, the first gap whose window is too short changes by just above 1 %.
  double first = 0.0;
  for (double off = 0.0; off < 8.0 && first == 0.0; off += 0.05) {
    const std::string w = warnings(1e-6, w0, decayed, w0 + off * d.width);
    if (w.rfind("the rate changes by ", 0) != 0) continue;
    first = off;
    const double percent = std::stod(w.substr(20));
    EXPECT_GT(percent, 1.0);
    EXPECT_LT(percent, 2.0) << off;
  }
  EXPECT_GT(first, 0.0);
  // The scan above the grid's limit pi/dt, in eV.
  EXPECT_EQ(scan_warning(dt, 2 * pi / dt),
            printed("the scan's gaps above the Nyquist limit pi/dt = %.6g eV (up to %.6g eV) are "
                    "aliased; lower dt to scan them",
                    pi / dt * au2ev, 2 * pi / dt * au2ev));
}

std::size_t count(const std::string& s, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1)) ++n;
  return n;
}

// A logarithm of non-positive rates must break the curve, not put "nan" in the file.
TEST(Plots, GapLawSkipsRatesWithoutALogarithm) {
  const std::vector<double> gaps = gap_grid(0.1, 0.03, 7);
  const std::vector<double> rates{1e-8, -1e-12, 0.0, 1e-6, 2e-6, -3e-9, 1e-7};
  const Damping d{DampingShape::gaussian, 1e-3, true};
  const std::string svg = gap_law_svg(gaps, rates, 0.1, 1e-6, d, 1.0);
  EXPECT_EQ(svg.find("nan"), std::string::npos);
  EXPECT_EQ(svg.find("inf"), std::string::npos);
  EXPECT_EQ(count(svg, "<path"), 1u);
  const std::size_t d_at = svg.find("d=\"", svg.find("<path"));
  const std::string d_attr = svg.substr(d_at, svg.find('"', d_at + 3) - d_at);
  EXPECT_EQ(count(d_attr, "M"), 3u) << "three runs of positive rates";
  EXPECT_NE(svg.find("3 of 7 gaps"), std::string::npos);
  EXPECT_EQ(count(svg, "<circle"), 4u + 1u) << "a dot per positive rate and the mark at ead";
  EXPECT_NE(svg.find("id=\"ead\""), std::string::npos);
  EXPECT_EQ(gap_law_svg(gaps, rates, 0.1, -1.0, d, 1.0).find("id=\"ead\""), std::string::npos);
}

}  // namespace
}  // namespace ictvcf
