#include "prepare/soc_files.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "util/errors.h"

namespace ictvcf {

namespace {

constexpr const char* kTitle = "CALCULATED SOCME BETWEEN TRIPLETS AND SINGLETS";

// The numbers of a row 'T S ( a , b ) ( c , d ) ( e , f )', brackets and commas as blanks; false
// unless it is two whole numbers and six finite ones.
bool soc_row(const std::string& rec, long& t, long& s, double v[6]) {
  if (rec.find('(') == std::string::npos) return false;
  std::string plain = rec;
  for (char& c : plain)
    if (c == '(' || c == ')' || c == ',') c = ' ';
  std::istringstream in(plain);
  std::vector<std::string> w;
  for (std::string x; in >> x;) w.push_back(x);
  if (w.size() != 8) return false;
  char* end = nullptr;
  t = std::strtol(w[0].c_str(), &end, 10);
  if (*end) return false;
  s = std::strtol(w[1].c_str(), &end, 10);
  if (*end) return false;
  for (int k = 0; k < 6; ++k) {
    v[k] = std::strtod(w[k + 2].c_str(), &end);
    if (*end || !std::isfinite(v[k])) return false;
  }
  return true;
}

}  // namespace

std::array<std::complex<double>, 3> SocValues::sublevels() const {
  const std::complex<double> i(0.0, 1.0);
  const double r = std::sqrt(0.5);
  return {zxy[0], -(zxy[1] + i * zxy[2]) * r, (zxy[1] - i * zxy[2]) * r};
}

SocValues parse_orca_soc(const TextFile& f, int triplet, int singlet) {
  std::size_t title = std::string::npos;
  for (std::size_t i = 0; i < f.records.size(); ++i)
    if (f.records[i].find(kTitle) != std::string::npos) title = i;
  if (title == std::string::npos)
    throw IoError(
        f.name, 0,
        std::string("expected the table '") + kTitle + "' of a TDDFT job with spin-orbit coupling");
  SocValues out;
  out.file = f.name;
  out.triplet = triplet;
  out.singlet = singlet;
  int rows = 0;
  // The rows follow the headings; the table ends at the first line that is not a row after them.
  for (std::size_t i = title + 1; i < f.records.size(); ++i) {
    long t = 0, s = 0;
    double v[6];
    if (!soc_row(f.records[i], t, s, v)) {
      if (rows > 0) break;
      continue;
    }
    ++rows;
    if (t == triplet && s == singlet) {
      for (int k = 0; k < 3; ++k) out.zxy[k] = {v[2 * k], v[2 * k + 1]};
      return out;
    }
  }
  throw IoError(f.name, static_cast<long>(title) + 1,
                "expected the row of triplet " + std::to_string(triplet) + " and singlet " +
                    std::to_string(singlet) + " in the table '" + kTitle + "' (it has " +
                    std::to_string(rows) + " rows)");
}

SocValues read_soc_table(const std::string& name, int triplet, int singlet) {
  return parse_orca_soc(open_text_file(name), triplet, singlet);
}

}  // namespace ictvcf
