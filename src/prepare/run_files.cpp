#include "prepare/run_files.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numbers>

#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

// Matrix rows and vectors: 5 numbers a line, 17 significant digits (they read back exactly).
void append_numbers(std::string& s, const std::vector<double>& v) {
  for (std::size_t k = 0; k < v.size(); ++k)
    s += printed("%24.16e%s", v[k], (k % 5 == 4 || k + 1 == v.size()) ? "\n" : "");
}

}  // namespace

// The run reads: n3 in front of 'num of modes' (columns 9-20); after 'BEGIN_OUTPUT_1' (columns
// 3-16) nine lines it skips (three headings and the six translations and rotations), then one
// list-directed record per vibration; then the two matrices after 'BEGIN_DUSH_DATA_1' and
// 'BEGIN_DUSH_DATA_2' (columns 3-19), each a heading line and per row a label line and n3
// numbers. No slash or quote may stand in a record that is read list-directed.
std::string dushin_text(const PrepareResult& r, const Sources& src) {
  const auto& w1 = r.modes1.omega;
  const auto& w2 = r.modes2.omega;
  std::string s;
  s += " Duschinsky data written by ictvcf prepare\n";
  s += " state 1 (final, lower):    " + src.final_file + "\n";
  s += " state 2 (initial, upper):  " + src.initial_file + "\n";
  s += printed(" %d atoms, %d Cartesian coordinates: 6 translations and rotations, %d vibrations\n",
               r.natoms, r.n3, r.nvib);
  s += " Q2 = S Q1 + D2 and Q1 = S^T (Q2 - D2), Q mass-weighted normal coordinates\n";
  s += " D1, D2: the geometry change x1 - x2 along each state's modes, sqrt(me)*bohr\n";
  s += " frequencies in cm-1 (negative: imaginary), Huang-Rhys factors |w| D^2/2,\n";
  s += " reorganisation energies w^2 D^2/2 in cm-1\n";
  s += " block 1 holds S^T, block 2 holds S (row i, column j: S(i,j))\n";
  s += printed("%6d  num of modes\n\n", r.n3);
  s += "  BEGIN_OUTPUT_1\n";
  const std::string rule(150, '-');
  s += " " + rule + "\n";
  s += "     mode kind st         freq(cm-1)                    D(au)                S         "
       "lam(cm-1)  st         freq(cm-1)                    D(au)                S         "
       "lam(cm-1)  no.1  no.2\n";
  s += " " + rule + "\n";
  for (int k = 1; k <= r.n3; ++k) {
    const double a = w1[k - 1], b = w2[k - 1], da = r.d1[k - 1], db = r.d2[k - 1];
    s += printed(
        "  MODE%04d %s st1 %19.12e %24.16e st1_HR_LAM %16.9e %16.9e st2 %19.12e "
        "%24.16e st2_HR_LAM %16.9e %16.9e %5d %5d\n",
        k, k <= 6 ? "ext" : "vib", a * au2cm, da, 0.5 * std::fabs(a) * da * da,
        0.5 * a * a * da * da * au2cm, b * au2cm, db, 0.5 * std::fabs(b) * db * db,
        0.5 * b * b * db * db * au2cm, k, k);
  }
  for (int block = 1; block <= 2; ++block) {
    s += printed("  BEGIN_DUSH_DATA_%d\n", block);
    s += block == 1 ? " S^T: row i holds S(1..n3, i)\n" : " S: row i holds S(i, 1..n3)\n";
    std::vector<double> row(r.n3);
    for (int i = 1; i <= r.n3; ++i) {
      s += printed(" row %d\n", i);
      for (int j = 1; j <= r.n3; ++j) row[j - 1] = block == 1 ? r.s(j, i) : r.s(i, j);
      append_numbers(s, row);
    }
  }
  return s;
}

