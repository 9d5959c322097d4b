// `ictvcf prepare` as a user runs it: the written files read back by the run's own readers, the
// run and the rate on them, the warnings of a poor pair, and bad input that writes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <sstream>

#include "coupling/getrlk.h"
#include "prepare/atom_order.h"
#include "prepare/modes.h"
#include "prepare_support.h"
#include "test_support.h"
#include "util/constants.h"
#include "vibronic/read_dush.h"

namespace ictvcf {
namespace {

using testing::qc_file;
using testing::read_file;
using testing::ScratchDir;
using testing::write_file;

using testing::Result;

Result ictvcf(const std::string& args) { return testing::run_exe(args); }

// The word after `label` in `text` (empty if the label is missing).
std::string word_after(const std::string& text, const std::string& label) {
  const std::size_t at = text.find(label);
  if (at == std::string::npos) return "";
  std::istringstream in(text.substr(at + label.size()));
  std::string w;
  in >> w;
  return w;
}

TEST(PrepareCommand, CoumarinFilesDriveTheRunAndTheRate) {
  ScratchDir dir;
  const std::string s0 = qc_file("coumarin/coumarin_s0.fchk");
  const std::string s1 = qc_file("coumarin/coumarin_s1.fchk");
  const Result r = ictvcf("prepare " + s0 + " " + s1 + " --out case");
  ASSERT_EQ(r.status, 0) << r.err;
  // The two files' small gradients, and the bonds that turn by a few degrees (the two frames'
  // Duschinsky matrices part by about the sine of the turn).
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 3) << r.err;
  EXPECT_NE(r.err.find("gradient"), std::string::npos);

  // The run's readers see the numbers computed here.
  const QcState a = read_qc_state(s0), b = read_qc_state(s1);
  const NacInput nac{b.file, b.nac, NacGeometry::initial_state, {}, {}};
  const PrepareResult ref = prepare_pair(a, b, &nac);
  ParameterSet p;
  p.dsfile = pad("case/dushin.dat", 200);
  DushinData v;
  std::ostringstream log;
  readdushinout(p, v, log);
  TextFile cf = open_text_file("case/nacme.dat");
  getrlk(p, v, cf, 0, log);
  ASSERT_EQ(v.nmode, 45);
  // The summary names modes as the run numbers them: `mode = k` selects the largest coupling.
  const int top = std::stoi(word_after(r.out, "au along mode"));
  for (int i = 1; i <= 45; ++i) EXPECT_LE(std::fabs(v.rif(i)), std::fabs(v.rif(top)));
  EXPECT_NE(r.out.find(printed("along mode %d (%.2f cm-1)", top, v.omegag(top) * au2cm)),
            std::string::npos);
  for (int i = 1; i <= 45; ++i) {
    EXPECT_EQ(v.d(i), ref.d2[i + 5]);
    EXPECT_EQ(v.rif(i), ref.rif[i + 5]);
    EXPECT_NEAR(v.omegae(i), ref.modes2.omega[i + 5], 1e-12 * v.omegae(i));
    for (int j = 1; j <= 45; ++j) EXPECT_EQ(v.s(i, j), ref.s(i + 6, j + 6));
  }

