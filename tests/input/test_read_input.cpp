#include <gtest/gtest.h>

#include "input/read_input.h"
#include "test_support.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

using testing::read_file;
using testing::ScratchDir;
using testing::write_file;

std::string extract(const std::string& input) {
  Units u;
  write_file("in.inp", input);
  extract_input(u, "in.inp", ".in.inp", "&ic_tvcf", "/");
  return read_file(".in.inp");
}

TEST(DelComment, LeftJustifiesAndCutsAtBangOrHash) {
  std::string l = "   temp = 300 ! K  ";
  del_comment1(l);
  EXPECT_EQ(l, "temp = 300         ");
  l = " dsfile = 'a#b'";  // no notion of quoted text
  del_comment1(l);
  EXPECT_EQ(rtrim(l), "dsfile = 'a");
}

TEST(ExtractInput, BlockBetweenMarkersWithoutCommentsAndBlankLines) {
  ScratchDir dir;
  EXPECT_EQ(extract("&other\n x = 1\n/\n&ic_tvcf   ! parameters\n  temp = 300 K  # hot\n"
                    "\n\n  ! comment only\n\tdt = 5\n   /   # end\nignored = 1\n"),
            " temp = 300 K\n   ! comment only\n \tdt = 5\n");
}

TEST(ExtractInput, MarkerMustStandAloneAndMatchCase) {
  ScratchDir dir;
  // "&IC_TVCF" is not the marker, nor a marker line with more text; the last line is blank.
  EXPECT_EQ(extract("&IC_TVCF\n a = 1\n/\n&ic_tvcf temp=300\n/\n\n"), "");
  EXPECT_EQ(extract(""), "");
  // The line after a blank line is handed on as it stands, comment included.
  EXPECT_EQ(extract("&ic_tvcf\n\n  ! comment only\n  debug = .false. ! kept\n/\n"),
            "   ! comment only\n debug = .false.\n");
}

TEST(ExtractInput, NoEndMarkerRunsToEndOfFile) {
  ScratchDir dir;
  EXPECT_EQ(extract("&ic_tvcf\n a = 1\n b = 2"), " a = 1\n b = 2\n");
}

TEST(ExtractInput, NoStartMarkerWithNonBlankLastLineIsEndOfFileError) {
  ScratchDir dir;
  Units u;
  write_file("in.inp", "title\n a = 1\n");
  try {
    extract_input(u, "in.inp", ".in.inp", "&ic_tvcf", "/");
    FAIL();
  } catch (const IoError& e) {
    EXPECT_EQ(e.file, "in.inp");
    EXPECT_EQ(e.line, 3);
  }
  EXPECT_TRUE(testing::exists(".in.inp"));  // the block file was opened before the search
  EXPECT_THROW(extract_input(u, "missing.inp", ".m", "&ic_tvcf", "/"), IoError);
}

TEST(ExtractInput, LongLinesCutAt400) {
  ScratchDir dir;
  std::string body = " x = " + std::string(500, '9');
  EXPECT_EQ(extract("&ic_tvcf\n" + body + "\n/\n"), " " + body.substr(1, 399) + "\n");
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
      " tmax = 1000 fs\n dt = 10\n ead = 2.0 eV\n dushin = .false.\n mode = 3\n"
      " electyp = nacme\n MODE = 4\n evert = 8065 cm-1\n dscale =\n");
  EXPECT_EQ(rtrim(p.dsfile), "dush.out");
  EXPECT_EQ(rtrim(p.coulfile), "my.dat");
  EXPECT_EQ(rtrim(p.ftfile), "t.dat");
  EXPECT_EQ(p.temp, 350.0);
  // Values with units are stored as their 15-digit E25.15 text reads back.
  EXPECT_EQ(p.tmax, 0.413413733366468e+05);
  EXPECT_EQ(p.dt, 10.0);
  EXPECT_EQ(p.ead, 0.734986175463117e-01);
  EXPECT_FALSE(p.dushin);
  EXPECT_EQ(p.mode, 4);  // a later line wins, names match without regard to case
  EXPECT_EQ(p.electyp, pad("nacme", 200));
  EXPECT_EQ(p.dscale, 1.0);  // "name =" assigns nothing
  EXPECT_FALSE(testing::exists(".ic.inp"));
  EXPECT_FALSE(testing::exists("ic.inp_tmp"));
  EXPECT_FALSE(testing::exists(".ic.inp_tmp"));

  const std::string echo = read_file(".input.convert");
  const std::string dashes(100, '-');
  EXPECT_NE(echo.find(" dsfile = dush.out\n coulfile = 'my.dat'\n"), std::string::npos);
  EXPECT_NE(echo.find(dashes + "\n  Unit conversion\n\n  au2fs   = 0.024188843265\n"),
            std::string::npos);
  EXPECT_NE(echo.find("\n  dsfile                         = dush.out\n"), std::string::npos);
  EXPECT_NE(echo.find("\n  coulfile                       = 'my.dat'\n"), std::string::npos);
  EXPECT_NE(echo.find("\n  temp                           =     0.350000000000000E+03 au =     "
                      "350.00000000 K\n"),
            std::string::npos);
  EXPECT_NE(echo.find("\n  evert                          =     0.367468439257750E-01 au =    "
                      "8065.00000000 cm-1\n"),
            std::string::npos);
  EXPECT_NE(echo.find("\n  dscale                         =\n"), std::string::npos);
  EXPECT_EQ(echo.substr(echo.size() - 101), dashes + "\n");
}

