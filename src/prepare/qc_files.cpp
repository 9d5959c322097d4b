#include "prepare/qc_files.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <string_view>

#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

const char* const kElements[] = {
    "H",  "He", "Li", "Be", "B",  "C",  "N",  "O",  "F",  "Ne", "Na", "Mg", "Al", "Si", "P",
    "S",  "Cl", "Ar", "K",  "Ca", "Sc", "Ti", "V",  "Cr", "Mn", "Fe", "Co", "Ni", "Cu", "Zn",
    "Ga", "Ge", "As", "Se", "Br", "Kr", "Rb", "Sr", "Y",  "Zr", "Nb", "Mo", "Tc", "Ru", "Rh",
    "Pd", "Ag", "Cd", "In", "Sn", "Sb", "Te", "I",  "Xe", "Cs", "Ba", "La", "Ce", "Pr", "Nd",
    "Pm", "Sm", "Eu", "Gd", "Tb", "Dy", "Ho", "Er", "Tm", "Yb", "Lu", "Hf", "Ta", "W",  "Re",
    "Os", "Ir", "Pt", "Au", "Hg", "Tl", "Pb", "Bi", "Po", "At", "Rn", "Fr", "Ra", "Ac", "Th",
    "Pa", "U",  "Np", "Pu", "Am", "Cm", "Bk", "Cf", "Es", "Fm", "Md", "No", "Lr", "Rf", "Db",
    "Sg", "Bh", "Hs", "Mt", "Ds", "Rg", "Cn", "Nh", "Fl", "Mc", "Lv", "Ts", "Og"};
constexpr int kElementCount = sizeof(kElements) / sizeof(kElements[0]);

// The most abundant isotope's mass of elements 1-83 (amu; 0 for Tc and Pm, which have no stable
// isotope), as programs use when a file gives no masses.
const double kIsotopeMass[] = {
    1.00782503,  4.00260325,  7.01600344,  9.0121831,   11.0093054,  12.0,        14.003074,
    15.9949146,  18.9984032,  19.9924402,  22.9897693,  23.9850417,  26.9815385,  27.9769265,
    30.973762,   31.9720711,  34.9688527,  39.9623831,  38.9637065,  39.9625909,  44.9559083,
    47.947942,   50.943957,   51.9405062,  54.9380439,  55.9349363,  58.9331943,  57.9353424,
    62.9295977,  63.929142,   68.9255735,  73.9211778,  74.9215946,  79.9165218,  78.9183376,
    83.9114977,  84.9117897,  87.9056125,  88.9058403,  89.9046977,  92.906373,   97.9054048,
    0.0,         101.9043441, 102.905498,  105.9034804, 106.9050916, 113.9033651, 114.9038788,
    119.9022016, 120.903812,  129.9062228, 126.9044719, 131.9041551, 132.905452,  137.905247,
    138.9063563, 139.9054431, 140.9076576, 141.907729,  0.0,         151.9197397, 152.921238,
    157.9241123, 158.9253547, 163.9291819, 164.9303288, 165.9302995, 168.9342179, 173.9388664,
    174.9407752, 179.946557,  180.9479958, 183.9509326, 186.9557501, 191.961477,  192.9629216,
    194.9647917, 196.9665688, 201.9706434, 204.9744278, 207.9766525, 208.9803991};
constexpr int kIsotopeCount = sizeof(kIsotopeMass) / sizeof(kIsotopeMass[0]);

std::vector<std::string> words(std::string_view s) {
  std::vector<std::string> w;
  std::size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
    std::size_t j = i;
    while (j < s.size() && !std::isspace(static_cast<unsigned char>(s[j]))) ++j;
    if (j > i) w.emplace_back(s.substr(i, j - i));
    i = j;
  }
  return w;
}

