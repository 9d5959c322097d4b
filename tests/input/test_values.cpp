#include <gtest/gtest.h>

#include <cmath>

#include "input/values.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {
namespace {

struct Split {
  std::string name, value, unit;
};

Split split(const std::string& text) {
  std::string line = pad(text, 200), name, value, unit;
  EXPECT_TRUE(get_vars(line, name, value, unit)) << text;
  return {std::string(rtrim(name)), std::string(rtrim(value)), std::string(rtrim(unit))};
}

TEST(GetVars, NameValueAndUnitRest) {
  Split s = split(" tmax = 1000 fs");
  EXPECT_EQ(s.name, "tmax");
  EXPECT_EQ(s.value, "1000");
  EXPECT_EQ(s.unit, "fs");
  s = split("  name=value");
  EXPECT_EQ(s.name, "name");
  EXPECT_EQ(s.value, "value");
  EXPECT_EQ(s.unit, "");
  s = split("name = value unit extra");
  EXPECT_EQ(s.unit, "unit extra");
  s = split(" dsfile = 'my file.dat'");  // quoted text is split at its blank
  EXPECT_EQ(s.value, "'my");
  EXPECT_EQ(s.unit, "file.dat'");
  s = split(" a = b = c");  // only the first "=" splits
  EXPECT_EQ(s.name, "a");
  EXPECT_EQ(s.value, "b");
  EXPECT_EQ(s.unit, "= c");
  s = split(" evert =");
  EXPECT_EQ(s.value, "");
  EXPECT_EQ(s.unit, "");
  std::string line = pad(" no assignment here", 200), n, v, u;
  EXPECT_FALSE(get_vars(line, n, v, u));
}

TEST(Units, ConversionFactorsAndBack) {
  double x = 1000.0;
  get_au(x, "fs");
  EXPECT_DOUBLE_EQ(x, 1000.0 / 0.024188843265);
  double y = x;
  get_au_inverse(y, "fs");
  EXPECT_NEAR(y, 1000.0, 1e-10);
  double ps = 1.0;
  get_au(ps, "ps");
  EXPECT_NEAR(ps / x, 1.0, 1e-14);  // 1 ps and 1000 fs agree

  double ev = 1.0;
  get_au(ev, "EV");  // the word is compared in lower case
  EXPECT_DOUBLE_EQ(ev, 1.0 / 27.21139617);
  double cm = 8065.0;
  get_au(cm, "cm-1   ");
  EXPECT_DOUBLE_EQ(cm, 8065.0 / 219474.6307);
  double db = 1.0;
  get_au(db, "Debye");
  EXPECT_DOUBLE_EQ(db, 1.0 / 2.541580252938);
  for (const char* same : {"K", "k", "au", "a.u.", "kcal", "fs,", "fs extra"}) {
    double v = 300.0;
    get_au(v, same);
    get_au_inverse(v, same);
    EXPECT_EQ(v, 300.0) << same;
  }
}

TEST(IsLetter, OnlyAsciiLetters) {
  EXPECT_TRUE(is_letter("n"));
  EXPECT_TRUE(is_letter("  Z  "));
  EXPECT_FALSE(is_letter("."));
  EXPECT_FALSE(is_letter("1"));
  EXPECT_FALSE(is_letter("'"));
  EXPECT_FALSE(is_letter(" "));
  EXPECT_FALSE(is_letter("a1"));
  EXPECT_FALSE(is_letter("\xe9"));
}

TEST(CharToReal, FreeFormatNumbersAndErrors) {
  EXPECT_EQ(char_to_real("  300  ", "ic.inp", 3), 300.0);
  EXPECT_EQ(char_to_real("1.5D-3", "ic.inp", 3), 1.5e-3);
  EXPECT_EQ(char_to_real("2,5", "ic.inp", 3), 2.0);
  EXPECT_TRUE(std::isnan(char_to_real("NaN", "ic.inp", 3)));
  try {
    char_to_real("abc", "ic.inp", 7);
    FAIL();
  } catch (const IoError& e) {
    EXPECT_EQ(e.file, "ic.inp");
    EXPECT_EQ(e.line, 7);
    EXPECT_NE(std::string(e.what()).find("'abc'"), std::string::npos);
  }
  EXPECT_THROW(char_to_real("'300'", "ic.inp", 1), IoError);
  EXPECT_THROW(char_to_real("", "ic.inp", 1), IoError);
}

}  // namespace
}  // namespace ictvcf