  // The run: its log reports the same reorganisation energies, and its t = 0 row is the thermal
  // average sum_kl rif_k rif_l <P1_k P1_l> with P1 = S^T P2.
  std::filesystem::current_path("case");
  ASSERT_EQ(ictvcf("ic.inp").status, 0);
  const std::string runlog = read_file("ic_tvcf.log");
  EXPECT_EQ(word_after(runlog, "Reorganiztion Energy 1       is:"),
            word_after(r.out, "reorganisation energy, state 1:"));
  EXPECT_EQ(word_after(runlog, "Reorganiztion Energy 2       is:"),
            word_after(r.out, "reorganisation energy, state 2:"));
  // The written grid: a quarter period of the highest frequency or less, ead + 1 eV below the
  // Nyquist limit pi/dt, and the Gaussian damping of FWHM 200 cm-1 below 1e-8 at tmax.
  auto echoed = [&](const char* name) {
    return std::stod(word_after(runlog, "\n  " + pad(name, 30) + " ="));
  };
  double wmax = 0.0;
  for (int i = 1; i <= 45; ++i) wmax = std::max({wmax, v.omegag(i), v.omegae(i)});
  const double dt = echoed("dt"), sigma = 200.0 / au2cm / std::sqrt(8.0 * std::log(2.0));
  EXPECT_LE(dt * wmax, std::numbers::pi / 2.0);
  EXPECT_GE(std::numbers::pi / dt, echoed("ead") + 1.0 / au2ev);
  EXPECT_LE(std::exp(-0.5 * std::pow(sigma * echoed("tmax"), 2)), 1e-8);
  const double kt = 300.0 / kelvin_per_hartree;
  double c0 = 0.0;
  for (int j = 1; j <= 45; ++j) {
    double sr = 0.0;
    for (int k = 1; k <= 45; ++k) sr += v.s(j, k) * v.rif(k);
    c0 += sr * sr * v.omegae(j) / 2.0 / std::tanh(v.omegae(j) / (2.0 * kt));
  }
  const double row0 = std::stod(word_after(read_file("ic_tvcf.dat"), "\n       0.00000"));
  EXPECT_NEAR(row0 / c0, 1.0, 1e-6);

  const Result rate = ictvcf("rate ic.inp");
  EXPECT_EQ(rate.status, 0) << rate.err;
  EXPECT_NE(rate.out.find("k_IC = "), std::string::npos);
}

// The README's command on the coumarin pair, as a user reads it: the summary and the warnings
// exactly, the three files to the digits that another LAPACK leaves alone (1e-8 relative, above
// 1e-8 absolute), every word of them exactly.
TEST(PrepareCommand, GoldenTranscriptOfTheCoumarinPair) {
  ScratchDir dir;
  for (const char* f : {"coumarin_s0.fchk", "coumarin_s1.fchk"})
    std::filesystem::copy_file(qc_file(std::string("coumarin/") + f), f);
  const Result r = ictvcf("prepare coumarin_s0.fchk coumarin_s1.fchk --out run");
  const std::string golden = std::string(ICTVCF_TEST_DATA) + "/../prepare/golden/coumarin/";
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, read_file(golden + "stdout.txt"));
  EXPECT_EQ(r.err, read_file(golden + "stderr.txt"));
  for (const char* name : {"dushin.dat", "nacme.dat", "ic.inp"}) {
    std::istringstream want(read_file(golden + name)), got(read_file(std::string("run/") + name));
    std::string w, g;
    int words = 0;
    while (want >> w) {
      ASSERT_TRUE(got >> g) << name << ": ends after " << words << " words";
      char* end = nullptr;
      const double x = std::strtod(w.c_str(), &end);
      if (*end == '\0' && !w.empty())
        EXPECT_NEAR(std::strtod(g.c_str(), nullptr), x, 1e-8 * std::max(1.0, std::fabs(x)))
            << name << ", word " << words;
      else
        EXPECT_EQ(g, w) << name << ", word " << words;
      ++words;
    }
    EXPECT_FALSE(got >> g) << name << ": more than " << words << " words";
  }
}

