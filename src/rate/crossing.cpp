#include "rate/crossing.h"

#include <algorithm>
#include <cmath>

namespace ictvcf {

Coupling constant_coupling(const EngineInputs& in, double v2) {
  Coupling c;
  c.weight = v2;
  c.operators.push_back(in);
  c.operators.back().op = Operator{};
  c.operators.back().op.kind = OperatorKind::franck_condon;
  return c;
}

Coupling linear_coupling(const EngineInputs& in, const SublevelCoupling& v, double weight,
                         CouplingPart part, int only_mode) {
  Coupling c;
  c.weight = weight;
  const std::size_t n = static_cast<std::size_t>(in.nmode);
  for (int imag = 0; imag < 2; ++imag) {
    EngineInputs op = in;
    op.op = Operator{};
    op.op.kind = OperatorKind::dipole;
    op.op.dmu.assign(3 * n, 0.0);
    bool any = false;
    auto take = [&](std::complex<double> z) { return imag ? z.imag() : z.real(); };
    for (std::size_t m = 0; m < 3; ++m) {
      if (part != CouplingPart::herzberg_teller) op.op.mu0[m] = take(v.v0[m]);
      any = any || op.op.mu0[m] != 0.0;
      if (part == CouplingPart::franck_condon || v.dv.empty()) continue;
      for (std::size_t k = 0; k < n; ++k)
        if (only_mode < 0 || static_cast<std::size_t>(only_mode) == k) {
          op.op.dmu[m * n + k] = take(v.dv[m * n + k]);
          any = any || op.op.dmu[m * n + k] != 0.0;
        }
    }
    if (any) c.operators.push_back(std::move(op));
  }
  return c;
}

CrossingRates crossing_rates(const Coupling& c, double sigma, double tol,
                             std::span<const double> gaps) {
  CrossingRates out;
  out.rates.assign(gaps.size(), GapRate{});
  const double ln_w = std::log(c.weight);
  for (std::size_t o = 0; o < c.operators.size(); ++o) {
    EngineContext ctx(c.operators[o]);
    const ContourResult r = contour_rates(ctx, ContourSettings{sigma, tol}, gaps);
    out.evaluations += r.evaluations;
    out.contours += r.contours;
    if (o == 0) out.first_contours = r.contours;
    out.warnings.insert(out.warnings.end(), r.warnings.begin(), r.warnings.end());
    for (std::size_t i = 0; i < gaps.size(); ++i) {
      GapRate& g = out.rates[i];
      const GapRate& x = r.rates[i];
      const double l = ln_w + x.log_rate;
      if (o == 0) {
        g = x;
        g.rate = c.weight * x.rate;
        g.log_rate = l;
      } else {
        g.error = std::max(g.error, x.error);
        g.rate += c.weight * x.rate;
        g.log_rate = std::max(g.log_rate, l) + std::log1p(std::exp(-std::fabs(g.log_rate - l)));
      }
    }
  }
  return out;
}

}  // namespace ictvcf
