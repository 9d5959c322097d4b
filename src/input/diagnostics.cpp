#include "input/diagnostics.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>
#include <vector>

#include "input/values.h"
#include "util/constants.h"
#include "util/list_read.h"
#include "util/strings.h"
#include "util/warning.h"

namespace ictvcf {

namespace {

enum class Quantity { energy, time, temperature, dipole, any, none };

// What a real parameter measures; the others (scale factors, settings without effect) are none.
Quantity quantity_of(std::string_view name) {
  static const std::pair<std::string_view, Quantity> table[] = {
      {"ead", Quantity::energy},  {"evert", Quantity::energy},  {"degauss", Quantity::energy},
      {"fwhm", Quantity::energy}, {"fwhm_w", Quantity::energy}, {"tmin", Quantity::time},
      {"tmax", Quantity::time},   {"dt", Quantity::time},       {"fwhm_t", Quantity::time},
      {"fwhmt", Quantity::time},  {"lifetime", Quantity::time}, {"temp", Quantity::temperature},
  };
  for (const auto& [n, q] : table)
    if (n == name) return q;
  return Quantity::none;
}

// The quantity's name, e.g. "energy".
std::string noun(Quantity q) {
  switch (q) {
    case Quantity::energy:
      return "energy";
    case Quantity::time:
      return "time";
    case Quantity::temperature:
      return "temperature";
    case Quantity::dipole:
      return "dipole moment";
    default:
      return "number";
  }
}

// How a number without a (known) unit is taken.
std::string taken_as(Quantity q) {
  switch (q) {
    case Quantity::energy:
      return "taken as it stands, in hartree";
    case Quantity::time:
      return "taken as it stands, in atomic units of time (1 au = 0.0242 fs)";
    case Quantity::temperature:
      return "taken as it stands, in kelvin";
    default:
      return "taken as it stands";
  }
}

// Every unit word the checks know, lower case, in one table: the units the reader converts (their
// quantity, and the way they are usually written), other spellings of those, units the reader does
// not convert but which convert to one it does (`per_au`: the unit's value per atomic unit), and
// degrees Celsius.
enum class UnitKind { read, spelling, convertible, celsius };

struct UnitWord {
  std::string_view word;
  UnitKind kind;
  std::string_view known;              // as usually written: the unit itself, or the one meant
  Quantity quantity = Quantity::none;  // of a unit the reader converts
  double per_au = 0.0;
};

constexpr UnitWord kUnitWords[] = {
    {"fs", UnitKind::read, "fs", Quantity::time},
    {"ps", UnitKind::read, "ps", Quantity::time},
    {"ev", UnitKind::read, "eV", Quantity::energy},
    {"cm-1", UnitKind::read, "cm-1", Quantity::energy},
    {"k", UnitKind::read, "K", Quantity::temperature},
    {"au", UnitKind::read, "au", Quantity::any},
    {"a.u.", UnitKind::read, "a.u.", Quantity::any},
    {"debye", UnitKind::read, "debye", Quantity::dipole},
    {"db", UnitKind::read, "db", Quantity::dipole},
    {"femtosecond", UnitKind::spelling, "fs"},
    {"femtoseconds", UnitKind::spelling, "fs"},
    {"fsec", UnitKind::spelling, "fs"},
    {"picosecond", UnitKind::spelling, "ps"},
    {"picoseconds", UnitKind::spelling, "ps"},
    {"cm^-1", UnitKind::spelling, "cm-1"},
    {"cm**-1", UnitKind::spelling, "cm-1"},
    {"cm^{-1}", UnitKind::spelling, "cm-1"},
    {"1/cm", UnitKind::spelling, "cm-1"},
    {"wavenumber", UnitKind::spelling, "cm-1"},
    {"wavenumbers", UnitKind::spelling, "cm-1"},
    {"electronvolt", UnitKind::spelling, "eV"},
    {"electronvolts", UnitKind::spelling, "eV"},
    {"e.v.", UnitKind::spelling, "eV"},
    {"kelvin", UnitKind::spelling, "K"},
    {"hartree", UnitKind::spelling, "au"},
    {"hartrees", UnitKind::spelling, "au"},
    {"ha", UnitKind::spelling, "au"},
    {"eh", UnitKind::spelling, "au"},
    {"kcal/mol", UnitKind::convertible, "eV", Quantity::none, 627.5094740631},
    {"kj/mol", UnitKind::convertible, "eV", Quantity::none, 2625.4996394799},
    {"mev", UnitKind::convertible, "eV", Quantity::none, au2ev * 1000.0},
    {"ns", UnitKind::convertible, "fs", Quantity::none, au2fs * 1e-6},
    {"as", UnitKind::convertible, "fs", Quantity::none, au2fs * 1000.0},
    {"c", UnitKind::celsius, "K"},
    {"celsius", UnitKind::celsius, "K"},
    {"degc", UnitKind::celsius, "K"},
    {"°c", UnitKind::celsius, "K"},
};

const UnitWord* unit_word(std::string_view lower) {
  for (const UnitWord& u : kUnitWords)
    if (u.word == lower) return &u;
  return nullptr;
}

// The quantity of a unit word the reader converts (lower case); none for any other word.
Quantity unit_quantity(std::string_view u) {
  const UnitWord* w = unit_word(u);
  return w && w->kind == UnitKind::read ? w->quantity : Quantity::none;
}

// Another spelling of a known unit, or a unit that converts to one.
const UnitWord* other_unit(std::string_view u) {
  const UnitWord* w = unit_word(u);
  return w && (w->kind == UnitKind::spelling || w->kind == UnitKind::convertible) ? w : nullptr;
}

bool is_celsius(std::string_view u) {
  const UnitWord* w = unit_word(u);
  return w && w->kind == UnitKind::celsius;
}

// A known unit word as it is usually written ("ev": "eV").
std::string spelt(std::string_view u) {
  const UnitWord* w = unit_word(u);
  return std::string(w ? w->known : u);
}

// "fs, ps, eV, cm-1, K, au, a.u., debye, db"
std::string known_units() {
  std::string s;
  for (const UnitWord& u : kUnitWords)
    if (u.kind == UnitKind::read) s += (s.empty() ? "" : ", ") + std::string(u.known);
  return s;
}

std::string number(double x) { return printed("%.6g", x); }

// The value of `x` atomic units in the known unit `known` (lower or mixed case).
double in_unit(double x, std::string_view known) {
  get_au_inverse(x, lower_ascii(known));
  return x;
}

void check_unit(const std::string& at, const std::string& n, const std::string& v,
                const std::string& u, bool has_number, double x) {
  const std::string shown = at + n + " = " + v + " " + u + ": ";
  const std::string lu = lower_ascii(u);
  const Quantity pq = quantity_of(n);
  const Quantity uq = unit_quantity(lu);
  if (uq == Quantity::any || (uq != Quantity::none && (pq == Quantity::none || uq == pq))) return;
  if (uq != Quantity::none) {
    double y = x;
    get_au(y, lu);
    std::string msg = shown + "'" + u + "' is a unit of " + noun(uq) + ", but " + n + " is " +
                      (pq == Quantity::energy ? "an " : "a ") + noun(pq) + "; ";
    if (lu == "k")
      msg += "the number is " + taken_as(pq);
    else
      msg += "the number is converted all the same" +
             (has_number ? " (" + number(x) + " " + u + " = " + number(y) + " au)" : "");
    warn(msg);
    return;
  }

  std::string msg = shown + "unknown unit '" + u + "'; the number is " + taken_as(pq);
  const std::size_t blank = lu.find(' ');
  std::string word = lu.substr(0, blank);
  while (!word.empty() && (word.back() == ',' || word.back() == ';' || word.back() == ':'))
    word.pop_back();
  const UnitWord* other = other_unit(word);
  if (blank != std::string::npos && (unit_quantity(word) != Quantity::none || other)) {
    msg += "; only one word may follow the number (a comment starts with ! or #)";
  } else if (word != lu && unit_quantity(word) != Quantity::none) {
    msg += "; did you mean '" + spelt(word) + "'?";
  } else if (is_celsius(lu) && pq == Quantity::temperature && has_number) {
    msg += "; " + n + " is in kelvin: " + v + " " + u + " is " + number(x + 273.15) +
           " K, write '" + n + " = " + number(x + 273.15) + " K'";
  } else if (other && other->per_au > 0.0 && has_number) {
    const double y = in_unit(x / other->per_au, other->known);
    msg += "; " + v + " " + u + " is " + number(y) + " " + std::string(other->known) + ", write '" +
           n + " = " + number(y) + " " + std::string(other->known) + "'";
  } else if (other) {
    msg += "; did you mean '" + std::string(other->known) + "'?";
  } else {
    msg += "; the units known are " + known_units();
  }
  warn(msg);
}

// A number without a unit whose size does not fit its quantity.
void check_size(const std::string& at, const std::string& n, const std::string& v, double x) {
  if (quantity_of(n) != Quantity::energy || !(std::fabs(x) > 1.0) || !std::isfinite(x)) return;
  std::string msg = at + n + " = " + v + " has no unit and is taken in hartree (" +
                    number(x * au2ev) + " eV), implausibly large for " + n + "; ";
  if (std::fabs(x) >= 1000.0)
    msg += "if wavenumbers were meant, write '" + n + " = " + v + " cm-1'";
  else if (std::fabs(x) <= 100.0)
    msg += "if eV were meant, write '" + n + " = " + v + " eV'";
  else
    msg += "write the unit after the number (eV, cm-1)";
  warn(msg);
}

// "3,66": digits on both sides of a comma.
bool has_decimal_comma(std::string_view v) {
  const std::size_t c = v.find(',');
  auto digit = [](char ch) { return ch >= '0' && ch <= '9'; };
  return c != std::string_view::npos && c > 0 && c + 1 < v.size() && digit(v[c - 1]) &&
         digit(v[c + 1]);
}

const std::vector<NmlVar>& parameters() {
  static ParameterSet names_only;
  static const std::vector<NmlVar> group = input_group(names_only);
  return group;
}

const NmlVar* find_parameter(std::string_view lname) {
  for (const NmlVar& var : parameters())
    if (var.name == lname) return &var;
  return nullptr;
}

// Edit distance with transpositions (optimal string alignment).
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i)
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  return d[a.size()][b.size()];
}

