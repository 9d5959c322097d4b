#include "prepare/gradient_file.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

#include "util/errors.h"

namespace ictvcf {

namespace {

bool blank_or_comment(const std::string& rec) {
  for (char c : rec) {
    if (c == '#') return true;
    if (!std::isspace(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

bool looks_like_engrad(const TextFile& f) {
  for (std::size_t i = 0; i < std::min<std::size_t>(f.records.size(), 4); ++i)
    if (f.records[i].rfind("#", 0) == 0 &&
        f.records[i].find("Number of atoms") != std::string::npos)
      return true;
  return false;
}

// The numbers of the next record that is neither blank nor a comment, from record i on.
std::vector<double> numbers(const TextFile& f, std::size_t& i, const std::string& what) {
  while (i < f.records.size() && blank_or_comment(f.records[i])) ++i;
  if (i >= f.records.size())
    throw IoError(f.name, static_cast<long>(i) + 1, "expected " + what + " (end of file)");
  std::vector<double> v;
  const char* p = f.records[i].c_str();
  for (;;) {
    while (std::isspace(static_cast<unsigned char>(*p))) ++p;
    if (!*p) break;
    char* end = nullptr;
    const double x = std::strtod(p, &end);
    if (end == p || !std::isfinite(x) || (*end && !std::isspace(static_cast<unsigned char>(*end))))
      throw IoError(f.name, static_cast<long>(i) + 1,
                    "expected " + what + ", found '" + f.records[i] + "'");
    v.push_back(x);
    p = end;
  }
  ++i;
  return v;
}

}  // namespace

QcState parse_orca_engrad(const TextFile& f) {
  QcState s;
  s.file = f.name;
  s.format = "ORCA engrad";
  std::size_t i = 0;
  const std::vector<double> n = numbers(f, i, "the number of atoms");
  if (n.size() != 1 || n[0] < 1 || n[0] != std::floor(n[0]))
    throw IoError(f.name, static_cast<long>(i), "expected the number of atoms alone on its line");
  const int natoms = static_cast<int>(n[0]);
  const std::vector<double> e = numbers(f, i, "the total energy");
  if (e.size() != 1)
    throw IoError(f.name, static_cast<long>(i), "expected the total energy alone on its line");
  s.energy = e[0];
  s.has_energy = true;
  for (int k = 0; k < 3 * natoms; ++k) {
    const std::string what = "gradient component " + std::to_string(k + 1) + " of " +
                             std::to_string(3 * natoms) + " (hartree/bohr), one a line";
    const std::vector<double> g = numbers(f, i, what);
    if (g.size() != 1) throw IoError(f.name, static_cast<long>(i), "expected " + what);
    s.gradient.push_back(g[0]);
  }
  for (int a = 0; a < natoms; ++a) {
    const std::string what = "atom " + std::to_string(a + 1) + " as 'Z x y z' (bohr)";
    const std::vector<double> r = numbers(f, i, what);
    if (r.size() != 4 || r[0] < 1 || r[0] > 118 || r[0] != std::floor(r[0]))
      throw IoError(f.name, static_cast<long>(i), "expected " + what);
    s.atomic_number.push_back(static_cast<int>(r[0]));
    s.x.insert(s.x.end(), r.begin() + 1, r.end());
  }
  return s;
}

QcState read_gradient_state(const std::string& name, const QcState& fin) {
  const TextFile f = open_text_file(name);
  QcState s;
  if (looks_like_engrad(f)) {
    s = parse_orca_engrad(f);
    if (s.natoms() == fin.natoms() && s.atomic_number == fin.atomic_number) s.mass = fin.mass;
  } else if (f.records.size() > 2 && f.records[2].rfind("Number of atoms", 0) == 0) {
    s = parse_fchk(f);
  } else if (std::any_of(f.records.begin(), f.records.end(),
                         [](const std::string& r) { return r.rfind("$hessian", 0) == 0; })) {
    s = parse_orca_hess(f);  // no gradient: refused below
  } else {
    throw IoError(name, 0,
                  "expected an ORCA gradient file (.engrad) or a Gaussian formatted checkpoint "
                  "(.fchk) with the initial state's gradient");
  }
  if (std::all_of(s.gradient.begin(), s.gradient.end(), [](double g) { return g == 0.0; }))
    throw IoError(name, 0,
                  "expected the initial state's gradient at the final geometry ('Cartesian "
                  "Gradient' not all zeros, or an ORCA .engrad file): this file has none");
  return s;
}

}  // namespace ictvcf