// A whole word as a number (Fortran D exponents accepted).
bool to_double(std::string_view word, double& v) {
  std::string s(word);
  for (char& c : s)
    if (c == 'D' || c == 'd') c = 'E';
  if (s.empty()) return false;
  char* end = nullptr;
  v = std::strtod(s.c_str(), &end);
  return end == s.c_str() + s.size() && std::isfinite(v);
}

bool to_int(std::string_view word, long& v) {
  std::string s(word);
  if (s.empty()) return false;
  char* end = nullptr;
  v = std::strtol(s.c_str(), &end, 10);
  return end == s.c_str() + s.size();
}

long line_no(std::size_t index) { return static_cast<long>(index) + 1; }

// ---- Gaussian formatted checkpoint -------------------------------------------------------------
// A field starts with a label line: the name in columns 1-40, the type letter in column 44, then
// either a scalar from column 50 or 'N=' in columns 48-49 and the count of an array that follows
// on the next lines (reals 5 per line in 16 columns each, integers 6 per line in 12 columns,
// character data 5 per line in 12 columns).
struct FchkLabel {
  std::string name;
  char type = ' ';
  bool array = false;
  long count = 0;
  std::string scalar;
};

bool fchk_label(const std::string& rec, FchkLabel& lab) {
  if (rec.size() < 44 || rec[0] == ' ') return false;
  if (rec.compare(40, 3, "   ") != 0) return false;
  if (std::string_view("IRCLH").find(rec[43]) == std::string_view::npos) return false;
  if (rec.size() > 44 && rec[44] != ' ') return false;
  lab.name = std::string(rtrim(rec.substr(0, 40)));
  lab.type = rec[43];
  const std::string rest = rec.size() > 47 ? rec.substr(47) : "";
  lab.array = rest.rfind("N=", 0) == 0;
  lab.scalar = lab.array ? "" : std::string(ltrim(rtrim(rest)));
  if (lab.array) {
    const auto w = words(rest.substr(2));
    if (w.size() != 1 || !to_int(w[0], lab.count) || lab.count < 0) return false;
  }
  return true;
}

bool wanted_array(const std::string& name) {
  static const char* const kWanted[] = {"Atomic numbers",
                                        "Real atomic weights",
                                        "Current cartesian coordinates",
                                        "Cartesian Gradient",
                                        "Cartesian Force Constants",
                                        "Nonadiabatic coupling",
                                        "Vib-E2"};
  return std::find(std::begin(kWanted), std::end(kWanted), name) != std::end(kWanted);
}

// The values of an integer or real array, read in their fixed columns from record `i` on.
std::vector<double> fchk_values(const TextFile& f, std::size_t& i, const FchkLabel& lab) {
  const int per_line = lab.type == 'I' ? 6 : 5;
  const std::size_t width = lab.type == 'I' ? 12 : 16;
  const std::size_t lines = static_cast<std::size_t>((lab.count + per_line - 1) / per_line);
  if (lines > f.records.size() - i)
    throw IoError(
        f.name, static_cast<long>(f.records.size()) + 1,
        "expected " + std::to_string(lab.count) + " values of '" + lab.name + "' (end of file)");
  std::vector<double> v(static_cast<std::size_t>(lab.count));
  for (long k = 0; k < lab.count; ++k) {
    if (k % per_line == 0 && k > 0) ++i;
    const std::string what = "value " + std::to_string(k + 1) + " of " + std::to_string(lab.count) +
                             " of '" + lab.name + "'";
    if (i >= f.records.size())
      throw IoError(f.name, line_no(i), "expected " + what + " (end of file)");
    const std::string& rec = f.records[i];
    const std::size_t first = static_cast<std::size_t>(k % per_line) * width;
    const std::string field = rec.size() > first ? rec.substr(first, width) : "";
    const auto w = words(field);
    long iv = 0;
    const bool ok = w.size() == 1 && (lab.type == 'I' ? to_int(w[0], iv) : to_double(w[0], v[k]));
    if (!ok)
      throw IoError(f.name, line_no(i),
                    "expected " + what + " in columns " + std::to_string(first + 1) + "-" +
                        std::to_string(first + width) + ", found '" + field + "'");
    if (lab.type == 'I') v[k] = static_cast<double>(iv);
  }
  if (lab.count > 0) ++i;
  return v;
}

