#include "prepare/command.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <set>
#include <stdexcept>

#include "prepare/atom_order.h"
#include "prepare/dipole_files.h"
#include "prepare/gradient_file.h"
#include "prepare/model_summary.h"
#include "prepare/models.h"
#include "prepare/modes.h"
#include "prepare/qc_files.h"
#include "prepare/run_files.h"
#include "prepare/soc_files.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

const char* const kPrepareUsage =
    "usage: ictvcf prepare FINAL INITIAL [--nac FILE] [--nac-geometry final|initial]\n"
    "                      [--nac-unit bohr|angstrom] [--ead VALUE eV|cm-1|au]\n"
    "                      [--temp K] [--fwhm VALUE cm-1|eV|au] [--out DIR] [--force]\n"
    "                      [--keep-order] [--drop-ghosts]\n"
    "                      [--coordinates cartesian|internal] [--model ah|vh|vg]\n"
    "                      [--gradient FILE] [--drop-below FREQ cm-1]\n"
    "                      [--dipole-from FILE] [--dipole-root N]\n"
    "                      [--soc-from FILE TRIPLET SINGLET]\n";

constexpr double kFwhmCm = 200.0;  // Gaussian broadening written for the rate, cm-1
constexpr double kTemp = 300.0;

const char* const kHelp =
    "\n"
    "Writes dushin.dat, nacme.dat and ic.inp (in DIR, default the working directory) for\n"
    "'ictvcf ic.inp' and 'ictvcf rate ic.inp' from two frequency calculations: FINAL of the\n"
    "lower (final) electronic state, state 1 of the run, and INITIAL of the upper (initial)\n"
    "state, state 2. Each is a Gaussian or Q-Chem formatted checkpoint (.fchk) or an ORCA\n"
    "Hessian file (.hess). The non-adiabatic coupling is the 'Nonadiabatic coupling' of\n"
    "INITIAL's (or FINAL's) checkpoint, or --nac FILE: a checkpoint, an ORCA output with the\n"
    "CARTESIAN NON-ADIABATIC COUPLINGS block (with the coordinates before it, or the block alone\n"
    "and --nac-geometry), or N lines 'x y z' computed at the geometry that --nac-geometry names,\n"
    "in 1/bohr (--nac-unit angstrom for 1/angstrom). INITIAL's atoms of one element are\n"
    "renumbered to match FINAL's where that brings the geometries closer (--keep-order takes\n"
    "them as numbered). ead is the difference of the files' total energies unless --ead is\n"
    "given; --temp (default 300 K) and --fwhm (default 200 cm-1, Gaussian) set the input's\n"
    "temperature and broadening. Files already in DIR are replaced only with --force.\n"
    "--coordinates measures the displacement between the minima along the straight Cartesian\n"
    "chord (default) or along curvilinear internal coordinates; --model vg or vh takes INITIAL's\n"
    "gradient at FINAL's geometry instead of INITIAL's own minimum (with vh, --gradient FILE\n"
    "gives it where INITIAL holds none, as an ORCA .hess); --drop-below removes the\n"
    "displacement of state 1's modes below FREQ. dipole.dat (for 'ictvcf rate --radiative') is\n"
    "written when INITIAL's checkpoint, or --dipole-from FILE (a TD checkpoint or an ORCA\n"
    "output), holds a transition dipole; --dipole-root N picks the excited state (default 1).\n"
    "--soc-from FILE T S reads <T|H_SO|S> from an ORCA output for 'ictvcf rate --isc' (the pair\n"
    "is then a singlet and a triplet: no coupling needed, a gap of either sign).\n"
    "See README.md.\n";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::string final_file, initial_file, nac_file, gradient_file, out_dir = ".";
  NacGeometry nac_at = NacGeometry::unknown;
  bool has_ead = false;
  double ead = 0.0;  // hartree
  std::string ead_text;
  double nac_unit = 1.0;  // bohr per unit of length of the coupling file
  std::string nac_unit_name = "bohr";
  double temp = kTemp;
  double fwhm = kFwhmCm / au2cm;  // hartree
  bool force = false, keep_order = false, drop_ghosts = false;
  ModelOptions model;
  std::string dipole_file;  // --dipole-from; empty: INITIAL's checkpoint, if it holds one
  int dipole_root = 1;
  std::string soc_file;  // --soc-from FILE T S
  int soc_triplet = 1, soc_singlet = 0;
};

double energy_unit(const std::string& word, const char* option) {
  const std::string u = lower_ascii(word);
  if (u == "ev") return 1.0 / au2ev;
  if (u == "mev") return 1e-3 / au2ev;
  if (u == "cm-1") return 1.0 / au2cm;
  if (u == "au" || u == "a.u." || u == "hartree") return 1.0;
  throw UsageError("expected the unit of " + std::string(option) +
                   " (eV, meV, cm-1 or au), found '" + word + "'");
}