std::string trimmed(std::string_view s) { return std::string(rtrim(ltrim(s))); }

bool same_file(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ea, eb;
  const auto ca = std::filesystem::weakly_canonical(a, ea);
  const auto cb = std::filesystem::weakly_canonical(b, eb);
  return !ea && !eb && ca == cb;
}

}  // namespace

std::string nearest_parameter(std::string_view name) {
  const std::string n = lower_ascii(name);
  // A known name that the given one begins with ("temperature": "temp"), the longest.
  std::string_view best;
  for (const NmlVar& var : parameters())
    if (var.name.size() >= 3 && n.starts_with(var.name) && var.name.size() > best.size())
      best = var.name;
  if (!best.empty()) return std::string(best);
  // The nearest within a few edits: one for short names, up to three for long ones.
  std::size_t best_d = std::clamp<std::size_t>(n.size() / 3, 1, 3) + 1;
  for (const NmlVar& var : parameters())
    if (const std::size_t d = distance(n, var.name); d < best_d) {
      best_d = d;
      best = var.name;
    }
  if (!best.empty()) return std::string(best);
  // A known name that begins with the given one ("coul": "coulfile").
  for (const NmlVar& var : parameters())
    if (n.size() >= 3 && var.name.starts_with(n)) return std::string(var.name);
  return "";
}

