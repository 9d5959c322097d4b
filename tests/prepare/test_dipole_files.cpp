// The transition dipole readers: a TD job's formatted checkpoint (the values of divinylbenzene's
// B3LYP/STO-3G job, and a TD frequency job's derivatives), ORCA's tables in both headings, the
// files that hold none, and dipole.dat written and read back.
#include <gtest/gtest.h>

#include <cmath>

#include "coupling/dipole.h"
#include "prepare/dipole_files.h"
#include "prepare/soc_files.h"
#include "test_support.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {
namespace {

std::string label(const std::string& name, char type, int count) {
  std::string s = name;
  s.resize(43, ' ');
  return s + type + "   N=" + std::string(12 - std::to_string(count).size(), ' ') +
         std::to_string(count);
}

// Two atoms' worth of checkpoint: five states of 16 values (as the TD job writes them), and with
// `derivatives` the 16 x 6 values of a frequency job after them: value v of coordinate i is
// 1000 i + v.
TextFile checkpoint(bool derivatives) {
  std::vector<std::string> r{"dvb TD", "SP RB3LYP STO-3G",
                             label("Number of atoms", 'I', 2).substr(0, 44) + "              2",
                             label("Current cartesian coordinates", 'R', 6),
                             "  0.0 0.0 0.0 0.0 0.0 1.4"};
  r.push_back(label("ETran scalars", 'I', 4));
  r.push_back("           5          16           1          10");
  std::vector<double> v(80, 0.0);
  v[0] = -382.112205, v[1] = 0.108999512, v[2] = -1.13751842, v[3] = 2.1e-16;
  v[16] = -382.110753, v[17] = 0.0385509007, v[18] = 2.26861576;
  if (derivatives)
    for (int i = 0; i < 6; ++i)
      for (int k = 0; k < 16; ++k) v.push_back(1000.0 * i + k);
  r.push_back(label("ETran state values", 'R', static_cast<int>(v.size())));
  for (std::size_t i = 0; i < v.size(); i += 5) {
    std::string line;
    for (std::size_t k = i; k < std::min(i + 5, v.size()); ++k) line += printed(" %15.8E", v[k]);
    r.push_back(line);
  }
  r.push_back(label("Other field", 'R', 1));
  r.push_back("  1.0");
  return text_file_from("td.fchk", r);
}

TEST(DipoleFiles, CheckpointRootsAndDerivatives) {
  const QcDipole s1 = parse_fchk_dipole(checkpoint(false), 1);
  EXPECT_EQ(s1.roots, 5);
  EXPECT_DOUBLE_EQ(s1.energy, -382.112205);
  EXPECT_DOUBLE_EQ(s1.mu0[1], -1.13751842);
  EXPECT_DOUBLE_EQ(parse_fchk_dipole(checkpoint(false), 2).mu0[1], 2.26861576);

  const QcDipole f = parse_fchk_dipole(checkpoint(true), 1);
  ASSERT_EQ(f.dmu_dx.size(), 18u);
  EXPECT_DOUBLE_EQ(f.dmu_dx[3 * 4 + 2], 4003.0);  // d mu_z / d x_5: value 3 of coordinate 5

  for (const auto& [file, root, message] :
       {std::tuple{checkpoint(false), 6, "expected excited state 6, but the file holds 5"},
        {text_file_from("s0.fchk", {label("Number of atoms", 'I', 2)}), 1,
         "expected the fields 'ETran scalars' and 'ETran state values'"}}) {
    EXPECT_THROW_MSG(parse_fchk_dipole(file, root), IoError, message);
  }
}

TEST(DipoleFiles, OrcaTablesOfBothHeadingsAndTheLastOneWins) {
  const std::vector<std::string> older{
      "         ABSORPTION SPECTRUM VIA TRANSITION ELECTRIC DIPOLE MOMENTS",
      "-----------------------------------------------------------------------------",
      "State   Energy    Wavelength  fosc         T2        DX        DY        DZ",
      "        (cm-1)      (nm)                 (au**2)    (au)      (au)      (au)",
      "-----------------------------------------------------------------------------",
      "   1   35290.3    283.4   0.100000000   1.00000   9.00000   9.00000   9.00000",
      ""};
  std::vector<std::string> out = older;
  for (const char* s :
       {"         ABSORPTION SPECTRUM VIA TRANSITION ELECTRIC DIPOLE MOMENTS",
        "------------------------------------------------------------------------------------",
        "     Transition      Energy     Energy  Wavelength fosc(D2)      D2        DX        DY"
        "        DZ",
        "                      (eV)      (cm-1)    (nm)                 (au**2)    (au)      (au)"
        "      (au)",
        "------------------------------------------------------------------------------------",
        "  0-1A  ->  1-1A    4.375511   35290.3   283.4   0.153440930   1.43129  -0.12345   1.18"
        "000  -0.00010",
        "  0-1A  ->  2-1A    4.900000   39521.0   253.0   0.000000100   0.00000   0.00010   0.00"
        "000   0.00000",
        "------------------------------------------------------------------------------------"})
    out.push_back(s);
  const QcDipole d = parse_orca_dipole(text_file_from("s1.out", out), 1);
  EXPECT_EQ(d.roots, 2);
  EXPECT_DOUBLE_EQ(d.mu0[0], -0.12345);
  EXPECT_DOUBLE_EQ(d.mu0[1], 1.18);
  EXPECT_DOUBLE_EQ(d.mu0[2], -0.0001);
  EXPECT_DOUBLE_EQ(parse_orca_dipole(text_file_from("old.out", older), 1).mu0[2], 9.0);
  EXPECT_THROW(parse_orca_dipole(text_file_from("old.out", older), 2), IoError);
  EXPECT_THROW(parse_orca_dipole(text_file_from("opt.out", {"no table here"}), 1), IoError);
}

// Two coordinates of masses 4 and 9 me, modes (1, 1)/sqrt 2 and (1, -1)/sqrt 2.
TEST(DipoleFiles, DerivativesAlongTheModes) {
  Matrix<double> l(2, 2);
  const double h = 1.0 / std::sqrt(2.0);
  l(1, 1) = h, l(2, 1) = h, l(1, 2) = h, l(2, 2) = -h;
  const auto m = dipole_along_modes({2.0, 0.0, 1.0, 3.0, 6.0, 0.0}, {4.0, 9.0}, l);
  ASSERT_EQ(m.size(), 2u);
  EXPECT_NEAR(m[0][0], h * (2.0 / 2 + 3.0 / 3), 1e-15);
  EXPECT_NEAR(m[1][1], h * (0.0 / 2 - 6.0 / 3), 1e-15);
  EXPECT_NEAR(m[1][2], h * (1.0 / 2 - 0.0), 1e-15);
}

TEST(DipoleFiles, WrittenFileReadsBack) {
  TextFile written = text_file_from_bytes(
      "dipole.dat", dipole_text("from td.fchk", {0.1, -1.1, 0.0}, {7, 8, 9},
                                {{{0.0, 0.0, 0.0}}, {{1e-3, 0.0, -2e-4}}, {{0.0, 5e-5, 0.0}}}));
  const DipoleFile d = read_dipole_file(written);
  EXPECT_EQ(d.mu0, (std::array<double, 3>{0.1, -1.1, 0.0}));
  EXPECT_EQ(d.modes, (std::vector<int>{8, 9}));  // mode 7 has no derivative: not written
  EXPECT_EQ(d.derivatives[0][2], -2e-4);
}

// ORCA's spin-orbit table: the last one counts, a pair of roots by its row, the sublevels
// M = 0, +1, -1 from the Cartesian components (the same sum of squares), a missing pair named.
TEST(DipoleFiles, SpinOrbitTableOfAnOrcaOutput) {
  std::vector<std::string> out;
  for (double scale : {9.0, 1.0})
    for (const std::string& r :
         {std::string("    CALCULATED SOCME BETWEEN TRIPLETS AND SINGLETS"),
          std::string("     Root                          <T|HSO|S>  (Re, Im) cm-1"),
          std::string("     T      S           Z                    X                    Y"),
          std::string("---------------------------------------------------------------------"),
          printed("      1      0    (   %.2f ,    -0.00)    (  -0.00 ,    %.2f)    (   %.2f , "
                  "    0.00)",
                  0.5 * scale, 17.51 * scale, 1.88 * scale),
          std::string("      2      0    (   0.00 ,     3.00)    (   4.00 ,     0.00)    (   0.00 "
                      ",     0.00)"),
          std::string(""), std::string("some later text (1, 2)")})
      out.push_back(r);
  const TextFile f = text_file_from("soc.out", out);
  const SocValues v = parse_orca_soc(f, 1, 0);
  EXPECT_EQ(v.zxy[0], std::complex<double>(0.5, 0.0));
  EXPECT_EQ(v.zxy[1], std::complex<double>(0.0, 17.51));
  const auto m = v.sublevels();
  EXPECT_NEAR(std::norm(m[0]) + std::norm(m[1]) + std::norm(m[2]),
              0.25 + 17.51 * 17.51 + 1.88 * 1.88, 1e-9);
  EXPECT_NEAR(std::abs(m[1]), (17.51 + 1.88) / std::sqrt(2.0), 1e-12);  // X + iY = i (17.51 + 1.88)
  EXPECT_EQ(parse_orca_soc(f, 2, 0).zxy[1], std::complex<double>(4.0, 0.0));
  EXPECT_THROW_MSG(parse_orca_soc(f, 3, 0), IoError,
                   "expected the row of triplet 3 and singlet 0 in the table 'CALCULATED SOCME "
                   "BETWEEN TRIPLETS AND SINGLETS' (it has 2 rows)");
  EXPECT_THROW_MSG(parse_orca_soc(text_file_from("opt.out", {"none"}), 1, 0), IoError,
                   "expected the table");
}

}  // namespace
}  // namespace ictvcf