// The run reads: 'Derivative Coupling' in columns 2-20 of some line; line 1 a word and the count;
// lines of at least three words up to the one whose third word is 'irrep'; one more line; six
// lines of translations and rotations (the count is n3); then per vibration four words and the
// coupling.
std::string nacme_text(const PrepareResult& r, const Sources& src) {
  std::string s;
  s += printed(" NMODE %d couplings along the normal coordinates of state 1 (final)\n", r.n3);
  s += " Derivative Coupling between the initial (upper) and final (lower) states\n";
  s += " coupling taken from " + src.nac_file + "\n";
  s += " values in atomic units along mass-weighted normal coordinates of state 1\n";
  s += "    No.   Mode   irrep      Freq(cm-1)             Coupling(au)\n";
  s += " " + std::string(64, '-') + "\n";
  for (int k = 1; k <= r.n3; ++k)
    s += printed(" %6d %6d   %s %19.12e %24.16e\n", k, k, k <= 6 ? "ext" : "vib",
                 r.modes1.omega[k - 1] * au2cm, r.rif[k - 1]);
  return s;
}

TimeGrid choose_grid(double omega_max, double ead, double fwhm) {
  const double pi = std::numbers::pi;
  TimeGrid g;
  g.dt = 2.0 * pi / omega_max / 4.0;
  const double top = 1.25 * (std::fabs(ead) + 1.0 / au2ev);
  g.dt = std::min(g.dt, pi / top);
  const double sigma = fwhm / (2.0 * std::sqrt(2.0 * std::log(2.0)));
  const double t_end = std::sqrt(2.0 * std::log(1e8)) / sigma;
  g.nt = static_cast<long>(std::ceil(t_end / g.dt));
  g.tmax = static_cast<double>(g.nt) * g.dt;
  return g;
}

// No slash, quote, '!' or '#' may stand in a value, and no blank line inside the block.
std::string input_text(const InputSettings& s) {
  std::string t;
  t += "! Input for ictvcf, written by ictvcf prepare from\n";
  t += "!   state 1 (final, lower):   " + s.src.final_file + "\n";
  t += "!   state 2 (initial, upper): " + s.src.initial_file + "\n";
  t += "!   coupling:                 " + s.src.nac_file + "\n";
  t += "! ictvcf ic.inp       writes the correlation function (ftfile) and the log\n";
  t += "! ictvcf rate ic.inp  integrates it into the internal-conversion rate k_IC\n";
  t += "&ic_tvcf\n";
  t += "  dsfile   = dushin.dat    ! frequencies, displacements, Duschinsky matrices\n";
  t += "  coulfile = nacme.dat     ! non-adiabatic coupling along the final state modes\n";
  t += "  ftfile   = ic_tvcf.dat   ! correlation-function table\n";
  t += "  logfile  = ic_tvcf.log\n";
  t += printed("  temp     = %.1f K\n", s.temp);
  t += printed("  ead      = %.15e eV   ! adiabatic gap between the minima, %s\n", s.ead * au2ev,
               s.ead_origin.c_str());
  t += "  isgauss  = .true.        ! Gaussian line broadening of the rate\n";
  t += "  broadentype = gaussian\n";
  t += printed("  fwhm     = %.6e cm-1\n", s.fwhm * au2cm);
  t += printed("  dt       = %.12e au   ! a quarter period or less, ead + 1 eV below pi over dt\n",
               s.grid.dt);
  t += printed("  tmax     = %.12e au   ! %ld steps, the damping is below 1e-8 at the end\n",
               s.grid.tmax, s.grid.nt);
  t += "/\n";
  return t;
}

void write_all_or_nothing(const std::vector<std::pair<std::string, std::string>>& files) {
  std::vector<std::string> temps;
  auto clean = [&temps] {
    std::error_code ec;
    for (const auto& t : temps) std::filesystem::remove(t, ec);
  };
  for (const auto& [name, text] : files) {
    const std::filesystem::path p(name);
    const std::string hidden =
        printed(".%s.tmp%ld", p.filename().c_str(), static_cast<long>(getpid()));
    const std::string tmp = (p.parent_path() / hidden).string();
    temps.push_back(tmp);
    std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
      clean();
      throw IoError(name, 0, "cannot write the file");
    }
  }
  for (std::size_t k = 0; k < files.size(); ++k) {
    std::error_code ec;
    std::filesystem::rename(temps[k], files[k].first, ec);
    if (ec) {
      clean();
      throw IoError(files[k].first, 0, "cannot put the file in place: " + ec.message());
    }
  }
}

}  // namespace ictvcf
