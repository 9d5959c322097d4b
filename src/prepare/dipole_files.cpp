#include "prepare/dipole_files.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

// The array field `name` of a formatted checkpoint: its label line 'name  R|I  N= count' and
// the count values on the lines after it (whitespace-separated). Empty when there is none; the
// index of its label line in `line`.
std::vector<double> fchk_array(const TextFile& f, const std::string& name, std::size_t& line) {
  for (std::size_t i = 0; i < f.records.size(); ++i) {
    const std::string& rec = f.records[i];
    if (rec.rfind(name, 0) != 0 || rec.size() < 44 ||
        !is_blank(rec.substr(name.size(), 40 - name.size())))
      continue;
    const std::vector<std::string> w = split_words(rec.substr(40));
    char* end = nullptr;
    const long count = w.size() == 3 ? std::strtol(w[2].c_str(), &end, 10) : -1;
    if (w.size() != 3 || w[1] != "N=" || *end != '\0' || count < 0)
      throw IoError(f.name, static_cast<long>(i) + 1,
                    "expected an array after '" + name + "' (N= and a count)");
    std::vector<double> v;
    for (std::size_t j = i + 1; j < f.records.size() && static_cast<long>(v.size()) < count; ++j)
      for (const std::string& t : split_words(f.records[j])) {
        double x = 0.0;
        if (!finite_number(t, x))
          throw IoError(f.name, static_cast<long>(j) + 1,
                        "expected the values of '" + name + "', found '" + t + "'");
        v.push_back(x);
      }
    if (static_cast<long>(v.size()) < count)
      throw IoError(f.name, static_cast<long>(f.records.size()),
                    "expected " + std::to_string(count) + " values of '" + name + "'");
    line = i;
    return v;
  }
  return {};
}

bool looks_like_fchk(const TextFile& f) {
  for (std::size_t i = 0; i < std::min<std::size_t>(f.records.size(), 10); ++i)
    if (f.records[i].rfind("Number of atoms", 0) == 0) return true;
  return false;
}

}  // namespace

QcDipole parse_fchk_dipole(const TextFile& f, int root) {
  QcDipole d;
  d.file = f.name;
  d.root = root;
  std::size_t at = 0, at_values = 0;
  const std::vector<double> scalars = fchk_array(f, "ETran scalars", at);
  const std::vector<double> values = fchk_array(f, "ETran state values", at_values);
  if (scalars.size() < 2 || values.empty())
    throw IoError(f.name, 0,
                  "expected the fields 'ETran scalars' and 'ETran state values' of a TD job "
                  "(the transition dipoles)");
  d.roots = static_cast<int>(scalars[0]);
  const int per = static_cast<int>(scalars[1]);
  if (per < 4 || d.roots < 1 || values.size() < static_cast<std::size_t>(d.roots * per))
    throw IoError(
        f.name, static_cast<long>(at_values) + 1,
        printed("expected %d states of %d values each in 'ETran state values'", d.roots, per));
  if (root < 1 || root > d.roots)
    throw IoError(f.name, static_cast<long>(at_values) + 1,
                  printed("expected excited state %d, but the file holds %d", root, d.roots));
  const std::size_t first = static_cast<std::size_t>((root - 1) * per);
  d.has_energy = true;
  d.energy = values[first];
  for (int c = 0; c < 3; ++c) d.mu0[c] = values[first + 1 + c];
  std::size_t at_x = 0;
  d.x = fchk_array(f, "Current cartesian coordinates", at_x);
  const std::size_t n3 = d.x.size(), rest = values.size() - static_cast<std::size_t>(d.roots * per);
  if (n3 > 0 && rest >= n3 * static_cast<std::size_t>(per)) {
    d.dmu_dx.resize(3 * n3);
    const std::size_t base = static_cast<std::size_t>(d.roots * per);
    for (std::size_t i = 0; i < n3; ++i)
      for (int c = 0; c < 3; ++c) d.dmu_dx[3 * i + c] = values[base + i * per + 1 + c];
  }
  d.source = printed("'ETran state values', excited state %d of %d%s", root, d.roots,
                     d.dmu_dx.empty() ? "" : ", with its derivatives (TD frequency job)");
  return d;
}