double number_of(const std::string& v, const std::string& option) {
  char* end = nullptr;
  const double x = std::strtod(v.c_str(), &end);
  if (v.empty() || end != v.c_str() + v.size() || !std::isfinite(x))
    throw UsageError("expected a number after " + option + ", found '" + v + "'");
  return x;
}

Options parse(const std::vector<std::string>& args) {
  Options o;
  std::vector<std::string> files;
  std::set<std::string> seen;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](const char* what) -> const std::string& {
      if (i + 1 >= args.size()) throw UsageError("expected " + std::string(what) + " after " + a);
      return args[++i];
    };
    if (a.size() > 1 && a[0] == '-' && !seen.insert(a).second)
      throw UsageError(a + " is given twice: which one is meant?");
    if (a == "--nac") {
      o.nac_file = value("a file name");
    } else if (a == "--nac-geometry") {
      const std::string& g = value("final or initial");
      if (g == "final")
        o.nac_at = NacGeometry::final_state;
      else if (g == "initial")
        o.nac_at = NacGeometry::initial_state;
      else
        throw UsageError("expected final or initial after --nac-geometry, found '" + g + "'");
    } else if (a == "--nac-unit") {
      const std::string& u = value("bohr or angstrom");
      if (u == "bohr") {
        o.nac_unit = 1.0;
      } else if (u == "angstrom") {
        o.nac_unit = bohr_in_angstrom;  // d/dx in 1/angstrom times angstrom per bohr
      } else {
        throw UsageError("expected bohr or angstrom after --nac-unit, found '" + u + "'");
      }
      o.nac_unit_name = u;
    } else if (a == "--ead") {
      const std::string& v = value("a value and a unit");
      const std::string& unit = value("a unit (eV, cm-1 or au)");
      o.ead = number_of(v, a) * energy_unit(unit, "--ead");
      o.has_ead = true;
      o.ead_text = v + " " + unit;
    } else if (a == "--fwhm") {
      const std::string& v = value("a value and a unit");
      const std::string& unit = value("a unit (cm-1, eV or au)");
      o.fwhm = number_of(v, a) * energy_unit(unit, "--fwhm");
      if (!(o.fwhm > 0.0)) throw UsageError("expected a width above 0 after --fwhm, found " + v);
    } else if (a == "--temp") {
      const std::string& v = value("a temperature in K");
      o.temp = number_of(v, a);
      if (!(o.temp >= 0.0)) throw UsageError("expected a temperature of 0 K or more, found " + v);
    } else if (a == "--coordinates") {
      const std::string& c = value("cartesian or internal");
      if (c != "cartesian" && c != "internal")
        throw UsageError("expected cartesian or internal after --coordinates, found '" + c + "'");
      o.model.coordinates = c == "internal" ? Coordinates::internal : Coordinates::cartesian;
    } else if (a == "--model") {
      const std::string& m = value("ah, vh or vg");
      if (m != "ah" && m != "vh" && m != "vg")
        throw UsageError("expected ah, vh or vg after --model, found '" + m + "'");
      o.model.model = m == "ah" ? Model::ah : m == "vh" ? Model::vh : Model::vg;
    } else if (a == "--drop-below") {
      const std::string& v = value("a frequency and cm-1");
      const std::string& unit = value("the unit cm-1");
      char* end = nullptr;
      const double x = std::strtod(v.c_str(), &end);
      if (v.empty() || end != v.c_str() + v.size() || !(x > 0))
        throw UsageError("expected a positive frequency after --drop-below, found '" + v + "'");
      if (lower_ascii(unit) != "cm-1")
        throw UsageError("expected the unit cm-1 after --drop-below " + v + ", found '" + unit +
                         "'");
      o.model.drop_below = x / au2cm;
    } else if (a == "--soc-from") {
      o.soc_file = value("an ORCA output, a triplet and a singlet");
      for (int* root : {&o.soc_triplet, &o.soc_singlet}) {
        const std::string& v = value(root == &o.soc_triplet ? "the triplet's number (1, 2, ...)"
                                                            : "the singlet's number (0, 1, ...)");
        const double x = number_of(v, a);
        if (!(x >= 0) || x != std::floor(x) || x > 1e6)
          throw UsageError("expected a root's number after --soc-from FILE, found '" + v + "'");
        *root = static_cast<int>(x);
      }
    } else if (a == "--dipole-from") {
      o.dipole_file = value("a file name");
    } else if (a == "--dipole-root") {
      const std::string& v = value("an excited state's number");
      const double x = number_of(v, a);
      if (!(x >= 1) || x != std::floor(x) || x > 1e6)
        throw UsageError(
            "expected an excited state's number (1, 2, ...) after --dipole-root, "
            "found '" +
            v + "'");
      o.dipole_root = static_cast<int>(x);
    } else if (a == "--gradient") {
      o.gradient_file = value("a file with INITIAL's gradient");
    } else if (a == "--out") {
      o.out_dir = value("a directory");
    } else if (a == "--force") {
      o.force = true;
    } else if (a == "--keep-order") {
      o.keep_order = true;
    } else if (a == "--drop-ghosts") {
      o.drop_ghosts = true;
    } else if (a.size() > 1 && a[0] == '-') {
      throw UsageError("unknown option '" + a + "'");
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2)
    throw UsageError("expected two files, FINAL and INITIAL, found " +
                     std::to_string(files.size()));
  if (o.nac_file.empty() && (seen.count("--nac-geometry") || seen.count("--nac-unit")))
    throw UsageError(std::string(seen.count("--nac-geometry") ? "--nac-geometry" : "--nac-unit") +
                     " describes the file of --nac, which is not given");
  if (!o.gradient_file.empty() && o.model.model != Model::vh)
    throw UsageError(
        "--gradient gives INITIAL's gradient for --model vh (with vg, INITIAL is the gradient "
        "file itself)");
  if (o.model.model != Model::ah && o.model.coordinates == Coordinates::internal)
    throw UsageError(
        "expected --coordinates cartesian with --model vh or vg (both states are "
        "expanded about one geometry)");
  o.final_file = files[0];
  o.initial_file = files[1];
  return o;
}