bool looks_like_fchk(const TextFile& f) {
  FchkLabel lab;
  for (std::size_t i = 0; i < std::min<std::size_t>(f.records.size(), 6); ++i)
    if (fchk_label(f.records[i], lab) && lab.name == "Number of atoms") return true;
  return false;
}

bool looks_like_orca_hess(const TextFile& f) {
  for (const auto& rec : f.records)
    if (rec.rfind("$hessian", 0) == 0 || rec.rfind("$orca_hessian_file", 0) == 0) return true;
  return false;
}

bool looks_like_orca_nac(const TextFile& f) {
  for (const auto& rec : f.records)
    if (rec.find("CARTESIAN NON-ADIABATIC COUPLINGS") != std::string::npos) return true;
  return false;
}

// ---- ORCA ----------------------------------------------------------------------------------
// The first record at or after `i` that is not blank; throws at the end of the file.
std::size_t next_nonblank(const TextFile& f, std::size_t i, const std::string& what) {
  while (i < f.records.size() && words(f.records[i]).empty()) ++i;
  if (i >= f.records.size())
    throw IoError(f.name, line_no(i), "expected " + what + " (end of file)");
  return i;
}

long count_line(const TextFile& f, std::size_t i, const std::string& what) {
  const auto w = words(f.records[i]);
  long n = 0;
  if (w.size() != 1 || !to_int(w[0], n) || n <= 0)
    throw IoError(f.name, line_no(i), "expected " + what + ", found '" + f.records[i] + "'");
  return n;
}

// Record index of the line that opens section `$name` (name in column 1), or npos.
std::size_t orca_section(const TextFile& f, const std::string& name) {
  for (std::size_t i = 0; i < f.records.size(); ++i) {
    const auto w = words(f.records[i]);
    if (!w.empty() && f.records[i][0] == '$' && w[0] == name) return i;
  }
  return std::string::npos;
}

// Atomic number from an element label such as 'C', 'cl' or 'C12' (digits and what follows them
// ignored).
int label_number(const std::string& label) {
  std::string s;
  for (char c : label) {
    if (!std::isalpha(static_cast<unsigned char>(c))) break;
    s += c;
  }
  const std::string l = lower_ascii(s);
  if (l == "d" || l == "t") return 1;  // deuterium, tritium: the file gives their mass
  return atomic_number_of(s);
}

// A label that names no nucleus: Gaussian's and others' ghost atoms, ORCA's 'H:' notation.
bool ghost_label(const std::string& label) {
  const std::string l = lower_ascii(label);
  return l == "bq" || l == "x" || l == "gh" || l == "q" || (!l.empty() && l.back() == ':');
}

}  // namespace

double most_abundant_mass(int z) {
  return z >= 1 && z <= kIsotopeCount ? kIsotopeMass[z - 1] : 0.0;
}

std::string element_symbol(int z) {
  return z >= 1 && z <= kElementCount ? kElements[z - 1] : "X" + std::to_string(z);
}

int atomic_number_of(const std::string& symbol) {
  const std::string s = lower_ascii(symbol);
  for (int z = 1; z <= kElementCount; ++z)
    if (lower_ascii(kElements[z - 1]) == s) return z;
  return 0;
}

