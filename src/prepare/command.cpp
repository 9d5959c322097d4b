#include "prepare/command.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "prepare/gradient_file.h"
#include "prepare/model_summary.h"
#include "prepare/models.h"
#include "prepare/modes.h"
#include "prepare/qc_files.h"
#include "prepare/run_files.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

const char* const kPrepareUsage =
    "usage: ictvcf prepare FINAL INITIAL [--nac FILE] [--nac-geometry final|initial]\n"
    "                      [--ead VALUE eV|cm-1|au] [--out DIR]\n"
    "                      [--coordinates cartesian|internal] [--model ah|vh|vg]\n"
    "                      [--drop-below FREQ cm-1]\n";

constexpr double kFwhmCm = 200.0;  // Gaussian broadening written for the rate, cm-1
constexpr double kTemp = 300.0;

const char* const kHelp =
    "\n"
    "Writes dushin.dat, nacme.dat and ic.inp (in DIR, default the working directory) for\n"
    "'ictvcf ic.inp' and 'ictvcf rate ic.inp' from two frequency calculations: FINAL of the\n"
    "lower (final) electronic state, state 1 of the run, and INITIAL of the upper (initial)\n"
    "state, state 2. Each is a Gaussian formatted checkpoint (.fchk) or an ORCA Hessian file\n"
    "(.hess). The non-adiabatic coupling is the 'Nonadiabatic coupling' of INITIAL's (or\n"
    "FINAL's) checkpoint, or --nac FILE: a checkpoint, an ORCA output with the CARTESIAN\n"
    "NON-ADIABATIC COUPLINGS block, or N lines 'x y z' (1/bohr) computed at the geometry that\n"
    "--nac-geometry names. ead is the difference of the files' total energies unless --ead is\n"
    "given. --coordinates measures the displacement between the minima along the straight\n"
    "Cartesian chord (default) or along curvilinear internal coordinates; --model vg or vh takes\n"
    "INITIAL's gradient at FINAL's geometry instead of INITIAL's own minimum; --drop-below\n"
    "removes the displacement of state 1's modes below FREQ. See README.md.\n";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::string final_file, initial_file, nac_file, out_dir = ".";
  NacGeometry nac_at = NacGeometry::unknown;
  bool has_ead = false;
  double ead = 0.0;  // hartree
  std::string ead_text;
  ModelOptions model;
};

double energy_unit(const std::string& word) {
  const std::string u = lower_ascii(word);
  if (u == "ev") return 1.0 / au2ev;
  if (u == "cm-1") return 1.0 / au2cm;
  if (u == "au" || u == "a.u." || u == "hartree") return 1.0;
  throw UsageError("expected the unit of --ead (eV, cm-1 or au), found '" + word + "'");
}

Options parse(const std::vector<std::string>& args) {
  Options o;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](const char* what) -> const std::string& {
      if (i + 1 >= args.size()) throw UsageError("expected " + std::string(what) + " after " + a);
      return args[++i];
    };
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
    } else if (a == "--ead") {
      const std::string& v = value("a value and a unit");
      const std::string& unit = value("a unit (eV, cm-1 or au)");
      char* end = nullptr;
      const double x = std::strtod(v.c_str(), &end);
      if (v.empty() || end != v.c_str() + v.size())
        throw UsageError("expected a number after --ead, found '" + v + "'");
      o.ead = x * energy_unit(unit);
      o.has_ead = true;
      o.ead_text = v + " " + unit;
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
    } else if (a == "--out") {
      o.out_dir = value("a directory");
    } else if (a.size() > 1 && a[0] == '-') {
      throw UsageError("unknown option '" + a + "'");
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2)
    throw UsageError("expected two files, FINAL and INITIAL, found " +
                     std::to_string(files.size()));
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
                  "quite at the minimum; along mode %d (%s cm-1) the minimum lies %.3g "
                  "sqrt(me)*bohr away, compare |D| up to %.3g",
                  file.c_str(), c.grad_max, c.grad_atom, c.shift_mode,
                  cm(modes[s]->omega[std::max(c.shift_mode, 1) - 1]).c_str(), c.shift, dmax));
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
                "%.1f %% of a mode's weight (mode %d) in translations and rotations; the "
                "Cartesian harmonic model is poor for this pair",
                r.min_singular, 100.0 * r.leak, r.leak_mode));
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