std::string cm(double hartree) { return printed("%.2f", hartree * au2cm); }

std::vector<std::string> warnings(const PrepareResult& r, const QcState* st[2], const NacInput& nac,
                                  double ead) {
  std::vector<std::string> w;
  const NormalModes* modes[2] = {&r.modes1, &r.modes2};
  for (int s = 0; s < 2; ++s) {
    const std::string& file = st[s]->file;
    std::string imag;
    int count = 0;
    for (int k = 7; k <= r.n3; ++k)
      if (modes[s]->omega[k - 1] < 0) {
        if (count < 6) imag += (count ? ", " : "") + cm(modes[s]->omega[k - 1]);
        if (count == 6) imag += ", ...";
        ++count;
      }
    if (count)
      w.push_back(
          printed("%s: %d imaginary frequenc%s (%s cm-1), written negative: the "
                  "geometry is not a minimum",
                  file.c_str(), count, count == 1 ? "y" : "ies", imag.c_str()));
    const auto& c = r.state[s];
    double dmax = 0.0;
    for (int k = 7; k <= r.n3; ++k) dmax = std::max(dmax, std::fabs((s == 0 ? r.d1 : r.d2)[k - 1]));
    if (c.grad_max > 1e-4)
      w.push_back(
          printed("%s: a gradient of %.2e hartree/bohr (atom %d): the geometry is not "
                  "quite at the minimum; along %s the minimum lies %.3g "
                  "sqrt(me)*bohr away, compare |D| up to %.3g",
                  file.c_str(), c.grad_max, c.grad_atom, mode_name(c.shift_mode, *modes[s]).c_str(),
                  c.shift, dmax));
    if (c.omega_dev > 1.0)
      w.push_back(printed("%s: the frequencies differ from the file's own by up to %.3g cm-1",
                          file.c_str(), c.omega_dev));
  }
  if (r.max_mass_change > 1e-6)
    w.push_back(printed(
        "the masses of %s differ from those of %s (by up to %.2g %%); %s's are "
        "used for both",
        st[1]->file.c_str(), st[0]->file.c_str(), 100.0 * r.max_mass_change, st[0]->file.c_str()));
  if (r.min_singular < 0.99 || r.leak > 0.05)
    w.push_back(
        printed("a large-amplitude change between the states: the vibrational block of "
                "the Duschinsky matrix has a smallest singular value of %.4f and up to "
                "%.1f %% of a mode's weight (in %s) in translations and rotations; the "
                "Cartesian harmonic model is poor for this pair",
                r.min_singular, 100.0 * r.leak, mode_name(r.leak_mode, r.modes1).c_str()));
  if (r.nac_external > 0.05)
    w.push_back(
        printed("%s: %.1f %% of the coupling vector lies in translations and rotations "
                "(removed)",
                nac.file.c_str(), 100.0 * r.nac_external));
  if (r.nac_sum > 0.05)
    w.push_back(
        printed("%s: the coupling summed over the atoms is %.1f %% of the sum of its "
                "lengths, not near zero",
                nac.file.c_str(), 100.0 * r.nac_sum));
  if (std::min(r.nac_to_final, r.nac_to_initial) > 0.05)
    w.push_back(
        printed("%s: the coupling was computed %.3f bohr (rms) from the final and %.3f "
                "bohr from the initial geometry",
                nac.file.c_str(), r.nac_to_final, r.nac_to_initial));
  if (ead <= 0.0)
    w.push_back(printed("ead = %.6g eV: the initial state does not lie above the final state",
                        ead * au2ev));
  return w;
}