TEST(ReadInput, UnquotedTextStopsAtSlashAndWordsAreQuoted) {
  ScratchDir dir;
  ParameterSet p = read_block(" dsfile = ./data.dat\n logfile = .hidden\n gfile = 1a/b\n");
  EXPECT_EQ(rtrim(p.dsfile), ".");
  EXPECT_EQ(rtrim(p.logfile), ".hidden");
  EXPECT_EQ(rtrim(p.gfile), "1a");
}

TEST(ReadInput, EmptyBlockKeepsDefaults) {
  ScratchDir dir;
  ParameterSet p = read_block("");
  ParameterSet d;
  EXPECT_EQ(p.logfile, d.logfile);
  EXPECT_EQ(p.temp, 300.0);
  const std::string dashes(100, '-');
  EXPECT_EQ(read_file(".input.convert").substr(0, 101), dashes + "\n");
}

// A bad line stops the run with status 1 and the work file printed; the temporary files stay.
void expect_bad(const std::string& block, const std::string& assignment) {
  ScratchDir dir;
  try {
    read_block(block);
    FAIL() << block;
  } catch (const StopRun& e) {
    EXPECT_EQ(e.status, 1);
    EXPECT_EQ(e.out, "  Error for input parameter:\n\n &input\n" + assignment + "\n /\n");
  }
  EXPECT_EQ(testing::dot_files(),
            (std::vector<std::string>{".ic.inp", ".ic.inp_tmp", ".input.convert"}));
}

TEST(ReadInput, BadLinesStopWithStatusOne) {
  expect_bad(" temp = 300 K\n tmaxx = 10\n", "  tmaxx = 10");
  expect_bad(" dushin = false\n", "  dushin = 'false" + std::string(195, ' ') + "'");
  expect_bad(" mode = 2 fs\n", "  mode =     0.826827466732936E+02");
  expect_bad(" temp = 1,2\n", "  temp = 1,2");
  expect_bad(" no equals sign\n", "  no equals sign");
}

TEST(ReadInput, EarlierLinesAreEchoedBeforeABadOne) {
  ScratchDir dir;
  EXPECT_THROW(read_block(" temp = 300 K\n tmaxx = 10\n dt = 5\n"), StopRun);
  const std::string echo = read_file(".input.convert");
  EXPECT_NE(echo.find("  temp                           ="), std::string::npos);
  EXPECT_NE(echo.find("  tmaxx                          = 10\n"), std::string::npos);
  EXPECT_EQ(echo.find("  dt "), std::string::npos);
}

TEST(ReadInput, UnreadableNumberBeforeUnitIsInputError) {
  ScratchDir dir;
  try {
    read_block(" temp = 300 K\n tmax = ten fs\n");
    FAIL();
  } catch (const IoError& e) {
    EXPECT_EQ(e.file, "ic.inp");
    EXPECT_EQ(e.line, 3);  // the line in the user's file
  }
  // Nothing is cleaned up on such a stop: the block, work and converted files stay.
  EXPECT_EQ(testing::dot_files(),
            (std::vector<std::string>{".ic.inp", ".ic.inp_tmp", ".input.convert"}));
}

TEST(FullToShortName, LastPathComponent) {
  std::string n = pad(".run/ic.inp", 200);
  full_to_short_name(n);
  EXPECT_EQ(n, pad("ic.inp", 200));
  n = pad("ic.inp", 200);
  full_to_short_name(n);
  EXPECT_EQ(n, pad("ic.inp", 200));
}

}  // namespace
}  // namespace ictvcf