QcDipole parse_orca_dipole(const TextFile& f, int root) {
  QcDipole d;
  d.file = f.name;
  d.root = root;
  const std::string title = "ABSORPTION SPECTRUM VIA TRANSITION ELECTRIC DIPOLE MOMENTS";
  std::size_t table = f.records.size();
  for (std::size_t i = 0; i < f.records.size(); ++i)
    if (f.records[i].find(title) != std::string::npos) table = i;
  if (table == f.records.size())
    throw IoError(f.name, 0, "expected the table '" + title + "' of an excited-state job");
  // Past the title: a dashed line, two heading lines, a dashed line, then one row per state up
  // to a blank or dashed line.
  std::size_t i = table + 1, dashes = 0;
  while (i < f.records.size() && dashes < 2) {
    if (ltrim(f.records[i]).rfind("---", 0) == 0) ++dashes;
    ++i;
  }
  bool found = false;
  for (; i < f.records.size(); ++i) {
    const std::vector<std::string> w = split_words(f.records[i]);
    if (w.empty() || w[0].rfind("---", 0) == 0) break;
    ++d.roots;
    // The state: the first word (ORCA 5), or the word after '->' up to its '-' (ORCA 6).
    int state = 0;
    std::size_t arrow = 0;
    while (arrow < w.size() && w[arrow] != "->") ++arrow;
    try {
      state = arrow + 1 < w.size() ? std::stoi(w[arrow + 1]) : std::stoi(w[0]);
    } catch (const std::exception&) {
      throw IoError(
          f.name, static_cast<long>(i) + 1,
          "expected a row of the table, found '" + std::string(rtrim(f.records[i])) + "'");
    }
    if (state != root) continue;
    if (w.size() < 4 || !finite_number(w[w.size() - 3], d.mu0[0]) ||
        !finite_number(w[w.size() - 2], d.mu0[1]) || !finite_number(w[w.size() - 1], d.mu0[2]))
      throw IoError(f.name, static_cast<long>(i) + 1,
                    "expected the dipole x y z (au) in the last three columns");
    found = true;
  }
  if (!found)
    throw IoError(f.name, static_cast<long>(table) + 1,
                  printed("expected excited state %d in the table, which lists %d", root, d.roots));
  d.source = printed("the last table of transition electric dipoles, excited state %d of %d", root,
                     d.roots);
  return d;
}

QcDipole read_transition_dipole(const std::string& name, int root) {
  const TextFile f = open_text_file(name);
  return looks_like_fchk(f) ? parse_fchk_dipole(f, root) : parse_orca_dipole(f, root);
}

std::vector<std::array<double, 3>> dipole_along_modes(const std::vector<double>& dmu_dx,
                                                      const std::vector<double>& mass,
                                                      const Matrix<double>& l1) {
  std::vector<std::array<double, 3>> m(static_cast<std::size_t>(l1.cols), {0.0, 0.0, 0.0});
  for (int k = 1; k <= l1.cols; ++k)
    for (int i = 1; i <= l1.rows; ++i) {
      const double w = l1(i, k) / std::sqrt(mass[static_cast<std::size_t>(i - 1)]);
      for (int c = 0; c < 3; ++c)
        m[k - 1][c] += w * dmu_dx[3 * static_cast<std::size_t>(i - 1) + c];
    }
  return m;
}

std::string dipole_text(const std::string& comment, const std::array<double, 3>& mu0,
                        const std::vector<int>& modes,
                        const std::vector<std::array<double, 3>>& m) {
  std::string s = "# " + comment + "\n";
  s += "# mode 0: the transition dipole (au) at the final state's minimum; mode k: d mu / d Q1k\n";
  s += "# (au per sqrt(me) bohr) along the final state's mass-weighted normal coordinates\n";
  s += printed("%6d %24.16e %24.16e %24.16e\n", 0, mu0[0], mu0[1], mu0[2]);
  for (std::size_t i = 0; i < modes.size(); ++i)
    if (m[i][0] != 0.0 || m[i][1] != 0.0 || m[i][2] != 0.0)
      s += printed("%6d %24.16e %24.16e %24.16e\n", modes[i], m[i][0], m[i][1], m[i][2]);
  return s;
}

}  // namespace ictvcf