QcState parse_fchk(const TextFile& f) {
  std::map<std::string, std::vector<double>> arrays;
  std::map<std::string, std::pair<std::string, std::size_t>> scalars;
  std::map<std::string, std::size_t> where;
  std::size_t i = 2;  // the title and the job-type lines come first
  while (i < f.records.size()) {
    FchkLabel lab;
    if (!fchk_label(f.records[i], lab)) {
      ++i;  // data of an array not read (logical or Hollerith), or free text
      continue;
    }
    where[lab.name] = i;
    ++i;
    if (!lab.array) {
      scalars[lab.name] = {lab.scalar, i - 1};
    } else if ((lab.type == 'I' || lab.type == 'R') && wanted_array(lab.name)) {
      arrays[lab.name] = fchk_values(f, i, lab);
    } else if (lab.type == 'I' || lab.type == 'R' || lab.type == 'C') {
      const long per_line = lab.type == 'I' ? 6 : 5;
      i += static_cast<std::size_t>((lab.count + per_line - 1) / per_line);
    }
  }

  auto need = [&](const std::string& name) -> const std::vector<double>& {
    const auto it = arrays.find(name);
    if (it == arrays.end())
      throw IoError(f.name, 0, "expected the field '" + name + "' in the formatted checkpoint");
    return it->second;
  };
  auto check_count = [&](const std::string& name, std::size_t n, const std::string& meaning) {
    const auto it = arrays.find(name);
    if (it != arrays.end() && it->second.size() != n)
      throw IoError(f.name, line_no(where[name]),
                    "expected N= " + std::to_string(n) + " (" + meaning + ") for '" + name +
                        "', found N= " + std::to_string(it->second.size()));
  };

  QcState s;
  s.file = f.name;
  s.format = "Gaussian fchk";
  const auto& z = need("Atomic numbers");
  const std::size_t n = z.size(), n3 = 3 * n;
  if (n == 0) throw IoError(f.name, line_no(where["Atomic numbers"]), "expected at least one atom");
  for (double v : z) s.atomic_number.push_back(static_cast<int>(v));
  check_count("Real atomic weights", n, "one per atom");
  check_count("Current cartesian coordinates", n3, "3 x " + std::to_string(n) + " atoms");
  check_count("Cartesian Gradient", n3, "3 x " + std::to_string(n) + " atoms");
  check_count("Nonadiabatic coupling", n3, "3 x " + std::to_string(n) + " atoms");
  check_count("Cartesian Force Constants", n3 * (n3 + 1) / 2,
              "the lower triangle of " + std::to_string(n3) + " x " + std::to_string(n3));
  if (arrays.count("Real atomic weights")) {
    s.mass = arrays["Real atomic weights"];
  } else {
    // Q-Chem writes no masses: those of the most abundant isotopes, as it uses by default.
    for (std::size_t a = 0; a < n; ++a) {
      const double m = most_abundant_mass(s.atomic_number[a]);
      if (m == 0.0 && s.atomic_number[a] != 0)
        throw IoError(f.name, 0,
                      "expected 'Real atomic weights': no standard mass for atom " +
                          std::to_string(a + 1) + " (" + element_symbol(s.atomic_number[a]) + ")");
      s.mass.push_back(m);
    }
    s.mass_origin = "the most abundant isotopes' masses (the file gives none)";
  }
  for (std::size_t a = 0; a < n; ++a)
    if (s.atomic_number[a] == 0 || s.mass[a] == 0.0) s.ghosts.push_back(static_cast<int>(a) + 1);
  s.x = need("Current cartesian coordinates");
  if (arrays.count("Cartesian Gradient")) s.gradient = arrays["Cartesian Gradient"];
  // A frequency job without a coupling may still write the field, all zeros.
  if (arrays.count("Nonadiabatic coupling")) {
    const auto& d = arrays["Nonadiabatic coupling"];
    if (std::any_of(d.begin(), d.end(), [](double v) { return v != 0.0; }))
      s.nac = d;
    else
      s.nac_all_zero = true;
  }
  if (arrays.count("Cartesian Force Constants")) {
    // Row by row: (1,1), (2,1), (2,2), (3,1), ...
    const auto& fc = arrays["Cartesian Force Constants"];
    const int m = static_cast<int>(n3);
    s.hessian = Matrix<double>(m, m);
    std::size_t k = 0;
    for (int r = 1; r <= m; ++r)
      for (int c = 1; c <= r; ++c) s.hessian(r, c) = s.hessian(c, r) = fc[k++];
  }
  if (scalars.count("Total Energy")) {
    const auto& [text, at] = scalars["Total Energy"];
    if (!to_double(text, s.energy))
      throw IoError(f.name, line_no(at),
                    "expected a number for 'Total Energy', found '" + text + "'");
    s.has_energy = true;
  }
  long nmodes = 0;
  if (scalars.count("Number of Normal Modes") && arrays.count("Vib-E2") &&
      to_int(scalars["Number of Normal Modes"].first, nmodes) && nmodes > 0 &&
      static_cast<std::size_t>(nmodes) <= arrays["Vib-E2"].size())
    s.file_omega.assign(arrays["Vib-E2"].begin(), arrays["Vib-E2"].begin() + nmodes);
  return s;
}