void check_parameter_line(const std::string& at, std::string_view name, std::string_view value,
                          std::string_view unit) {
  const std::string n = lower_ascii(trimmed(name));
  const NmlVar* var = find_parameter(n);
  if (!var || var->type != NmlVar::real) return;
  const std::string v = trimmed(value), u = trimmed(unit);
  if (has_decimal_comma(v)) {
    std::string point = v;
    std::replace(point.begin(), point.end(), ',', '.');
    warn(at + n + " = " + v + (u.empty() ? "" : " " + u) +
         ": a comma is not a decimal point, the number ends at it; write " + n + " = " + point +
         (u.empty() ? "" : " " + u));
  }
  double x = 0.0;
  const bool has_number = !v.empty() && read_f(v, 0, x) == LdStatus::ok;
  if (has_number && !std::isfinite(x))
    warn(at + n + " = " + v + (u.empty() ? "" : " " + u) + ": the value is not a finite number");
  if (!u.empty())
    check_unit(at, n, v, u, has_number, x);
  else if (has_number)
    check_size(at, n, v, x);
}

void explain_bad_line(const std::string& at, bool has_assignment, std::string_view line,
                      std::string_view name, std::string_view value, std::string_view unit) {
  if (!has_assignment) {
    const std::string l = trimmed(line);
    if (!l.empty() && (l[0] == '!' || l[0] == '#'))
      warn(at + "the comment '" + l +
           "' follows a blank line inside the block, where a line is read as it stands and "
           "holds no '='; remove the blank line or the comment");
    else
      warn(at + "the line '" + l +
           "' holds no '='; the block takes one 'name = value [unit]' "
           "per line");
    return;
  }
  const std::string n = trimmed(name), v = trimmed(value), u = trimmed(unit);
  const NmlVar* var = find_parameter(lower_ascii(n));
  if (!var) {
    const std::string near = nearest_parameter(n);
    warn(at + "no parameter is named '" + n + "'" +
         (near.empty() ? "; the names are listed in README.md" : "; did you mean '" + near + "'?"));
    return;
  }
  const std::string found = " (found '" + v + (u.empty() ? "" : " " + u) + "')";
  if (var->type == NmlVar::logical)
    warn(at + n + " is a logical: write .true. or .false., with the points" + found);
  else if (var->type == NmlVar::integer)
    warn(at + n + " takes a whole number" + (u.empty() ? "" : " without a unit") + found);
  else if (double x = 0.0;
           var->type == NmlVar::real && !has_decimal_comma(v) && read_f(v, 0, x) != LdStatus::ok)
    warn(at + n + " takes a number" + found);
}

