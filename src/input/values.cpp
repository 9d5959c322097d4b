#include "input/values.h"

#include "util/errors.h"
#include "util/list_read.h"
#include "util/strings.h"

namespace ictvcf {

bool get_vars(std::string& line, std::string& name, std::string& value, std::string& unit) {
  const std::size_t len = line.size();
  std::size_t p = line.find('=');
  if (p == std::string::npos) return false;
  name = pad(ltrim(std::string_view(line).substr(0, p)), len);
  line = pad(ltrim(std::string_view(line).substr(p + 1)), len);
  std::size_t q = line.find(' ');
  if (q == std::string::npos) q = len;
  value = pad(std::string_view(line).substr(0, q), len);
  unit = pad(ltrim(std::string_view(line).substr(q)), len);
  return true;
}

double char_to_real(std::string_view text, const std::string& file, long line) {
  TextFile internal = text_file_from(file, {std::string(text)});
  double x = 0.0;
  ListReader reader(internal);
  if (reader.read(x) != LdStatus::ok)
    throw IoError(file, line,
                  "expected a number before the unit word, found '" +
                      std::string(rtrim(ltrim(text))) + "' (" + reader.message() + ")");
  return x;
}

namespace {

// Factor of the unit word, or 0 for words that leave the value unchanged.
double unit_factor(std::string_view unit) {
  std::string u = lower_ascii(rtrim(unit));
  if (u == "cm-1") return au2cm;
  if (u == "db" || u == "debye") return au2db;
  if (u == "ev") return au2ev;
  if (u == "fs") return au2fs;
  if (u == "ps") return au2ps;
  return 0.0;
}

}  // namespace

void get_au(double& x, std::string_view unit) {
  if (double f = unit_factor(unit); f != 0.0) x = x / f;
}

void get_au_inverse(double& x, std::string_view unit) {
  if (double f = unit_factor(unit); f != 0.0) x = x * f;
}

bool is_letter(std::string_view text) {
  std::string_view t = rtrim(ltrim(text));
  if (t.empty()) return false;
  for (char c : t)
    if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))) return false;
  return true;
}

}  // namespace ictvcf