// $atoms: the count, then 'symbol mass x y z' per atom (amu, bohr). $hessian: the dimension, then
// blocks of columns, each a line of 0-based column indices and one line per row: the row index
// and the values. $act_energy: the total energy, when not zero.
QcState parse_orca_hess(const TextFile& f) {
  QcState s;
  s.file = f.name;
  s.format = "ORCA hess";
  const std::size_t atoms = orca_section(f, "$atoms");
  if (atoms == std::string::npos)
    throw IoError(f.name, 0, "expected a section '$atoms' in the ORCA Hessian file");
  std::size_t i = next_nonblank(f, atoms + 1, "the number of atoms after '$atoms'");
  const long n = count_line(f, i, "the number of atoms after '$atoms'");
  for (long a = 0; a < n; ++a) {
    i = next_nonblank(f, i + 1, "atom " + std::to_string(a + 1) + " of '$atoms'");
    const auto w = words(f.records[i]);
    double m = 0, x[3] = {0, 0, 0};
    const bool ghost = !w.empty() && ghost_label(w[0]);
    const int z = w.empty() || ghost ? 0 : label_number(w[0]);
    if (w.size() != 5 || (z == 0 && !ghost) || !to_double(w[1], m) || !to_double(w[2], x[0]) ||
        !to_double(w[3], x[1]) || !to_double(w[4], x[2]))
      throw IoError(f.name, line_no(i),
                    "expected atom " + std::to_string(a + 1) +
                        " of '$atoms' as 'symbol mass x y z' (amu, bohr), found '" + f.records[i] +
                        "'");
    s.atomic_number.push_back(z);
    s.mass.push_back(m);
    s.x.insert(s.x.end(), x, x + 3);
    if (ghost || m == 0.0) s.ghosts.push_back(static_cast<int>(a) + 1);
  }

  const std::size_t hess = orca_section(f, "$hessian");
  if (hess == std::string::npos)
    throw IoError(f.name, 0, "expected a section '$hessian' in the ORCA Hessian file");
  i = next_nonblank(f, hess + 1, "the dimension after '$hessian'");
  const long dim = count_line(f, i, "the dimension after '$hessian'");
  if (dim != 3 * n)
    throw IoError(f.name, line_no(i),
                  "expected the dimension " + std::to_string(3 * n) + " (3 x " + std::to_string(n) +
                      " atoms of '$atoms') after '$hessian', found " + std::to_string(dim));
  const int m = static_cast<int>(dim);
  Matrix<double> h(m, m);
  int done = 0;
  while (done < m) {
    i = next_nonblank(f, i + 1, "a line of column indices of '$hessian'");
    const auto head = words(f.records[i]);
    std::vector<int> cols;
    for (const auto& w : head) {
      long c = 0;
      if (!to_int(w, c) || c != done + static_cast<long>(cols.size()) || c >= m)
        throw IoError(f.name, line_no(i),
                      "expected the column indices " + std::to_string(done) + ", " +
                          std::to_string(done + 1) + ", ... of '$hessian', found '" + f.records[i] +
                          "'");
      cols.push_back(static_cast<int>(c));
    }
    if (cols.empty())
      throw IoError(f.name, line_no(i), "expected a line of column indices of '$hessian'");
    for (int r = 0; r < m; ++r) {
      ++i;
      const std::string what = "row " + std::to_string(r) + " of the block of columns " +
                               std::to_string(cols.front()) + "-" + std::to_string(cols.back()) +
                               " of '$hessian'";
      if (i >= f.records.size())
        throw IoError(f.name, line_no(i), "expected " + what + " (end of file)");
      const auto w = words(f.records[i]);
      long idx = -1;
      bool ok = w.size() == cols.size() + 1 && to_int(w[0], idx) && idx == r;
      for (std::size_t c = 0; ok && c < cols.size(); ++c)
        ok = to_double(w[c + 1], h(r + 1, cols[c] + 1));
      if (!ok)
        throw IoError(f.name, line_no(i),
                      "expected " + what + ": the index " + std::to_string(r) + " and " +
                          std::to_string(cols.size()) + " numbers");
    }
    done += static_cast<int>(cols.size());
  }
  // The file holds the matrix slightly asymmetric; its symmetric part is the Hessian.
  s.hessian = Matrix<double>(m, m);
  for (int c = 1; c <= m; ++c)
    for (int r = 1; r <= m; ++r) {
      s.hessian(r, c) = 0.5 * (h(r, c) + h(c, r));
      s.hessian_asymmetry = std::max(s.hessian_asymmetry, std::fabs(h(r, c) - h(c, r)));
    }

  // $vibrational_frequencies: the count, then 'index value' (cm-1), translations and rotations
  // first as zeros; the file's own analysis when it holds one (a file written by hand may hold
  // zeros only).
  const std::size_t vf = orca_section(f, "$vibrational_frequencies");
  if (vf != std::string::npos) {
    i = next_nonblank(f, vf + 1, "the count after '$vibrational_frequencies'");
    const long count = count_line(f, i, "the count after '$vibrational_frequencies'");
    std::vector<double> w;
    for (long k = 0; k < count && i + 1 < f.records.size(); ++k) {
      const auto row = words(f.records[++i]);
      double v = 0.0;
      long idx = 0;
      if (row.size() != 2 || !to_int(row[0], idx) || idx != k || !to_double(row[1], v))
        throw IoError(f.name, line_no(i),
                      "expected row " + std::to_string(k) +
                          " of '$vibrational_frequencies': the index and a frequency");
      w.push_back(v);
    }
    if (static_cast<long>(w.size()) == 3 * n && n > 2 &&
        std::any_of(w.begin(), w.end(), [](double v) { return v != 0.0; }))
      s.file_omega.assign(w.begin() + 6, w.end());
  }

  const std::size_t e = orca_section(f, "$act_energy");
  if (e != std::string::npos) {
    i = next_nonblank(f, e + 1, "the energy after '$act_energy'");
    const auto w = words(f.records[i]);
    double v = 0.0;
    if (w.size() == 1 && to_double(w[0], v) && v != 0.0) {
      s.energy = v;
      s.has_energy = true;
    }
  }
  return s;
}