void check_parameters(const ParameterSet& p, const std::string& infile, bool writes_outputs) {
  const std::string in = trimmed(infile);
  auto empty_name = [&](const std::string& field, const char* param, const char* what) {
    if (is_blank(field))
      warn(std::string(param) + " is empty: no " + what + " is named (write '" + param +
           " = FILE' in the &ic_tvcf block of " + in + ")");
  };
  empty_name(p.dsfile, "dsfile", "Duschinsky data file");
  empty_name(p.coulfile, "coulfile", "coupling file");
  if (p.if_dcoupl) empty_name(p.dcouplfile, "dcouplfile", "derivative-coupling file");
  if (writes_outputs) {
    empty_name(p.ftfile, "ftfile", "table");
    empty_name(p.logfile, "logfile", "log");
  }

  if (p.if_dcoupl)
    warn("if_dcoupl = .true.: the derivative couplings of '" + trimmed(p.dcouplfile) +
         "' are read (the file must be complete) but do not enter the correlation function; the "
         "table is the same without them");
  if (!(p.temp > 0.0) || !std::isfinite(p.temp))
    warn("temp = " + number(p.temp) +
         ": the temperature must be a finite number above 0 K; the thermal factors "
         "4 sinh^2(hw/2kT) and the table are not physical");
  if (p.dt == 0.0)
    warn("dt = 0 (not set?): the time grid has the single point t = 0");
  else if (std::fabs((p.tmax - p.tmin) / p.dt) < 0.5)
    warn("tmin = " + number(p.tmin) + ", tmax = " + number(p.tmax) + ", dt = " + number(p.dt) +
         " (atomic units): the time grid has the single point t = 0");

  if (!writes_outputs) return;
  const std::pair<const char*, std::string> outputs[] = {{"logfile", trimmed(p.logfile)},
                                                         {"ftfile", trimmed(p.ftfile)}};
  std::vector<std::pair<std::string, std::string>> inputs = {
      {"the input file", in}, {"dsfile", trimmed(p.dsfile)}, {"coulfile", trimmed(p.coulfile)}};
  if (p.if_dcoupl) inputs.push_back({"dcouplfile", trimmed(p.dcouplfile)});
  if (p.dushtype != 1) inputs.push_back({"the frequency table", "fort.2"});
  for (const auto& [out, out_name] : outputs)
    for (const auto& [what, in_name] : inputs)
      if (same_file(out_name, in_name))
        warn(std::string(out) + " = " + out_name + " names the same file as " + what +
             ": the run replaces it");
  if (same_file(outputs[0].second, outputs[1].second))
    warn("logfile and ftfile name the same file, " + outputs[0].second +
         ": the table replaces the log");
}

void warn_stopped(const ParameterSet& p, bool writes_outputs) {
  if (!writes_outputs) {
    warn(
        "the run stops (status 0) with the message on standard output: nothing was computed "
        "or written; files named after ftfile (" +
        trimmed(p.ftfile) + ") are from an earlier run");
    return;
  }
  const std::string table = trimmed(p.ftfile);
  std::error_code ec;
  const bool earlier = !table.empty() && std::filesystem::exists(table, ec);
  warn("the run stops (status 0) with the message on standard output: no table was written" +
       (earlier ? "; " + table + " is from an earlier run" : " (" + table + ")"));
}

}  // namespace ictvcf