// A TD job's checkpoint gives dipole.dat; with the same Hessian for both states (D = 0, S = I)
// the emission is one Gaussian line at ead, so k_r = 4 |mu0|^2 (dE^3 + 3 dE sigma^2) / 3 c^3.
TEST(PrepareCommand, TransitionDipoleOfATdCheckpoint) {
  ScratchDir dir;
  const std::string ir = qc_file("real/gaussian/cclib_g16_dvb_ir.fchk"),
                    td = qc_file("real/gaussian/cclib_g16_dvb_td.fchk");
  std::string nac = "0.01 0 0\n-0.01 0 0\n";
  for (int a = 2; a < 20; ++a) nac += "0 0 0\n";
  write_file("nac.txt", nac);
  const Result r = ictvcf("prepare " + ir + " " + ir + " --ead 3.5 eV --nac nac.txt " +
                          "--nac-geometry final --dipole-from " + td + " --out run");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("'ETran state values', excited state 1 of 5): |mu0| = 1.14273 au"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("run/ic.inp, run/dipole.dat\n"), std::string::npos);
  // The same pair as a singlet and a triplet: their spin-orbit coupling from an ORCA output, no
  // non-adiabatic coupling needed, and the next command says how to use it.
  write_file("soc.out",
             "CALCULATED SOCME BETWEEN TRIPLETS AND SINGLETS\n T S Z X Y\n"
             "  1  0  (  0.00 , 0.00)  ( 0.00 , 3.00)  ( 4.00 , 0.00)\n");
  const Result isc = ictvcf("prepare " + ir + " " + ir + " --ead -0.1 eV --soc-from soc.out 1 0");
  ASSERT_EQ(isc.status, 0) << isc.err;
  EXPECT_NE(isc.out.find("sum of |V|^2 25 cm-2"), std::string::npos) << isc.out;
  EXPECT_NE(isc.out.find("ictvcf rate --isc --soc 0,4.94975,0.707107 cm-1 ic.inp\n"),
            std::string::npos)
      << isc.out;

  std::filesystem::current_path("run");
  const Result k = ictvcf("rate --radiative ic.inp");
  ASSERT_EQ(k.status, 0) << k.err;
  const double mu2 = std::pow(1.14273, 2), de = 3.5 / au2ev, c = 137.035999084;
  const double sigma = 200.0 / au2cm / std::sqrt(8.0 * std::log(2.0));
  const double kr = 4.0 * mu2 * (de * de * de + 3.0 * de * sigma * sigma) / (3.0 * c * c * c);
  EXPECT_NEAR(std::stod(word_after(k.out, "\nk_r =")) / (kr * au_per_second), 1.0, 2e-5) << k.out;
}

