// Completing the parameters before the run, one row of data/prepare-data.tsv each: the line
// widths from the first one given (a Gaussian of standard deviation degauss has the full widths
// 2 sqrt(2 ln 2) degauss in energy and 2 sqrt(2 ln 2) / degauss in time and the lifetime
// sqrt(2) / degauss; a Lorentzian of half width degauss 2 degauss, 2 ln 2 / degauss and
// 1 / degauss), the number of time steps and the vertical gap.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <sstream>

#include "run/prepare_data.h"
#include "support/io_tables.h"

namespace ictvcf {
namespace {

TEST(PrepareData, EveryRowOfTheTable) {
  for (const auto& row : testing::load_table(ICTVCF_TEST_DATA "/prepare-data.tsv")) {
    SCOPED_TRACE("prepare-data.tsv line " + std::to_string(row.line) + ": " + row["note"]);
    ParameterSet p;
    const std::map<std::string, double*> reals{{"degauss", &p.degauss},
                                               {"fwhm", &p.fwhm},
                                               {"fwhm_w", &p.fwhm_w},
                                               {"fwhm_t", &p.fwhm_t},
                                               {"fwhmt", &p.fwhmt},
                                               {"lifetime", &p.lifetime},
                                               {"fwhm_w_max", &p.fwhm_w_max},
                                               {"tmin", &p.tmin},
                                               {"tmax", &p.tmax},
                                               {"fwhm_t_max", &p.fwhm_t_max},
                                               {"dt", &p.dt},
                                               {"ead", &p.ead},
                                               {"evert", &p.evert}};
    auto each = [](const std::string& list, auto f) {
      std::istringstream in(list);
      for (std::string item; in >> item;)
        f(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
    };
    each(row["set"], [&](const std::string& name, const std::string& value) {
      if (name == "isgauss") p.isgauss = value == "1";
      if (name == "broadentype") p.broadentype = pad(value, 10);
      if (reals.count(name)) *reals.at(name) = std::stod(value);
    });
    prepare_data(p);
    each(row["expect"], [&](const std::string& name, const std::string& value) {
      if (name == "nt") {
        EXPECT_EQ(p.nt, std::stoi(value));
      }
      if (!reals.count(name)) return;
      const double want = std::stod(value);
      EXPECT_NEAR(*reals.at(name), want, 1e-14 * std::fabs(want)) << name;
    });
  }
}

TEST(PrepareData, StepCountKeepsTheLow32Bits) {
  EXPECT_EQ(round_to_int32(4294967296.0 + 5.0), 5);
  EXPECT_EQ(round_to_int32(2147483648.0), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(round_to_int32(std::numeric_limits<double>::infinity()), 0);
}

}  // namespace
}  // namespace ictvcf