// The value of `name = value` in an input file's block (quotes and comments removed), or "".
std::string block_value(const std::string& file, const std::string& name) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    line = line.substr(0, line.find('!'));
    const std::string l = lower_ascii(line);
    const std::size_t at = l.find(name);
    if (at == std::string::npos || (at > 0 && std::isalnum(static_cast<unsigned char>(l[at - 1]))))
      continue;
    const std::size_t eq = l.find_first_not_of(" \t", at + name.size());
    if (eq == std::string::npos || l[eq] != '=') continue;
    const std::string v(ltrim(line.substr(eq + 1)));
    if (!v.empty() && (v[0] == '\'' || v[0] == '"')) return v.substr(1, v.find(v[0], 1) - 1);
    return v.substr(0, v.find_first_of(" \t,/"));
  }
  return "";
}

// The files of DIR that `ictvcf` and `ictvcf rate` wrote for the input `inp` there: its log, its
// table and the files named after the table.
std::vector<std::string> results_of(const std::filesystem::path& dir, const std::string& inp) {
  std::vector<std::string> out;
  const std::string log = block_value(inp, "logfile"), table = block_value(inp, "ftfile");
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
    const std::string name = e.path().filename().string();
    if ((!log.empty() && name == log) ||
        (!table.empty() && (name == table || name.rfind(table + ".", 0) == 0)))
      out.push_back((dir / name).string());
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::string joined(const std::vector<std::string>& v) {
  std::string s;
  for (const auto& x : v) s += (s.empty() ? "" : ", ") + x;
  return s;
}

// Renumbers a coupling given at its own geometry (another file's numbering) onto the final state's.
void match_coupling(NacInput& nac, const QcState& fin, bool keep_order,
                    std::vector<std::string>& notes) {
  if (nac.at != NacGeometry::own || nac.atomic_number.size() != fin.atomic_number.size()) return;
  std::multiset<int> a(fin.atomic_number.begin(), fin.atomic_number.end()),
      b(nac.atomic_number.begin(), nac.atomic_number.end());
  if (a != b || keep_order) return;  // the order is checked, and named, when it is used
  const AtomMatch m = match_atoms(fin.mass, fin.atomic_number, fin.x, nac.atomic_number, nac.x);
  if (!m.renumbered()) return;
  nac.d = renumbered(nac.d, m.order);
  nac.x = renumbered(nac.x, m.order);
  std::vector<int> z(m.order.size());
  for (std::size_t i = 0; i < z.size(); ++i) z[i] = nac.atomic_number[m.order[i]];
  nac.atomic_number = z;
  notes.push_back(nac.file + "'s atoms renumbered to " + fin.file +
                  "'s: " + describe_order(m.order, fin.atomic_number));
}

// The transition dipole in the final state's frame and along its modes, for dipole.dat.
struct PreparedDipole {
  QcDipole d;
  std::vector<int> modes;  // the coupling file's numbering, 7 .. 3N
  std::vector<std::array<double, 3>> m;
  std::string line;  // for the summary
};

std::optional<PreparedDipole> prepare_dipole(const Options& o, const QcState& ini,
                                             const std::vector<int>& ini_order,
                                             const PrepareResult& r) {
  PreparedDipole p;
  if (!o.dipole_file.empty()) {
    p.d = read_transition_dipole(o.dipole_file, o.dipole_root);
  } else {
    try {  // a TD job's checkpoint as INITIAL holds its dipole
      p.d = read_transition_dipole(ini.file, o.dipole_root);
    } catch (const IoError&) {
      return std::nullopt;
    }
  }
  QcDipole& d = p.d;
  const int n = r.natoms;
  std::string where = "in " + ini.file + "'s frame (the file gives no geometry)";
  std::array<double, 3> mu = d.mu0;
  std::vector<double> g = d.dmu_dx;
  Matrix<double> rot(3, 3);
  for (int i = 1; i <= 3; ++i) rot(i, i) = 1.0;
  if (static_cast<int>(d.x.size()) == 3 * n) {
    // Numbered as INITIAL's file when it is that file; turned onto the final state's frame.
    std::vector<double> x = d.x;
    if (d.file == ini.file && !ini_order.empty()) {
      x = renumbered(x, ini_order);
      if (!g.empty()) {
        std::vector<double> h(g.size());
        for (int a = 0; a < n; ++a)
          for (int k = 0; k < 9; ++k) h[9 * a + k] = g[9 * ini_order[a] + k];
        g = h;
      }
    }
    double c[3] = {0, 0, 0}, total = 0;
    for (int a = 0; a < n; ++a) {
      total += r.mass[a];
      for (int k = 0; k < 3; ++k) c[k] += r.mass[a] * x[3 * a + k];
    }
    for (int a = 0; a < n; ++a)
      for (int k = 0; k < 3; ++k) x[3 * a + k] -= c[k] / total;
    rot = best_rotation(r.mass, r.x1, x);
    std::vector<double> xr(3 * n, 0.0);
    double to1 = 0.0, to2 = 0.0;
    for (int a = 0; a < n; ++a)
      for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k) xr[3 * a + i] += rot(i + 1, k + 1) * x[3 * a + k];
        to1 += std::pow(xr[3 * a + i] - r.x1[3 * a + i], 2);
        to2 += std::pow(xr[3 * a + i] - r.x2[3 * a + i], 2);
      }
    where = printed("at its own geometry, %.4f bohr (rms) from the final and %.4f from the initial",
                    std::sqrt(to1 / n), std::sqrt(to2 / n));
  } else if (!ini.file.empty()) {
    rot = r.rotation;  // taken to be in INITIAL's frame
  }
  for (int i = 0; i < 3; ++i) {
    mu[i] = 0.0;
    for (int k = 0; k < 3; ++k) mu[i] += rot(i + 1, k + 1) * d.mu0[k];
  }
  if (!g.empty() && static_cast<int>(g.size()) == 9 * n) {
    // d mu'_c / d x'_j = sum R_ca (d mu_a / d x_b) R_jb, per atom
    std::vector<double> gr(g.size(), 0.0);
    for (int at = 0; at < n; ++at)
      for (int j = 0; j < 3; ++j)
        for (int c = 0; c < 3; ++c)
          for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b)
              gr[3 * (3 * at + j) + c] +=
                  rot(c + 1, a + 1) * g[3 * (3 * at + b) + a] * rot(j + 1, b + 1);
    const auto along = dipole_along_modes(gr, r.mass, r.modes1.l);
    for (int k = 7; k <= r.n3; ++k) {
      p.modes.push_back(k);
      p.m.push_back(along[k - 1]);
    }
  }
  d.mu0 = mu;
  const double size = std::sqrt(mu[0] * mu[0] + mu[1] * mu[1] + mu[2] * mu[2]);
  p.line = printed("transition dipole: %s (%s): |mu0| = %.5f au (%.5f debye), %s; ", d.file.c_str(),
                   d.source.c_str(), size, size * au2db, where.c_str());
  if (p.m.empty()) {
    p.line += "no derivatives: Franck-Condon only\n";
  } else {
    std::size_t top = 0;
    auto norm = [](const std::array<double, 3>& v) {
      return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    };
    for (std::size_t i = 0; i < p.m.size(); ++i)
      if (norm(p.m[i]) > norm(p.m[top])) top = i;
    p.line += printed("derivatives from the same job, largest |dmu/dQ| %.4e au along %s\n",
                      norm(p.m[top]), mode_name(p.modes[top], r.modes1).c_str());
  }
  return p;
}

