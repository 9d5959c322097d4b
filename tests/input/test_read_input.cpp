// The &ic_tvcf block: its extraction from the user's file, and the values it gives the parameter
// set. The stops on bad lines are the rows of data/mistakes.tsv and the case bad-parameter.
#include <gtest/gtest.h>

#include "input/read_input.h"
#include "test_support.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

using testing::read_file;
using testing::ScratchDir;
using testing::write_file;

TEST(ExtractInput, TheBlockWithoutCommentsAndBlankLines) {
  const std::string long_line = " x = " + std::string(500, '9');
  const std::pair<std::string, std::string> cases[] = {
      {"&other\n x = 1\n/\n&ic_tvcf   ! parameters\n  temp = 300 K  # hot\n\n\n  ! comment only\n"
       "\tdt = 5\n dsfile = 'a#b'\n   /   # end\nignored = 1\n",
       " temp = 300 K\n   ! comment only\n \tdt = 5\n dsfile = 'a\n"},
      // The marker alone and in its case; a last blank line ends the search without an error.
      {"&IC_TVCF\n a = 1\n/\n&ic_tvcf temp=300\n b = 2\n/\n\n", ""},
      {"", ""},
      // The line after a blank line is handed on as it stands, comment included.
      {"&ic_tvcf\n\n  ! comment only\n  debug = .false. ! kept\n/\n",
       "   ! comment only\n debug = .false.\n"},
      {"&ic_tvcf\n a = 1\n b = 2", " a = 1\n b = 2\n"},  // no end marker
      {std::string("&ic_tvcf\n").append(long_line).append("\n/\n"),
       long_line.substr(0, 400).append("\n")},
  };
  for (const auto& [input, block] : cases) {
    ScratchDir dir;
    Units u;
    write_file("in.inp", input);
    extract_input(u, "in.inp", ".in.inp", "&ic_tvcf", "/");
    EXPECT_EQ(read_file(".in.inp"), block) << input;
  }
}

TEST(ExtractInput, NoStartMarkerWithNonBlankLastLineIsEndOfFileError) {
  ScratchDir dir;
  Units u;
  write_file("in.inp", "title\n a = 1\n");
  EXPECT_THROW_MSG(extract_input(u, "in.inp", ".in.inp", "&ic_tvcf", "/"), IoError,
                   "in.inp, line 3:");
  EXPECT_TRUE(testing::exists(".in.inp"));  // the block file was opened before the search
}

// Runs the input step on a block and returns the parameter set; the echo lands in ".input.convert".
ParameterSet read_block(const std::string& block) {
  ParameterSet p;
  init(p);
  Units u;
  write_file("ic.inp", "&ic_tvcf\n" + block + "/\n");
  readinput(p, u, "ic.inp", ".input.convert", "&ic_tvcf", "/");
  return p;
}

TEST(ReadInput, ValuesWordsNumbersAndUnits) {
  ScratchDir dir;
  ParameterSet p = read_block(
      " dsfile = dush.out\n coulfile = 'my.dat'\n ftfile = \"t.dat\"\n temp = 350 K\n"
      " tmax = 1000 fs\n tmin = 0.5 ps\n dt = 10\n ead = 2.0 eV\n dushin = .false.\n mode = 3\n"
      " electyp = nacme\n MODE = 4\n evert = 8065 cm-1\n dscale =\n logfile = .hidden\n"
      " gfile = 1a/b\n fofile = ./x\n");
  EXPECT_EQ(rtrim(p.dsfile), "dush.out");
  EXPECT_EQ(rtrim(p.coulfile), "my.dat");
  EXPECT_EQ(rtrim(p.ftfile), "t.dat");
  EXPECT_EQ(p.temp, 350.0);
  // Values with units are stored as their 15-digit E25.15 text reads back.
  EXPECT_EQ(p.tmax, 0.413413733366468e+05);
  EXPECT_EQ(p.tmin, 0.206706866683234e+05);
  EXPECT_EQ(p.dt, 10.0);
  EXPECT_EQ(p.ead, 0.734986175463117e-01);
  EXPECT_FALSE(p.dushin);
  EXPECT_EQ(p.mode, 4);  // a later line wins, names match without regard to case
  EXPECT_EQ(p.electyp, pad("nacme", 200));
  EXPECT_EQ(p.dscale, 1.0);  // "name =" assigns nothing
  // Words are handed on quoted, anything else as it stands (a slash then ends the value).
  EXPECT_EQ(rtrim(p.logfile), ".hidden");
  EXPECT_EQ(rtrim(p.gfile), "1a");
  EXPECT_EQ(rtrim(p.fofile), ".");
  EXPECT_FALSE(testing::exists(".ic.inp") || testing::exists(".ic.inp_tmp"));

  const std::string echo = read_file(".input.convert");
  const std::string dashes(100, '-');
  EXPECT_EQ(echo.rfind(" dsfile = dush.out\n coulfile = 'my.dat'\n", 0), 0u);
  EXPECT_NE(echo.find(dashes + "\n  Unit conversion\n\n  au2fs   = 0.024188843265\n"),
            std::string::npos);
  for (const char* line :
       {"\n  dsfile                         = dush.out\n",
        "\n  temp                           =     0.350000000000000E+03 au =     350.00000000 K\n",
        "\n  evert                          =     0.367468439257750E-01 au =    8065.00000000 "
        "cm-1\n",
        "\n  dscale                         =\n"})
    EXPECT_NE(echo.find(line), std::string::npos) << line;
  EXPECT_EQ(echo.substr(echo.size() - 101), dashes + "\n");
}

TEST(ReadInput, UnreadableNumberBeforeUnitIsInputError) {
  ScratchDir dir;
  try {
    read_block(" temp = 300 K\n tmax = ten fs\n");
    FAIL();
  } catch (const IoError& e) {
    EXPECT_EQ(describe(e),
              "ictvcf: ic.inp, line 3: expected a number before the unit word, found 'ten' (Bad "
              "real number in item 1 of list input)");
  }
  // Nothing is cleaned up on such a stop: the block, work and converted files stay.
  EXPECT_EQ(testing::dot_files(),
            (std::vector<std::string>{".ic.inp", ".ic.inp_tmp", ".input.convert"}));
}

}  // namespace
}  // namespace ictvcf
