// `ictvcf rate INPUT` as a user runs it, on a physics case in a scratch directory: the printed
// rate, the files it writes and the ones it must not, the warnings and the error statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "support/io_tables.h"
#include "test_support.h"
#include "util/constants.h"
#include "util/strings.h"

namespace ictvcf {
namespace {

using testing::read_file;
using testing::ScratchDir;
using testing::write_file;

using testing::Result;

// Runs the command with its temporary directory under ../tmp, so that what it leaves there can
// be seen.
Result rate(const std::string& args = "ic.inp") {
  std::filesystem::create_directory("../tmp");
  return testing::run_exe("rate " + args, "TMPDIR=../tmp");
}

bool private_dirs_left() { return !std::filesystem::is_empty("../tmp"); }

// closed_T10 copied into work/ inside the scratch directory (so that the captured output stays
// out of the listing), with `edits` applied to its block: each pair replaces a line's text.
void closed_case(const std::vector<std::pair<std::string, std::string>>& edits) {
  std::filesystem::create_directory("work");
  std::filesystem::current_path("work");
  const std::string dir = std::string(ICTVCF_TEST_PHYSICS) + "/closed_T10";
  for (const auto& e : std::filesystem::directory_iterator(dir))
    std::filesystem::copy_file(e.path(), e.path().filename());
  std::string text = read_file("ic.inp");
  for (const auto& [from, to] : edits) {
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
  }
  write_file("ic.inp", text);
}

std::set<std::string> listing() {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(".")) names.insert(e.path().filename());
  return names;
}

long lines(const std::string& s) { return std::count(s.begin(), s.end(), '\n'); }

const std::pair<std::string, std::string> kGaussian200{
    "ead = 0.1", "ead = 3700 cm-1\n  isgauss = .true.\n  degauss = 200 cm-1"};
// A grid far too coarse and short for a rate on the real axis.
const std::pair<std::string, std::string> kPoorGrid{"dt = 5.0", "dt = 200.0"};
const std::pair<std::string, std::string> kShort{"tmax = 12000.0", "tmax = 2000.0"};

TEST(RateCommand, ClosedCaseRateAndFilesOnAPoorGrid) {
  ScratchDir dir;
  closed_case({kGaussian200, kPoorGrid, kShort});
  const Result r = rate();
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  // The closed form: 1.522044e-3 au = 6.2923e13 s-1, whatever the block's grid.
  EXPECT_NE(r.out.find("\nk_IC = 6.292337e+13 s-1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\nk_IC = 1.522044e-03 au\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("method: shifted time contour"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Gaussian, FWHM 470.964 cm-1 (sigma 200 cm-1)"), std::string::npos);

  // Only the three files named after ftfile: no log, no table, no work or dot-files; the exact
  // C(t) on the block's grid only when asked.
  EXPECT_FALSE(private_dirs_left());
  EXPECT_EQ(listing(), (std::set<std::string>{"dushin.dat", "ic.inp", "nacme.dat", "ft.dat.rate",
                                              "ft.dat.rate.svg", "ft.dat.corr.svg"}));
  // (the listing is taken before the runs below add their own files)
  const Result with_exact = rate("--exact ic.inp");
  EXPECT_NE(with_exact.out.find("written: ft.dat.exact, ft.dat.rate,"), std::string::npos);
  const std::string exact = read_file("ft.dat.exact");
  EXPECT_EQ(lines(exact), 1 + 2 * 10 + 1);
  EXPECT_EQ(exact.rfind("#", 0), 0u);
  // Rows -t and +t: C(-t) = C(t)*; t in fs.
  const std::vector<std::string> rows = testing::split(exact, '\n');
  std::istringstream first(rows[1]), last(rows[21]);
  double t0, re0, im0, t1, re1, im1;
  first >> t0 >> re0 >> im0;
  last >> t1 >> re1 >> im1;
  EXPECT_NEAR(t1, 10 * 200.0 * au2fs, 1e-7 * t1);
  EXPECT_EQ(t0, -t1);
  EXPECT_EQ(re0, re1);
  EXPECT_EQ(im0, -im1);
  EXPECT_NE(im1, 0.0);
  // The method line's height in au and in fs.
  std::istringstream method(r.out.substr(r.out.find("tau = ") + 6));
  double tau_au, tau_fs;
  std::string unit;
  char paren;
  method >> tau_au >> unit >> paren >> tau_fs;
  EXPECT_NEAR(tau_fs, tau_au * au2fs, 1e-3 * tau_fs);
  // The scan: gaps above zero only, numbers with the letter e, ead in the middle.
  const std::string scan = read_file("ft.dat.rate");
  EXPECT_EQ(lines(scan), 1 + 146);
  EXPECT_NE(scan.find("\n  3.70000000e+03   4.58741703e-01   1.52204"), std::string::npos);
  std::istringstream at_ead(scan.substr(scan.find("\n  3.70000000e+03")));
  double cm, ev, k_au, k_s;
  at_ead >> cm >> ev >> k_au >> k_s;
  EXPECT_NEAR(k_s, k_au * au_per_second, 1e-12 * k_s);
  // The plots' tick labels: log10 k_IC in s-1 (13, 14), the time in fs (48 fs of the grid).
  auto ticks = [](const std::string& svg) {
    std::vector<double> v;
    for (std::size_t at = svg.find("<text"); at != std::string::npos;
         at = svg.find("<text", at + 1)) {
      const std::string label = svg.substr(svg.find('>', at) + 1, 12);
      char* end = nullptr;
      const double x = std::strtod(label.c_str(), &end);
      if (end != label.c_str() && *end == '<') v.push_back(x);
    }
    return v;
  };
  const std::vector<double> gap_ticks = ticks(read_file("ft.dat.rate.svg"));
  EXPECT_NE(std::find(gap_ticks.begin(), gap_ticks.end(), 13.0), gap_ticks.end());
  const std::vector<double> time_ticks = ticks(read_file("ft.dat.corr.svg"));
  ASSERT_FALSE(time_ticks.empty());
  EXPECT_LT(*std::max_element(time_ticks.begin(), time_ticks.end()), 100.0);
  EXPECT_GE(*std::max_element(time_ticks.begin(), time_ticks.end()), 40.0);
  // The modes and temperatures, with their files.
  const Result study = rate("--modes --temps 0,10,300 ic.inp");
  EXPECT_EQ(study.status, 0) << study.err;
  EXPECT_NE(study.out.find("modes: k_IC = 6.292337e+13 s-1 split over 2 modes"), std::string::npos)
      << study.out;
  EXPECT_EQ(lines(read_file("ft.dat.temps")), 1 + 3);
  // 1000/T from 3.3 (300 K) to 100 (10 K) on the temperature plot's abscissa.
  const std::vector<double> inverse = ticks(read_file("ft.dat.temps.svg"));
  EXPECT_GE(*std::max_element(inverse.begin(), inverse.end()), 50.0);
  EXPECT_EQ(lines(read_file("ft.dat.modes")), 4 + 2);
  for (const char* f : {"ft.dat.pairs", "ft.dat.modes.svg", "ft.dat.temps.svg"})
    EXPECT_TRUE(testing::exists(f)) << f;
  // The same rate to a tighter tolerance; the real axis on this grid warns about it.
  EXPECT_NE(rate("--tol 1e-10 ic.inp").out.find("\nk_IC = 1.522044e-03 au\n"), std::string::npos);
  const Result real = rate("--real-axis ic.inp");
  EXPECT_EQ(real.status, 0);
  EXPECT_NE(real.out.find("method: real time axis"), std::string::npos) << real.out;
  for (const char* w : {"the damping is still", "above the Nyquist limit", "scan's gaps above"})
    EXPECT_NE(real.err.find(w), std::string::npos) << w << "\n" << real.err;
}

// Far beyond double precision (40 eV over a 1500 cm-1 mode: 213 quanta) the rate is printed as
// a power of ten, in s-1 the same as in au times the seconds' factor.
TEST(RateCommand, RateBelowDoublePrecision) {
  ScratchDir dir;
  closed_case({{"ead = 0.1", "ead = 40 eV\n  isgauss = .true.\n  degauss = 200 cm-1"}});
  const Result r = rate();
  ASSERT_EQ(r.status, 0) << r.err;
  const double in_s = std::stod(r.out.substr(r.out.find("k_IC = 10^") + 10));
  const std::string au = r.out.substr(r.out.find("\n", r.out.find("k_IC = 10^")));
  const double in_au = std::stod(au.substr(au.find("k_IC = 10^") + 10));
  EXPECT_NEAR(in_s - in_au, std::log10(au_per_second), 2e-6);
  EXPECT_LT(in_au, -308.0);
}

TEST(RateCommand, DefaultBroadeningAndLorentzianWings) {
  ScratchDir dir;
  closed_case({{"ead = 0.1", "ead = 3700 cm-1"}});
  Result r = rate();
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("damping: Gaussian, FWHM 100 cm-1 (sigma 42.4661 cm-1), the default: the "
                       "input sets no broadening (isgauss)\n"),
            std::string::npos)
      << r.out;
  // Half way between two lines 1500 cm-1 apart, a Lorentzian line's wings decide the rate.
  std::string text = read_file("ic.inp");
  text.replace(
      text.find("ead = 3700 cm-1"), 15,
      "ead = 4450 cm-1\n  isgauss = .true.\n  broadentype = lorentzian\n  degauss = 50 cm-1");
  write_file("ic.inp", text);
  r = rate();
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("method: real time axis"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("damping: Lorentzian, FWHM 100 cm-1 (half width 50 cm-1)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.err.find("Lorentzian wings"), std::string::npos) << r.err;
}

// A molecule of 24 modes (276 cross pairs): the .pairs file lists the 50 largest.
TEST(RateCommand, ModesOfAMolecule) {
  ScratchDir dir;
  for (const auto& e : std::filesystem::directory_iterator(ICTVCF_TEST_CASES "/med-dcoupl"))
    if (e.is_regular_file()) std::filesystem::copy_file(e.path(), e.path().filename());
  const Result r = rate("--modes ic.inp");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(lines(read_file("ic_tvcf.dat.pairs")), 2 + 50);
  EXPECT_EQ(lines(read_file("ic_tvcf.dat.modes")), 4 + 24);
  // The pairs by size, with their sign: the second destructive, its share of k_IC beside it.
  std::istringstream pairs(read_file("ic_tvcf.dat.pairs"));
  std::string head;
  std::getline(pairs, head);
  std::getline(pairs, head);
  int j1, k1, j2, k2;
  double v1, f1, v2, f2;
  pairs >> j1 >> k1 >> v1 >> f1 >> j2 >> k2 >> v2 >> f2;
  EXPECT_GT(v1, std::fabs(v2));
  EXPECT_LT(v2, 0.0);
  EXPECT_NEAR(v2 / v1, f2 / f1, 1e-4);
  const double k = std::stod(r.out.substr(r.out.find("\nk_IC = ") + 8));
  EXPECT_NEAR(v1 / f1 / k, 1.0, 1e-4);
}

TEST(RateCommand, ErrorsAndTheirStatuses) {
  ScratchDir dir;
  closed_case({});
  const std::string input = read_file("ic.inp");
  struct Case {
    std::string from, to, options;  // the edit of the block, the options before bad.inp
    int status;
    std::string err;
  };
  const Case cases[] = {
      {"nacme.dat", "none.dat", "", 2, "ictvcf: none.dat: cannot open the file"},
      {"/", "  isgauss = .true.\n  broadentype = voigt\n  fwhm = 0.001\n/", "", 1,
       "broadentype = 'voigt' is neither"},
      {"/", "  isgauss = .true.\n/", "", 1, "isgauss is set but no width is"},
      {"  ftfile = ft.dat\n", "", "", 2, "ftfile in the &ic_tvcf block"},
      {"ead = 0.1", "ead = 0", "", 2, "must be positive"},
      {"", "", "--tol 1", 2, "ictvcf rate: --tol 1: expected a relative accuracy"},
      {"/", "  isgauss = .true.\n  degauss = 200 cm-1\n/", "--modes --real-axis", 2,
       "--modes integrates on the shifted contour"},
      {"", "", "--tol x", 2, "ictvcf rate: --tol x: expected a relative accuracy"},
      {"", "", "--frobnicate", 2, "ictvcf rate: unknown option --frobnicate"},
      {"", "", "--temps", 2, "ictvcf rate: --temps bad.inp: expected temperatures"},
      {"", "", "ic.inp", 2, "ictvcf rate: one input file only"},
  };
  for (const Case& c : cases) {
    std::string text = input;
    if (!c.from.empty()) text.replace(text.find(c.from), c.from.size(), c.to);
    write_file("bad.inp", text);
    const Result r = rate(c.options + " bad.inp");
    EXPECT_EQ(r.status, c.status) << c.options << c.to;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
  }
  // Nothing of the main run and no work files in any of these.
  EXPECT_FALSE(private_dirs_left());
  for (const std::string& name : listing())
    EXPECT_TRUE(name.ends_with(".inp") || name.ends_with(".dat")) << name;
}

// --radiative and --yield on the closed case at 3 eV with a Herzberg-Teller dipole: what is
// printed and written, the written spectrum's integral against k_r, and the bad dipole inputs.
TEST(RateCommand, RadiativeAndYield) {
  ScratchDir dir;
  closed_case({{"ead = 0.1", "ead = 3.0 eV\n  isgauss = .true.\n  degauss = 200 cm-1"}});
  write_file("dipole.dat", "# S1 -> S0\n0  1.0 0.0 0.0\n2  0.0 0.01 0.0\n");
  const Result r = rate("--radiative --modes --temps 10,300 ic.inp");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  for (const char* line :
       {"  Franck-Condon:   2.3127", "  interference:    0.000000e+00", "\nmodes: 1 modes lend"})
    EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
  EXPECT_FALSE(private_dirs_left());
  EXPECT_EQ(listing(), (std::set<std::string>{"dipole.dat", "dushin.dat", "ft.dat.emission",
                                              "ft.dat.emission.modes", "ft.dat.emission.svg",
                                              "ft.dat.radiative.temps", "ic.inp", "nacme.dat"}));
  // The trapezoidal sum of the file's sigma_em (s-1 per cm-1) over w (cm-1) against k_r.
  const std::size_t at = r.out.find("\nk_r = ") + 7;
  const double k_r = std::stod(r.out.substr(at));
  std::istringstream in(read_file("ft.dat.emission"));
  std::string line;
  double integral = 0.0, last_w = 0.0, last_s = 0.0;
  int rows = 0;
  while (std::getline(in, line)) {
    if (line[0] == '#') continue;
    double w = 0, ev = 0, s = 0;
    std::istringstream(line) >> w >> ev >> s;
    if (rows++ > 0) integral += 0.5 * (w - last_w) * (s + last_s);
    last_w = w, last_s = s;
  }
  EXPECT_GT(rows, 100);
  EXPECT_NEAR(integral / k_r, 1.0, 1e-4);

  // mu0 alone: all of k_r is the Franck-Condon part, the same as above.
  write_file("mu0.dat", "0  1.0 0.0 0.0\n");
  const Result fc = rate("--radiative --dipole mu0.dat ic.inp");
  EXPECT_NE(fc.out.find("\nk_r = 2.3127"), std::string::npos) << fc.out;
  EXPECT_NE(fc.out.find("  Franck-Condon:   2.3127"), std::string::npos) << fc.out;

  const Result y = rate("--yield --refractive-index 1.33 ic.inp");
  ASSERT_EQ(y.status, 0) << y.err;
  EXPECT_NE(y.out.find("Phi_F = "), std::string::npos) << y.out;
  EXPECT_NE(y.out.find("n = 1.33 (k_r scales as n^2)"), std::string::npos) << y.out;
  EXPECT_EQ(lines(read_file("ft.dat.yield")), 1 + 1);

  // Bad inputs: one line, status 2, nothing written (the bad rows of a dipole file are read in
  // rate/test_radiative.cpp).
  const std::set<std::string> before = listing();
  const std::pair<std::string, std::string> bad[] = {
      {"--radiative --dipole none.dat ic.inp", "ictvcf: none.dat: cannot open the file"},
      {"--radiative --refractive-index -1 ic.inp", "--refractive-index -1: expected the medium's"},
      {"--radiative --real-axis ic.inp", "on the shifted contour only"},
  };
  for (const auto& [options, message] : bad) {
    const Result e = rate(options);
    EXPECT_EQ(e.status, 2) << options;
    EXPECT_NE(e.err.find(message), std::string::npos) << e.err;
    EXPECT_EQ(lines(e.err), 1) << e.err;
    EXPECT_EQ(e.out, "");
  }
  // A Lorentzian line has no w^3 moment.
  std::string text = read_file("ic.inp");
  text.replace(text.find("degauss"), 7, "broadentype = lorentzian\n  degauss");
  write_file("lorentz.inp", text);
  const Result l = rate("--radiative lorentz.inp");
  EXPECT_EQ(l.status, 2);
  EXPECT_NE(l.err.find("k_r needs a Gaussian line"), std::string::npos) << l.err;
  std::set<std::string> after = listing();
  after.erase("lorentz.inp");
  EXPECT_EQ(after, before);
}

// --isc on the closed case at 300 K (mode 1: 1500 cm-1, Huang-Rhys factor 1.2; mode 2 undisplaced):
// its Bessel progression at 3000 cm-1 (5.119948735e8 s-1 for |V| = 1 cm-1) and uphill at -3000 cm-1
// (288.893582762 s-1; with the program's units, whose kelvin per hartree is 1.4e-7 below CODATA
// 2018: the uphill rate moves by 2e-6), the sublevel rules, the files, and the bad inputs.
TEST(RateCommand, IntersystemCrossingAtGapsOfEitherSign) {
  ScratchDir dir;
  closed_case({{"ead = 0.1", "ead = 3000 cm-1\n  isgauss = .true.\n  degauss = 200 cm-1"},
               {"temp = 10.0", "temp = 300.0"}});
  const Result r = rate("--isc --soc 1 cm-1 --temps 77,300 ic.inp");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  // The closed form (Bessel weights of the accepting mode): 5.1199487e8 s-1 at 300 K, 5.1196424e8
  // at 77 K.
  for (const char* line :
       {"\nk_ISC = 5.119949e+08 s-1\n", "\n|V|^2 = 1.000000e+00 cm-2 = 2.076019e-11 au^2\n",
        "\n     300.000  5.119949e+08", "\n      77.000  5.119642e+08"})
    EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
  EXPECT_FALSE(private_dirs_left());
  EXPECT_EQ(listing(),
            (std::set<std::string>{"dushin.dat", "ft.dat.isc", "ft.dat.isc.svg", "ft.dat.isc.temps",
                                   "ft.dat.isc.temps.svg", "ic.inp", "nacme.dat"}));
  // The scan: every gap of ead -/+ 1 eV, uphill ones from the reverse crossing.
  const std::string scan = read_file("ft.dat.isc");
  EXPECT_EQ(lines(scan), 1 + 201);
  std::istringstream at_ead(scan.substr(scan.find("\n  3.00000000e+03   3.71952")));
  double cm = 0, ev = 0, k_au = 0, k_s = 0;
  at_ead >> cm >> ev >> k_au >> k_s;
  EXPECT_NEAR(k_s / 5.1199487e8, 1.0, 1e-7);
  EXPECT_EQ(lines(read_file("ft.dat.isc.temps")), 1 + 2);

  // Uphill, the three sublevels (one complex) averaged: |V|^2 = (0.25 + 0.5 + 0.25)/3 cm-2.
  std::string text = read_file("ic.inp");
  text.replace(text.find("ead = 3000"), 10, "ead = -3000");
  write_file("up.inp", text);
  const Result up = rate("--isc --soc 0.5,0.5:0.5,-0.5 cm-1 --spin triplet-singlet up.inp");
  ASSERT_EQ(up.status, 0) << up.err;
  EXPECT_NE(up.out.find("\nk_ISC = 9.629786e+01 s-1\n"), std::string::npos) << up.out;

  // 1 cm-1 in the other units: the same rate.
  for (const char* soc : {"4.5563352667e-06 au", "1.2398424402e-04 eV"})
    EXPECT_NE(rate(std::string("--isc --soc ") + soc + " ic.inp")
                  .out.find("\nk_ISC = 5.119949e+08 s-1\n"),
              std::string::npos)
        << soc;
  // From a file: |V0_0| = |0.6 + 0.8i| = 1 cm-1 gives the same Franck-Condon rate; a derivative
  // along the undisplaced mode 2 adds its own, with no interference (its lines are one quantum
  // away).
  write_file("soc.dat", "# S1 -> T1\n0  0.6:0.8 0 0  cm-1\n2  0 0 10:3\n");
  const Result ht = rate("--isc --soc-file soc.dat --modes ic.inp");
  ASSERT_EQ(ht.status, 0) << ht.err;
  for (const char* line : {"  Franck-Condon:   5.119949e+08 s-1", "  interference:    0.000000e+00",
                           "\nmodes: 1 modes lend the coupling", "  mode    2     700.00 cm-1"})
    EXPECT_NE(ht.out.find(line), std::string::npos) << line << "\n" << ht.out;
  EXPECT_TRUE(testing::exists("ft.dat.isc.modes"));
  // The same file in au: the same rate, derivatives included.
  const double cm_au = 1.0 / au2cm;
  write_file("soc-au.dat", printed("0  %.10e:%.10e 0 0  au\n2  0 0 %.10e:%.10e\n", 0.6 * cm_au,
                                   0.8 * cm_au, 10.0 * cm_au, 3.0 * cm_au));
  const Result au = rate("--isc --soc-file soc-au.dat ic.inp");
  const std::size_t k_at = ht.out.find("\nk_ISC = ");
  ASSERT_NE(k_at, std::string::npos);
  EXPECT_NE(au.out.find(ht.out.substr(k_at, 24)), std::string::npos) << au.out;

  // The yield with k_ISC from the crossing's own block in its denominator.
  text = read_file("ic.inp");
  text.replace(text.find("ead = 3000 cm-1"), 15, "ead = 3.0 eV");
  write_file("s0.inp", text);
  write_file("dipole.dat", "0 1 0 0\n");
  const Result y = rate("--yield --soc 1 cm-1 --isc-input ic.inp s0.inp");
  ASSERT_EQ(y.status, 0) << y.err;
  for (const char* line :
       {"\nintersystem crossing: ic.inp, ead = 3000 cm-1", "  k_ISC = 5.119949e+08  "})
    EXPECT_NE(y.out.find(line), std::string::npos) << line << "\n" << y.out;
  std::istringstream row(read_file("ft.dat.yield").substr(read_file("ft.dat.yield").find('\n')));
  double temp = 0, k_r = 0, k_ic = 0, phi = 0, more[4], k_isc = 0;
  row >> temp >> k_r >> k_ic >> phi >> more[0] >> more[1] >> more[2] >> more[3] >> k_isc;
  EXPECT_NEAR(k_isc / 5.119948735e8, 1.0, 1e-6);
  EXPECT_NEAR(phi, k_r / (k_r + k_ic + k_isc), 1e-8);

  // Bad inputs: one line, status 2, nothing written.
  write_file("row.dat", "0 1 0 0 cm-1\n2 0.1 zero 0\n");
  write_file("unit.dat", "0 1 0 0 mhartree\n");
  const std::set<std::string> before = listing();
  const std::pair<std::string, std::string> bad[] = {
      {"--isc --soc-file row.dat ic.inp", "row.dat, line 2: expected an integer and three numbers"},
      {"--isc --soc-file unit.dat ic.inp", "unit.dat, line 1: expected the unit 'au', 'cm-1'"},
      {"--isc --soc 1 up.inp", "--soc 1 up.inp: expected the unit cm-1, eV or au"},
      {"--isc --soc 1,x,2 cm-1 up.inp", "expected a number or a complex number re:im, found 'x'"},
      {"--isc --soc 1,2 eV up.inp", "expected one value (summed over the sublevels) or three"},
      {"--isc --soc -1 eV up.inp", "a number of 0 or more, found '-1'"},
      {"--isc --soc 0,0:0,0 au up.inp", "expected a spin-orbit coupling that is not zero"},
      {"--isc --soc 1 cm-1 --spin triplet-singlet up.inp", "a factor 3 apart"},
      {"--isc --soc 1 cm-1 --spin triplets up.inp", "--spin triplets: expected singlet-triplet"},
      {"--isc up.inp", "--isc needs the spin-orbit coupling"},
      {"--yield --soc 1 cm-1 s0.inp", "--yield counts k_ISC with both the spin-orbit coupling"},
      {"up.inp", "ead = -0.013669 hartree: the gap between the minima must be positive"},
  };
  for (const auto& [options, message] : bad) {
    const Result e = rate(options);
    EXPECT_EQ(e.status, 2) << options;
    EXPECT_NE(e.err.find(message), std::string::npos) << options << "\n" << e.err;
    EXPECT_EQ(lines(e.err), 1) << e.err;
    EXPECT_EQ(e.out, "");
  }
  std::set<std::string> after = listing();
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace ictvcf