// INITIAL's gradient from a file of its own (an ORCA .engrad beside a .hess of one geometry):
// the same atoms at the same geometry, in the same frame (within the vertical models' 2e-3
// bohr rms, not aligned).
void take_gradient(QcState& ini, const QcState& g) {
  if (g.atomic_number != ini.atomic_number)
    throw IoError(g.file, 0,
                  "expected the gradient of the atoms of " + ini.file + ", in its order");
  const double rms = rms_distance(g.x, ini.x);
  if (!(rms <= kVerticalGeometryBohr))
    throw IoError(g.file, 0,
                  printed("expected the gradient at the geometry of %s: the two are %.3g bohr "
                          "apart (rms)",
                          ini.file.c_str(), rms));
  ini.gradient = g.gradient;
}

void prepare(const Options& o) {
  const QcState fin = read_qc_state(o.final_file, o.drop_ghosts);
  // With the vertical gradient model INITIAL is a gradient at FINAL's geometry, checked there.
  const bool vertical_gradient = o.model.model == Model::vg;
  QcState ini = vertical_gradient ? read_gradient_state(o.initial_file, fin)
                                  : read_qc_state(o.initial_file, o.drop_ghosts);
  if (!o.gradient_file.empty()) take_gradient(ini, read_gradient_state(o.gradient_file, fin));
  std::vector<std::string> notes, early_warnings;

  // One molecule in both files; atoms of one element may be numbered differently.
  std::string order_line;
  std::vector<int> ini_order;  // INITIAL's renumbering, empty when none
  {
    const int n = fin.natoms();
    if (ini.natoms() != n)
      throw IoError(ini.file, 0,
                    "expected the same " + std::to_string(n) + " atoms as " + fin.file +
                        ", found " + std::to_string(ini.natoms()));
    std::multiset<int> a(fin.atomic_number.begin(), fin.atomic_number.end()),
        b(ini.atomic_number.begin(), ini.atomic_number.end());
    if (a != b)
      throw IoError(
          ini.file, 0,
          "expected the same atoms as " + fin.file + ": the two files hold different elements");
    const AtomMatch m = vertical_gradient ? AtomMatch{}
                                          : match_atoms(fin.mass, fin.atomic_number, fin.x,
                                                        ini.atomic_number, ini.x);
    if (m.renumbered()) {
      const std::string moved = describe_order(m.order, fin.atomic_number);
      if (o.keep_order) {
        early_warnings.push_back(printed(
            "%s: with --keep-order the atoms are taken as numbered, but renumbering them (%s, "
            "final <- initial) would lower the rms geometry change from %.4f to %.4f bohr: "
            "the numbers below are probably wrong",
            ini.file.c_str(), moved.c_str(), m.rms_before, m.rms_after));
      } else {
        renumber_atoms(ini, m.order);
        ini_order = m.order;
        order_line = printed(
            "atom order: %s renumbered to %s's (%s, final <- initial); rms geometry change "
            "%.4f bohr as numbered, %.4f renumbered\n",
            ini.file.c_str(), fin.file.c_str(), moved.c_str(), m.rms_before, m.rms_after);
      }
    }
    if (!m.renumbered() || o.keep_order) check_pair(fin, ini);
  }

  NacInput nac;
  if (!o.nac_file.empty()) {
    nac = read_nac_file(o.nac_file, fin.natoms(), o.nac_at);
    if (nac.at == NacGeometry::own && o.nac_at != NacGeometry::unknown)
      notes.push_back(o.nac_file + " gives its own geometry: --nac-geometry is not used");
    // A list computed at the initial geometry is numbered as INITIAL's file.
    if (nac.at == NacGeometry::initial_state && !ini_order.empty())
      nac.d = renumbered(nac.d, ini_order);
    for (double& v : nac.d) v *= o.nac_unit;
    match_coupling(nac, fin, o.keep_order, notes);
  } else if (!ini.nac.empty() || !fin.nac.empty()) {
    const bool from_initial = !ini.nac.empty();
    nac.file = from_initial ? ini.file : fin.file;
    nac.d = from_initial ? ini.nac : fin.nac;
    nac.at = from_initial ? NacGeometry::initial_state : NacGeometry::final_state;
    if (!ini.nac.empty() && !fin.nac.empty())
      notes.push_back("both files hold a coupling: " + ini.file + "'s is used");
  } else if (!o.soc_file.empty()) {
    // A singlet and a triplet: the intersystem crossing needs no non-adiabatic coupling.
    nac.file = "none";
    nac.d.assign(3 * static_cast<std::size_t>(fin.natoms()), 0.0);
    nac.at = NacGeometry::final_state;
    notes.push_back(
        "no non-adiabatic coupling: nacme.dat holds zeros (this pair is for "
        "'ictvcf rate --isc')");
  } else {
    std::string zeros;
    for (const QcState* s : {static_cast<const QcState*>(&ini), &fin})
      if (s->nac_all_zero) zeros += " (" + s->file + "'s 'Nonadiabatic coupling' is all zeros)";
    throw IoError(ini.file, 0,
                  "expected a 'Nonadiabatic coupling' in " + ini.file + " or " + fin.file +
                      ", or --nac FILE" + zeros);
  }
  if (static_cast<int>(nac.d.size()) != 3 * fin.natoms())
    throw IoError(nac.file, 0,
                  "expected a coupling for " + std::to_string(fin.natoms()) + " atoms, found " +
                      std::to_string(nac.d.size() / 3));

  double ead = o.ead;
  std::string ead_origin = "--ead " + o.ead_text;
  if (!o.has_ead) {
    for (const QcState* s : {&fin, static_cast<const QcState*>(&ini)})
      if (!s->has_energy)
        throw IoError(s->file, 0,
                      "expected a total energy to compute ead from (or give --ead VALUE UNIT)");
    ead = ini.energy - fin.energy;
    ead_origin = "E(initial) - E(final), the total energies of the files";
    if (!(ead > 0.0) && o.soc_file.empty())
      throw IoError(ini.file, 0,
                    printed("expected the initial (upper) state second: its total energy "
                            "%.8f hartree is not above the final state's %.8f hartree (%s), a gap "
                            "of %.6f eV; the files are probably swapped (FINAL INITIAL is the "
                            "order), or give --ead VALUE UNIT",
                            ini.energy, fin.energy, fin.file.c_str(), ead * au2ev));
  } else if (fin.has_energy && ini.has_energy) {
    notes.push_back(printed("ead from --ead; the files' total energies give %.6f eV",
                            (ini.energy - fin.energy) * au2ev));
  }

  ModelReport model;
  const PrepareResult r = prepare_model(fin, ini, &nac, o.model, model);
  model.gradient_file = o.gradient_file;
  if (o.model.model != Model::ah && !o.has_ead) {
    ead += model.ead_shift;
    ead_origin = "E(initial) - E(final) at the final geometry, less the relaxation energy " +
                 cm(-model.ead_shift) + " cm-1";
  }
  const QcState* st[2] = {&fin, &ini};
  std::vector<std::string> warned = early_warnings;
  for (const auto& w : warnings(r, st, nac, ead)) warned.push_back(w);
  for (const auto& w : model_warnings(model, r)) warned.push_back(w);

  InputSettings in;
  in.src = {fin.file, ini.file, nac.file};
  in.ead = ead;
  in.ead_origin = ead_origin;
  in.fwhm = o.fwhm;
  in.temp = o.temp;
  double wmax = 0.0;
  for (int k = 7; k <= r.n3; ++k)
    wmax = std::max({wmax, r.modes1.omega[k - 1], r.modes2.omega[k - 1]});
  in.grid = choose_grid(wmax, ead, in.fwhm);

  std::optional<SocValues> soc;
  if (!o.soc_file.empty()) soc = read_soc_table(o.soc_file, o.soc_triplet, o.soc_singlet);

  // Files of an earlier prepare (perhaps edited since) are replaced only when asked.
  const std::filesystem::path dir(o.out_dir);
  const std::optional<PreparedDipole> dip = prepare_dipole(o, ini, ini_order, r);
  const std::string written[4] = {(dir / "dushin.dat").string(), (dir / "nacme.dat").string(),
                                  (dir / "ic.inp").string(), (dir / "dipole.dat").string()};
  std::vector<std::string> present, left;
  for (int k = 0; k < (dip ? 4 : 3); ++k)
    if (std::filesystem::exists(written[k])) present.push_back(written[k]);
  if (!present.empty() && !o.force)
    throw IoError(present.front(), 0,
                  "already exists (" + joined(present) +
                      "): prepare does not overwrite files that may hold your edits; give "
                      "--force to replace them, or another --out DIR");
  if (std::filesystem::exists(written[2])) left = results_of(dir, written[2]);
  if (!dip && std::filesystem::exists(written[3])) left.push_back(written[3]);

  std::error_code ec;
  std::filesystem::create_directories(o.out_dir, ec);
  if (ec) throw IoError(o.out_dir, 0, "cannot create the output directory: " + ec.message());
  std::vector<std::pair<std::string, std::string>> files = {{written[0], dushin_text(r, in.src)},
                                                            {written[1], nacme_text(r, in.src)},
                                                            {written[2], input_text(in)}};
  if (dip)
    files.push_back({written[3], dipole_text("transition dipole from " + dip->d.file + ", " +
                                                 dip->d.source + ", in the final state's frame",
                                             dip->d.mu0, dip->modes, dip->m)});
  write_all_or_nothing(files);

  // The summary.
  std::string s;
  s += printed("final state (1):   %s (%s)\ninitial state (2): %s (%s)\n", fin.file.c_str(),
               fin.format.c_str(), ini.file.c_str(), ini.format.c_str());
  s += printed("atoms %d, vibrations %d\n", r.natoms, r.nvib);
  for (const QcState* q : st) {
    if (!q->ghosts.empty()) {
      std::string list;
      for (int a : q->ghosts) list += (list.empty() ? "" : ", ") + std::to_string(a);
      s += printed("%s: ghost atoms %s left out (--drop-ghosts)\n", q->file.c_str(), list.c_str());
    }
    if (!q->mass_origin.empty())
      s += printed("%s: masses are %s\n", q->file.c_str(), q->mass_origin.c_str());
    if (q->hessian_asymmetry > 0.0)
      s += printed(
          "%s: the Hessian as written is not symmetric (max|H - H^T| = %.2e "
          "hartree/bohr^2); its symmetric part is used\n",
          q->file.c_str(), q->hessian_asymmetry);
  }
  s += order_line;
  s += printed(
      "alignment: the initial state rotated by %.3f degrees onto the final state; rms "
      "geometry change %.4f bohr\n",
      r.rotation_deg, r.rms_change);
  for (int k = 0; k < 2; ++k) {
    const auto& w = k == 0 ? r.modes1.omega : r.modes2.omega;
    s += printed("frequencies, state %d: %s ... %s cm-1", k + 1, cm(w[6]).c_str(),
                 cm(w.back()).c_str());
    if (r.state[k].omega_dev >= 0)
      s += printed(" (the file's own within %.2g cm-1)", r.state[k].omega_dev);
    s += "\n";
  }
  s += printed("reorganisation energy, state 1: %.5f cm-1 (1/2 dx^T H1 dx: %.5f)\n",
               r.lambda1 * au2cm, r.lambda1_cart * au2cm);
  s += printed("reorganisation energy, state 2: %.5f cm-1 (1/2 dx^T H2 dx: %.5f)\n",
               r.lambda2 * au2cm, r.lambda2_cart * au2cm);
  s += printed("total Huang-Rhys factor: %.4f (state-1 modes), %.4f (state-2 modes)\n", r.hr1,
               r.hr2);
  s += model_summary(model, r);
  s += printed(
      "Duschinsky matrix, vibrational block: smallest singular value %.5f; largest change "
      "to\n  make it orthogonal %.2e; weight in translations and rotations up to %.2e in %s\n",
      r.min_singular, r.max_change, r.leak, mode_name(r.leak_mode, r.modes1).c_str());
  int top = 7;
  for (int k = 7; k <= r.n3; ++k)
    if (std::fabs(r.rif[k - 1]) > std::fabs(r.rif[top - 1])) top = k;
  const char* where = nac.at == NacGeometry::final_state     ? "the final geometry"
                      : nac.at == NacGeometry::initial_state ? "the initial geometry"
                                                             : "its own geometry";
  double norm = 0.0;
  for (double v : nac.d) norm += v * v;
  s += printed("coupling: %s, at %s (rms %.4f bohr from the final, %.4f from the initial)\n",
               nac.file.c_str(), where, r.nac_to_final, r.nac_to_initial);
  s += printed("  |NAC| = %.4e 1/bohr (read in 1/%s)\n", std::sqrt(norm), o.nac_unit_name.c_str());
  s += printed(
      "  %.2f %% of it in translations and rotations (removed); its sum over the atoms %.2f %% "
      "of\n  its size; largest %.4e au along %s\n",
      100.0 * r.nac_external, 100.0 * r.nac_sum, r.rif[top - 1], mode_name(top, r.modes1).c_str());
  s += dip ? dip->line
           : "transition dipole: none in the files (for 'ictvcf rate --radiative': "
             "--dipole-from FILE, or write dipole.dat)\n";
  std::string isc;
  if (soc) {
    const auto v = soc->sublevels();
    double sum = 0.0;
    for (const auto& x : v) sum += std::norm(x);
    s += printed(
        "spin-orbit coupling: %s, <T%d|H_SO|S%d> (Z, X, Y) = (%.4g:%.4g, %.4g:%.4g, %.4g:%.4g) "
        "cm-1;\n  sublevels M = 0, +1, -1: |V| = %.6g, %.6g, %.6g cm-1, sum of |V|^2 %.6g cm-2\n",
        soc->file.c_str(), soc->triplet, soc->singlet, soc->zxy[0].real(), soc->zxy[0].imag(),
        soc->zxy[1].real(), soc->zxy[1].imag(), soc->zxy[2].real(), soc->zxy[2].imag(),
        std::abs(v[0]), std::abs(v[1]), std::abs(v[2]), sum);
    isc = printed("ictvcf rate --isc --soc %.6g,%.6g,%.6g cm-1 ic.inp", std::abs(v[0]),
                  std::abs(v[1]), std::abs(v[2]));
  }
  s += printed("ead: %.6f eV (%s)\n", ead * au2ev, ead_origin.c_str());
  s += printed(
      "input: %.6g K, Gaussian broadening FWHM %.6g cm-1, dt %.4g au, tmax %.6g au "
      "(%ld steps)\n",
      o.temp, o.fwhm * au2cm, in.grid.dt, in.grid.tmax, in.grid.nt);
  for (const auto& n : notes) s += "note: " + n + "\n";
  if (!present.empty()) s += "replaced (--force): " + joined(present) + "\n";
  if (!left.empty())
    s += "left in place, results of the replaced files (they do not match the new ones): " +
         joined(left) + "\n";
  s += "written: " + written[0] + ", " + written[1] + ", " + written[2] +
       (dip ? ", " + written[3] : "") + "\n";
  std::cout << s << std::flush;
  // What says "these numbers are probably wrong" comes before the hint to go on.
  for (const auto& w : warned) std::cerr << "ictvcf prepare: warning: " << w << '\n';
  std::cerr << std::flush;
  std::cout << "next: cd " + o.out_dir + " && ictvcf ic.inp && " +
                   (soc ? isc : "ictvcf rate ic.inp") + "\n"
            << std::flush;
}

}  // namespace

int run_prepare(const std::vector<std::string>& args) {
  for (const auto& a : args)
    if (a == "--help" || a == "-h") {
      std::cout << kPrepareUsage << kHelp;
      return 0;
    }
  Options o;
  try {
    o = parse(args);
  } catch (const UsageError& e) {
    std::cerr << "ictvcf prepare: " << e.what() << '\n' << kPrepareUsage;
    return 2;
  }
  return guarded([&] { prepare(o); });
}

}  // namespace ictvcf
