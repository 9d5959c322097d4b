// The rate of a crossing between a singlet and a triplet through the spin-orbit coupling, from
// the correlation functions of the engine's operators. A constant coupling: the Franck-Condon
// operator (C_FC(0) = 1), |V|^2 outside the integral. A coupling linear in the coordinates
// (Herzberg-Teller), V_M = V0_M + sum_k dV_Mk Q1k per sublevel M = 0, +1, -1, complex: with
// V_M = A_M + i B_M, A and B real and linear, the cross terms of V_M^+ ... V_M cancel (A and B
// commute, and the Gaussian integral's bilinear form in the two operators is symmetric), so
// C_V = C_A + C_B: two linear operators with the three sublevels as their components. The
// sublevels are summed (weight 1) or averaged (1/3). Atomic units; no files, no output.
#pragma once

#include <array>
#include <complex>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "rate/contour.h"

namespace ictvcf {

struct SublevelCoupling {
  std::array<std::complex<double>, 3> v0{};  // hartree, M = 0, +1, -1
  std::vector<std::complex<double>> dv;      // dV_M/dQ1k at [M * nmode + k]; empty: none
};

// The rate is weight * sum over the operators of their rates.
struct Coupling {
  double weight = 1.0;
  std::vector<EngineInputs> operators;  // none that vanishes altogether
};

// |V|^2 (hartree^2) times the Franck-Condon rate.
Coupling constant_coupling(const EngineInputs& in, double v2);

// V0 alone, the derivatives alone, or both; `only_mode` (0-based, store order) keeps the
// derivatives of that mode alone.
enum class CouplingPart { whole, franck_condon, herzberg_teller };
Coupling linear_coupling(const EngineInputs& in, const SublevelCoupling& v, double weight,
                         CouplingPart part = CouplingPart::whole, int only_mode = -1);

// The rates at the gaps (hartree, either sign): rate and log_rate the crossing's, error the
// largest of its operators' (each to the accuracy asked for, so their positive sum is too), the
// contour's description (tau, saddle, ...) that of the first operator.
struct CrossingRates {
  std::vector<GapRate> rates;
  std::int64_t evaluations = 0;
  int contours = 0, first_contours = 0;
  std::vector<std::string> warnings;
};

CrossingRates crossing_rates(const Coupling& c, double sigma, double tol,
                             std::span<const double> gaps);

}  // namespace ictvcf