namespace {

// The state without the atoms listed (1-based): rows and columns of every per-atom quantity.
void drop_atoms(QcState& s, const std::vector<int>& atoms) {
  std::vector<int> keep;
  for (int a = 1; a <= s.natoms(); ++a)
    if (std::find(atoms.begin(), atoms.end(), a) == atoms.end()) keep.push_back(a - 1);
  auto per_atom = [&](std::vector<double>& v) {
    if (v.empty()) return;
    std::vector<double> out;
    for (int a : keep) out.insert(out.end(), v.begin() + 3 * a, v.begin() + 3 * a + 3);
    v = out;
  };
  std::vector<int> z;
  std::vector<double> m;
  for (int a : keep) {
    z.push_back(s.atomic_number[a]);
    m.push_back(s.mass[a]);
  }
  s.atomic_number = z;
  s.mass = m;
  per_atom(s.x);
  per_atom(s.gradient);
  per_atom(s.nac);
  const int k = 3 * static_cast<int>(keep.size());
  Matrix<double> h(k, k);
  for (int j = 0; j < k; ++j)
    for (int i = 0; i < k; ++i)
      h(i + 1, j + 1) = s.hessian(3 * keep[i / 3] + i % 3 + 1, 3 * keep[j / 3] + j % 3 + 1);
  s.hessian = h;
  s.file_omega.clear();  // computed with the ghosts' rows: not comparable
}

}  // namespace