// (A linear molecule and ghost atoms are refused in prepare/test_real_files.cpp and
// prepare/test_qc_files.cpp.)
TEST(PrepareCommand, PoorPairWarnsAndBadInputWritesNothing) {
  ScratchDir dir;
  const std::string m0 = qc_file("methylium/opt_freq_s0.fchk");
  const std::string m1 = qc_file("methylium/opt_freq_s1.fchk");
  const Result poor = ictvcf("prepare " + m0 + " " + m1);
  EXPECT_EQ(poor.status, 0);
  EXPECT_NE(poor.err.find("ictvcf prepare: warning: a large-amplitude change"), std::string::npos);
  EXPECT_TRUE(testing::exists("dushin.dat") && testing::exists("ic.inp"));

  const QcState s = read_qc_state(m0);
  write_file("noenergy.hess", testing::orca_hess(s, true, 0.0));
  write_file("nac.txt", "0 0 0.1\n0 0 -0.1\n0 0 0\n0 0 0\n");
  write_file("notadir", "");
  const std::string dvb = qc_file("real/gaussian/cclib_g16_dvb_ir.fchk");
  const std::string c0 = qc_file("coumarin/coumarin_s0.fchk"),
                    c1 = qc_file("coumarin/coumarin_s1.fchk");
  const std::pair<std::string, std::string> cases[] = {
      {m0 + " " + c1, "expected the same 4 atoms"},
      {"noenergy.hess " + m1, "expected a total energy"},
      {m0 + " " + m1 + " --nac nac.txt", "--nac-geometry final|initial"},
      {m0 + " " + m1 + " --nac-geometry final", "--nac-geometry describes the file of --nac"},
      {m0 + " " + m1 + " --ead 3.1", "expected a unit (eV, cm-1 or au) after --ead"},
      {m0 + " " + m1 + " --temp 77 --temp 300", "--temp is given twice"},
      {m0 + " " + m1 + " --frequency", "unknown option '--frequency'"},
      {dvb + " " + dvb + " --ead 1 eV", "'Nonadiabatic coupling' is all zeros"},
      // The states swapped: S1 given as the final state; or one state twice (a gap of zero).
      {c1 + " " + c0, "the files are probably swapped"},
      {m1 + " " + m1, "the files are probably swapped"},
  };
  for (const auto& [args, expected] : cases) {
    const Result r = ictvcf("prepare --out bad " + args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')).find("warning"), std::string::npos) << r.err;
    EXPECT_FALSE(testing::exists("bad")) << args;
  }
  const Result nodir = ictvcf("prepare " + m0 + " " + m1 + " --out notadir/x");
  EXPECT_EQ(nodir.status, 2);
  EXPECT_NE(nodir.err.find("cannot create the output directory"), std::string::npos);

  // A second prepare into the same directory keeps the edited input unless --force, which names
  // what it replaced and the results of the old input left beside the new files.
  write_file("ic.inp", read_file("ic.inp") + "! edited\n");
  write_file("ic_tvcf.dat", "old table\n");
  write_file("ic_tvcf.dat.rate", "old rates\n");
  const Result again = ictvcf("prepare " + m0 + " " + m1);
  EXPECT_EQ(again.status, 2);
  EXPECT_NE(again.err.find("give --force to replace them"), std::string::npos) << again.err;
  EXPECT_NE(read_file("ic.inp").find("! edited"), std::string::npos);
  const Result forced =
      ictvcf("prepare " + m0 + " " + m1 + " --force --temp 77 --fwhm 300 cm-1 --ead 2900 meV");
  EXPECT_NE(forced.out.find("ead: 2.900000 eV (--ead 2900 meV)"), std::string::npos);
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_NE(forced.out.find("replaced (--force): ./dushin.dat, ./nacme.dat, ./ic.inp"),
            std::string::npos)
      << forced.out;
  EXPECT_NE(forced.out.find("(they do not match the new ones): ./ic_tvcf.dat, ./ic_tvcf.dat.rate"),
            std::string::npos)
      << forced.out;
  EXPECT_EQ(read_file("ic.inp").find("! edited"), std::string::npos);
  EXPECT_NE(forced.out.find("input: 77 K, Gaussian broadening FWHM 300 cm-1"), std::string::npos);
  // The warnings come before the hint to go on.
  EXPECT_EQ(forced.out.substr(forced.out.rfind("\n", forced.out.size() - 2) + 1, 5), "next:");
}

TEST(PrepareCommand, SwappedHydrogensAndACouplingCutOutOfItsOutput) {
  // Coumarin's S1 as an ORCA file with two hydrogens exchanged, its coupling the ORCA block alone
  // (no coordinates) in 1/angstrom at the initial geometry, numbered as that file: the same
  // numbers as the correctly numbered pair with the coupling in 1/bohr.
  ScratchDir dir;
  const std::string c0 = qc_file("coumarin/coumarin_s0.fchk");
  const QcState s1 = read_qc_state(qc_file("coumarin/coumarin_s1.fchk"));
  auto orca_block = [](const QcState& s, double scale) {
    std::string t =
        "------------------------------------\nCARTESIAN NON-ADIABATIC COUPLINGS\n"
        "------------------------------------\n\n";
    for (int a = 0; a < s.natoms(); ++a)
      t += printed("%4d   %-2s   :  %18.12e  %18.12e  %18.12e\n", a + 1,
                   element_symbol(s.atomic_number[a]).c_str(), s.nac[3 * a] * scale,
                   s.nac[3 * a + 1] * scale, s.nac[3 * a + 2] * scale);
    return t;
  };
  std::vector<int> swap(17);
  for (int i = 0; i < 17; ++i) swap[i] = i;
  std::swap(swap[12], swap[15]);  // two of the hydrogens
  QcState swapped = s1;
  renumber_atoms(swapped, swap);
  write_file("s1.hess", testing::orca_hess(s1, true, s1.energy));
  write_file("s1-swapped.hess", testing::orca_hess(swapped, true, s1.energy));
  write_file("nac.out", orca_block(s1, 1.0));
  write_file("nac-swapped.out", orca_block(swapped, 1.0 / bohr_in_angstrom));
  const Result ref =
      ictvcf("prepare " + c0 + " s1.hess --nac nac.out --nac-geometry initial --out a");
  const Result got = ictvcf("prepare " + c0 +
                            " s1-swapped.hess --nac nac-swapped.out --nac-geometry initial "
                            "--nac-unit angstrom --out b");
  ASSERT_EQ(ref.status, 0) << ref.err;
  ASSERT_EQ(got.status, 0) << got.err;
  EXPECT_NE(got.out.find("(H13 <- H16, H16 <- H13, final <- initial)"), std::string::npos)
      << got.out;
  for (const char* label : {"reorganisation energy, state 1:", "reorganisation energy, state 2:",
                            "total Huang-Rhys factor:", "its size; largest"})
    EXPECT_EQ(word_after(got.out, label), word_after(ref.out, label)) << label;

  // An isotopologue, one hydrogen of S1 made deuterium: FINAL's masses serve both states (the
  // same numbers), and the difference is named.
  QcState heavy = s1;
  heavy.mass[12] = 2.01410178;
  write_file("s1-d.hess", testing::orca_hess(heavy, true, s1.energy));
  const Result iso =
      ictvcf("prepare " + c0 + " s1-d.hess --nac nac.out --nac-geometry initial --out d");
  EXPECT_NE(
      iso.err.find("the masses of s1-d.hess differ from those of " + c0 + " (by up to 1e+02 %)"),
      std::string::npos)
      << iso.err;
  EXPECT_EQ(word_after(iso.out, "reorganisation energy, state 2:"),
            word_after(ref.out, "reorganisation energy, state 2:"));

  // The same exchange with --keep-order: taken as numbered, and said to be probably wrong.
  const Result kept = ictvcf("prepare " + c0 +
                             " s1-swapped.hess --nac nac-swapped.out --nac-geometry initial "
                             "--keep-order --out c");
  EXPECT_NE(kept.err.find("with --keep-order the atoms are taken as numbered"), std::string::npos);

  // A list computed at the final geometry is numbered as FINAL's file: INITIAL's renumbering
  // leaves it alone.
  ictvcf("prepare " + c0 + " s1.hess --nac nac.out --nac-geometry final --out e");
  ictvcf("prepare " + c0 + " s1-swapped.hess --nac nac.out --nac-geometry final --out f");
  EXPECT_EQ(read_file("f/nacme.dat"), read_file("e/nacme.dat"));

  // Both checkpoints with a coupling (S0's field filled with S1's): INITIAL's is used.
  const std::string s0 = read_file(c0), s1text = read_file(qc_file("coumarin/coumarin_s1.fchk"));
  const std::string field = "Nonadiabatic coupling                      R   N=          51\n";
  auto values = [&](const std::string& t) {  // the field's value lines, up to the next label
    const std::size_t from = t.find(field) + field.size();
    std::size_t to = from;
    while (t[to] == ' ') to = t.find('\n', to) + 1;
    return std::pair{from, to};
  };
  const auto [a0, b0] = values(s0);
  const auto [a1, b1] = values(s1text);
  write_file("s0-nac.fchk", s0.substr(0, a0) + s1text.substr(a1, b1 - a1) + s0.substr(b0));
  const Result both =
      ictvcf("prepare s0-nac.fchk " + qc_file("coumarin/coumarin_s1.fchk") + " --out g");
  EXPECT_NE(both.out.find("coupling: " + qc_file("coumarin/coumarin_s1.fchk") + ", at the initial"),
            std::string::npos)
      << both.out;
}

}  // namespace
}  // namespace ictvcf