void prepare(const Options& o) {
  const QcState fin = read_qc_state(o.final_file);
  const QcState ini = o.model.model == Model::vg ? read_gradient_state(o.initial_file, fin)
                                                 : read_qc_state(o.initial_file);
  check_pair(fin, ini);

  NacInput nac;
  std::vector<std::string> notes;
  if (!o.nac_file.empty()) {
    nac = read_nac_file(o.nac_file, fin.natoms(), o.nac_at);
    if (nac.at == NacGeometry::own && o.nac_at != NacGeometry::unknown)
      notes.push_back(o.nac_file + " gives its own geometry: --nac-geometry is not used");
  } else if (!ini.nac.empty() || !fin.nac.empty()) {
    const bool from_initial = !ini.nac.empty();
    nac.file = from_initial ? ini.file : fin.file;
    nac.d = from_initial ? ini.nac : fin.nac;
    nac.at = from_initial ? NacGeometry::initial_state : NacGeometry::final_state;
    if (!ini.nac.empty() && !fin.nac.empty())
      notes.push_back("both files hold a coupling: " + ini.file + "'s is used");
  } else {
    throw IoError(ini.file, 0,
                  "expected a 'Nonadiabatic coupling' in " + ini.file + " or " + fin.file +
                      ", or --nac FILE");
  }
  if (static_cast<int>(nac.d.size()) != 3 * fin.natoms())
    throw IoError(nac.file, 0,
                  "expected a coupling for " + std::to_string(fin.natoms()) + " atoms, found " +
                      std::to_string(nac.d.size() / 3));

  double ead = o.ead;
  std::string ead_origin = "--ead " + o.ead_text;
  if (!o.has_ead) {
    for (const QcState* s : {&fin, &ini})
      if (!s->has_energy)
        throw IoError(s->file, 0,
                      "expected a total energy to compute ead from (or give --ead VALUE UNIT)");
    ead = ini.energy - fin.energy;
    ead_origin = "E(initial) - E(final), the total energies of the files";
  } else if (fin.has_energy && ini.has_energy) {
    notes.push_back(printed("ead from --ead; the files' total energies give %.6f eV",
                            (ini.energy - fin.energy) * au2ev));
  }

  ModelReport model;
  const PrepareResult r = prepare_model(fin, ini, &nac, o.model, model);
  if (o.model.model != Model::ah && !o.has_ead) {
    ead += model.ead_shift;
    ead_origin = "E(initial) - E(final) at the final geometry, less the relaxation energy " +
                 cm(-model.ead_shift) + " cm-1";
  }
  const QcState* st[2] = {&fin, &ini};
  std::vector<std::string> warned = warnings(r, st, nac, ead);
  for (const auto& w : model_warnings(model)) warned.push_back(w);

  InputSettings in;
  in.src = {fin.file, ini.file, nac.file};
  in.ead = ead;
  in.ead_origin = ead_origin;
  in.fwhm = kFwhmCm / au2cm;
  in.temp = kTemp;
  double wmax = 0.0;
  for (int k = 7; k <= r.n3; ++k)
    wmax = std::max({wmax, r.modes1.omega[k - 1], r.modes2.omega[k - 1]});
  in.grid = choose_grid(wmax, ead, in.fwhm);

  std::error_code ec;
  std::filesystem::create_directories(o.out_dir, ec);
  if (ec) throw IoError(o.out_dir, 0, "cannot create the output directory: " + ec.message());
  const std::filesystem::path dir(o.out_dir);
  write_all_or_nothing({{(dir / "dushin.dat").string(), dushin_text(r, in.src)},
                        {(dir / "nacme.dat").string(), nacme_text(r, in.src)},
                        {(dir / "ic.inp").string(), input_text(in)}});

  // The summary.
  std::string s;
  s += printed("final state (1):   %s (%s)\ninitial state (2): %s (%s)\n", fin.file.c_str(),
               fin.format.c_str(), ini.file.c_str(), ini.format.c_str());
  s += printed("atoms %d, vibrations %d\n", r.natoms, r.nvib);
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
      "to\n  make it orthogonal %.2e; weight in translations and rotations up to %.2e (mode "
      "%d)\n",
      r.min_singular, r.max_change, r.leak, r.leak_mode);
  int top = 7;
  for (int k = 7; k <= r.n3; ++k)
    if (std::fabs(r.rif[k - 1]) > std::fabs(r.rif[top - 1])) top = k;
  const char* where = nac.at == NacGeometry::final_state     ? "the final geometry"
                      : nac.at == NacGeometry::initial_state ? "the initial geometry"
                                                             : "its own geometry";
  s += printed("coupling: %s, at %s (rms %.4f bohr from the final, %.4f from the initial)\n",
               nac.file.c_str(), where, r.nac_to_final, r.nac_to_initial);
  s += printed(
      "  %.2f %% of it in translations and rotations (removed); its sum over the atoms %.2f %% "
      "of\n  its size; largest %.4e au along mode %d (%s cm-1)\n",
      100.0 * r.nac_external, 100.0 * r.nac_sum, r.rif[top - 1], top,
      cm(r.modes1.omega[top - 1]).c_str());
  s += printed("ead: %.6f eV (%s)\n", ead * au2ev, ead_origin.c_str());
  s += printed(
      "input: %.0f K, Gaussian broadening FWHM %.0f cm-1, dt %.4g au, tmax %.6g au "
      "(%ld steps)\n",
      kTemp, kFwhmCm, in.grid.dt, in.grid.tmax, in.grid.nt);
  for (const auto& n : notes) s += "note: " + n + "\n";
  s += "written: " + (dir / "dushin.dat").string() + ", " + (dir / "nacme.dat").string() + ", " +
       (dir / "ic.inp").string() + "\n";
  s += "next: cd " + o.out_dir + " && ictvcf ic.inp && ictvcf rate ic.inp\n";
  std::cout << s << std::flush;
  for (const auto& w : warned) std::cerr << "ictvcf prepare: warning: " << w << '\n';
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