QcState read_qc_state(const std::string& name, bool drop_ghosts) {
  const TextFile f = open_text_file(name);
  if (looks_like_fchk(f)) return checked_state(parse_fchk(f), drop_ghosts);
  if (looks_like_orca_hess(f)) return checked_state(parse_orca_hess(f), drop_ghosts);
  throw IoError(name, 0,
                "expected a Gaussian formatted checkpoint (.fchk) or an ORCA Hessian file "
                "(.hess)");
}

QcState checked_state(QcState s, bool drop_ghosts) {
  const std::string& name = s.file;
  if (s.hessian.empty())
    throw IoError(name, 0,
                  "expected 'Cartesian Force Constants': a frequency calculation (this file has "
                  "no second derivatives, an optimisation alone is not enough)");
  if (!s.ghosts.empty()) {
    std::string list;
    for (std::size_t i = 0; i < s.ghosts.size() && i < 12; ++i)
      list += (i ? ", " : "") + std::to_string(s.ghosts[i]);
    if (s.ghosts.size() > 12) list += ", ...";
    const bool one = s.ghosts.size() == 1;
    if (!drop_ghosts)
      throw IoError(name, 0,
                    (one ? "atom " + list + ": a ghost atom" : "atoms " + list + ": ghost atoms") +
                        " (no nucleus or mass 0, such as Bq), which ha" + (one ? "s" : "ve") +
                        " no vibrations; give --drop-ghosts to leave " + (one ? "it" : "them") +
                        " out");
    drop_atoms(s, s.ghosts);
  }
  if (s.natoms() == 0) throw IoError(name, 0, "expected a molecule: no atoms are left");
  if (s.natoms() == 1)
    throw IoError(name, 0,
                  "expected a molecule: a single atom (" + element_symbol(s.atomic_number[0]) +
                      ") has no vibrations");
  return s;
}

