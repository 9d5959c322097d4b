#include "rate/analysis.h"

#include <algorithm>
#include <cmath>

#include "util/constants.h"
#include "util/strings.h"

namespace ictvcf {

Decomposition decompose(const EngineInputs& in, const PairIntegrals& k) {
  Decomposition d;
  const int n = in.nmode;
  for (int j = 1; j <= n; ++j) d.modes.push_back({j, in.omegag[j - 1], in.rif[j - 1], 0.0, 0.0});
  for (int col = 1; col <= n; ++col)
    for (int row = col; row <= n; ++row) {
      if (!in.iscal(row, col)) continue;
      const double v = in.r(row, col) * k.k(row, col);
      if (row == col) {
        d.modes[row - 1].diagonal = v;
        d.modes[row - 1].share += v;
      } else {
        d.modes[row - 1].share += v;
        d.modes[col - 1].share += v;
        d.pairs.push_back({row, col, 2.0 * v});
      }
    }
  for (const ModeShare& m : d.modes) d.total += m.share;
  std::stable_sort(d.modes.begin(), d.modes.end(),
                   [](const ModeShare& a, const ModeShare& b) { return a.share > b.share; });
  std::stable_sort(d.pairs.begin(), d.pairs.end(), [](const PairShare& a, const PairShare& b) {
    return std::fabs(a.value) > std::fabs(b.value);
  });
  return d;
}

std::string modes_text(const Decomposition& d, double rate, double error) {
  std::string s = printed(
      "# k_IC = %.9e s-1 (%.9e au), estimated relative error %.2g of k_IC in every number below\n"
      "# k_share: the mode's own pair and half of each cross pair it is in; the shares add up to "
      "k_IC (%.9e s-1)\n"
      "# k_diag: the rate with this mode alone coupled (mode = j); cross pairs may be negative\n",
      rate * au_per_second, rate, error, d.total * au_per_second);
  s += printed("#%5s %16s %16s %24s %24s %12s\n", "mode", "freq(cm-1)", "coupling(au)",
               "k_diag(s-1)", "k_share(s-1)", "share");
  for (const ModeShare& m : d.modes)
    s += printed("%6d %16.8e %16.8e %24.16e %24.16e %12.4e\n", m.mode, m.frequency * au2cm,
                 m.coupling, m.diagonal * au_per_second, m.share * au_per_second,
                 d.total != 0.0 ? m.share / d.total : 0.0);
  return s;
}

std::string pairs_text(const Decomposition& d, std::size_t most) {
  std::string s =
      "# the largest cross pairs: 2 rif_j rif_k K(j,k), what the pair adds to k_IC (negative: "
      "the two modes' paths interfere destructively)\n";
  s += printed("#%5s %6s %24s %12s\n", "j", "k", "k_pair(s-1)", "of k_IC");
  for (std::size_t i = 0; i < std::min(most, d.pairs.size()); ++i)
    s += printed("%6d %6d %24.16e %12.4e\n", d.pairs[i].j, d.pairs[i].k,
                 d.pairs[i].value * au_per_second,
                 d.total != 0.0 ? d.pairs[i].value / d.total : 0.0);
  return s;
}

std::string temps_text(const std::vector<double>& temps, const std::vector<double>& rates,
                       const std::vector<double>& errors) {
  std::string s = printed("#%15s %24s %24s %12s\n", "T(K)", "k_IC(s-1)", "k_IC(au)", "rel.error");
  for (std::size_t i = 0; i < temps.size(); ++i)
    s += printed("%16.8e %24.16e %24.16e %12.3e\n", temps[i], rates[i] * au_per_second, rates[i],
                 errors[i]);
  return s;
}

std::string lending_text(std::vector<LendingMode>& rows) {
  std::sort(rows.begin(), rows.end(), [](const LendingMode& a, const LendingMode& b) {
    return std::fabs(a.alone + a.interference) > std::fabs(b.alone + b.interference);
  });
  std::string s = printed("#%5s %12s %24s %24s\n", "mode", "w1(cm-1)", "k_HT,alone(s-1)",
                          "k_interference(s-1)");
  for (const LendingMode& r : rows)
    s += printed("%6d %12.4f %24.16e %24.16e\n", r.mode, r.freq * au2cm, r.alone * au_per_second,
                 r.interference * au_per_second);
  return s;
}

std::string lending_summary(const std::vector<LendingMode>& rows, const char* what,
                            long long evaluations, const char* constant) {
  std::string s = printed("modes: %zu modes lend %s (%lld engine evaluations); the leading:\n",
                          rows.size(), what, evaluations);
  for (std::size_t i = 0; i < std::min<std::size_t>(5, rows.size()); ++i)
    s += printed("  mode %4d  %9.2f cm-1  alone %.6e s-1, interference with %s %.6e s-1\n",
                 rows[i].mode, rows[i].freq * au2cm, rows[i].alone * au_per_second, constant,
                 rows[i].interference * au_per_second);
  return s;
}

}  // namespace ictvcf