// The last block of couplings in the output, rows 'index symbol : x y z' (1/bohr), and the
// last 'CARTESIAN COORDINATES (A.U.)' block before it, rows 'index label Z fragment mass x y z'.
NacInput parse_orca_nac(const TextFile& f, int natoms, NacGeometry plain_at) {
  NacInput nac;
  nac.file = f.name;
  nac.at = NacGeometry::own;
  std::size_t head = std::string::npos, geom = std::string::npos;
  for (std::size_t i = 0; i < f.records.size(); ++i) {
    if (f.records[i].find("CARTESIAN NON-ADIABATIC COUPLINGS") != std::string::npos) head = i;
    if (head == std::string::npos &&
        f.records[i].find("CARTESIAN COORDINATES (A.U.)") != std::string::npos)
      geom = i;
  }
  if (head == std::string::npos)
    throw IoError(f.name, 0, "expected a block 'CARTESIAN NON-ADIABATIC COUPLINGS'");
  if (geom == std::string::npos && plain_at == NacGeometry::unknown)
    throw IoError(f.name, line_no(head),
                  "expected a block 'CARTESIAN COORDINATES (A.U.)' before the couplings (the "
                  "geometry at which they were computed), or --nac-geometry final|initial");

  // Reads `natoms` rows that begin with an index and a label and end in three numbers; lines
  // before the first row (rules, headings) are passed over.
  auto rows = [&](std::size_t i, const std::string& what, std::vector<double>& v,
                  std::vector<int>* z, std::size_t min_words) {
    int got = 0;
    for (++i; i < f.records.size() && got < natoms; ++i) {
      const auto w = words(f.records[i]);
      long idx = 0;
      double x[3];
      const bool row = w.size() >= min_words && to_int(w[0], idx) && label_number(w[1]) > 0 &&
                       to_double(w[w.size() - 3], x[0]) && to_double(w[w.size() - 2], x[1]) &&
                       to_double(w[w.size() - 1], x[2]);
      if (!row) {
        if (got == 0) continue;
        break;
      }
      v.insert(v.end(), x, x + 3);
      if (z) z->push_back(label_number(w[1]));
      ++got;
    }
    if (got != natoms)
      throw IoError(f.name, line_no(i),
                    "expected " + std::to_string(natoms) + " rows of " + what + ", found " +
                        std::to_string(got));
  };
  rows(head, "couplings 'index symbol : x y z'", nac.d, &nac.atomic_number, 5);
  if (geom == std::string::npos)
    nac.at = plain_at;  // the block alone, cut out of its output
  else
    rows(geom, "coordinates 'index label Z fragment mass x y z'", nac.x, nullptr, 6);
  return nac;
}

NacInput parse_plain_nac(const TextFile& f, int natoms) {
  NacInput nac;
  nac.file = f.name;
  for (std::size_t i = 0; i < f.records.size(); ++i) {
    const auto w = words(f.records[i]);
    if (w.empty() || w[0][0] == '#' || w[0][0] == '!') continue;
    double x[3];
    if (w.size() != 3 || !to_double(w[0], x[0]) || !to_double(w[1], x[1]) || !to_double(w[2], x[2]))
      throw IoError(f.name, line_no(i),
                    "expected three numbers 'x y z' (the coupling of one atom, 1/bohr), found '" +
                        f.records[i] + "'");
    if (static_cast<int>(nac.d.size()) == 3 * natoms)
      throw IoError(
          f.name, line_no(i),
          "expected " + std::to_string(natoms) + " lines, one per atom, but there are more");
    nac.d.insert(nac.d.end(), x, x + 3);
  }
  if (static_cast<int>(nac.d.size()) != 3 * natoms)
    throw IoError(f.name, 0,
                  "expected " + std::to_string(natoms) + " lines 'x y z', one per atom, found " +
                      std::to_string(nac.d.size() / 3));
  return nac;
}

NacInput read_nac_file(const std::string& name, int natoms, NacGeometry plain_at) {
  const TextFile f = open_text_file(name);
  if (looks_like_fchk(f)) {
    const QcState s = parse_fchk(f);
    if (s.nac.empty())
      throw IoError(name, 0,
                    s.nac_all_zero ? "the field 'Nonadiabatic coupling' is all zeros (written "
                                     "by a job that did not compute the coupling)"
                                   : "expected the field 'Nonadiabatic coupling' in the "
                                     "formatted checkpoint");
    if (s.natoms() != natoms)
      throw IoError(
          name, 0,
          "expected " + std::to_string(natoms) + " atoms, found " + std::to_string(s.natoms()));
    NacInput nac;
    nac.file = name;
    nac.d = s.nac;
    nac.at = NacGeometry::own;
    nac.x = s.x;
    nac.atomic_number = s.atomic_number;
    return nac;
  }
  if (looks_like_orca_nac(f)) return parse_orca_nac(f, natoms, plain_at);
  if (plain_at == NacGeometry::unknown)
    throw IoError(name, 0,
                  "expected --nac-geometry final|initial with a plain list of couplings (it does "
                  "not say at which geometry it was computed)");
  NacInput nac = parse_plain_nac(f, natoms);
  nac.at = plain_at;
  return nac;
}

}  // namespace ictvcf
