#include "prepare/model_summary.h"

#include <cmath>
#include <numbers>

#include "util/constants.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

// The largest |S_cart - S_int| element warned about: a bond turning by about 3 degrees.
constexpr double kFrameWarning = 0.05;

std::string cm(double hartree) { return printed("%.2f", hartree * au2cm); }

// A primitive's change in its own unit: bohr, or degrees for the angles.
std::string change(PrimitiveKind kind, double v) {
  if (kind == PrimitiveKind::bond) return printed("%.4f bohr", v);
  if (kind == PrimitiveKind::linear_bend) return printed("%.4f", v);
  return printed("%.2f degrees", v * 180.0 / std::numbers::pi);
}

std::string carrier_names(const ModelReport& rep) {
  std::string s;
  for (const auto& c : rep.carriers) s += (s.empty() ? "" : ", ") + c.label;
  return s;
}

// "bonds 18, angles 28, dihedrals 40", the kinds present.
std::string counts(const InternalSet& set) {
  std::string s;
  const std::pair<int, const char*> kinds[] = {{set.bonds, "bonds"},
                                               {set.angles, "angles"},
                                               {set.linear_bends, "linear bends"},
                                               {set.dihedrals, "dihedrals"},
                                               {set.out_of_plane, "out of plane"}};
  for (const auto& [n, name] : kinds)
    if (n > 0) s += printed("%s%d %s", s.empty() ? "" : ", ", n, name);
  if (set.joins > 0) s += printed("; %d of the bonds join fragments", set.joins);
  return s;
}

}  // namespace

std::string model_summary(const ModelReport& rep, const PrepareResult& r) {
  std::string s;
  if (rep.model == Model::ah) {
    s += "model: AH (adiabatic Hessian): each file a Hessian at its own minimum\n";
    const char* written = rep.coordinates == Coordinates::internal ? "internal" : "cartesian";
    if (!rep.internal_ok) {
      s += printed("coordinates: %s (written); internal coordinates unavailable: %s\n", written,
                   rep.internal_why.c_str());
    } else {
      s +=
          printed("coordinates: %s (written); internal also computed, from %zu primitives:\n  %s\n",
                  written, rep.set.prims.size(), counts(rep.set).c_str());
      for (int k = 0; k < 2; ++k)
        s += printed("  reorganisation energy, state %d: %s cm-1 internal, %s cm-1 cartesian\n",
                     k + 1, cm(rep.lambda_int[k]).c_str(), cm(rep.lambda_cart[k]).c_str());
      s += printed(
          "  total Huang-Rhys factor: %.4f, %.4f internal; %.4f, %.4f cartesian (state-1, "
          "state-2 modes)\n",
          rep.hr_int[0], rep.hr_int[1], rep.hr_cart[0], rep.hr_cart[1]);
      s += "  cartesian minus internal, state 1, by primitive:\n";
      for (const auto& c : rep.carriers)
        s += "    " + c.label + " " + cm(c.share) + " cm-1 (changes " + change(c.kind, c.ds) +
             ", along the chord " + change(c.kind, c.chord) + ")\n";
      s += printed(
          "  Duschinsky matrix, cartesian minus internal: up to %.4f (state-2 %s,\n  state-1 "
          "%s); bonds turn by up to %.2f degrees between the minima (%s)\n",
          rep.s_difference, mode_name(rep.s_row, r.modes2).c_str(),
          mode_name(rep.s_col, r.modes1).c_str(), rep.turn * 180.0 / std::numbers::pi,
          rep.turn_label.c_str());
    }
  } else if (rep.model == Model::vg) {
    s += printed(
        "model: VG (vertical gradient): FINAL's Hessian and frequencies for both states, S = 1;\n"
        "  INITIAL's gradient at FINAL's geometry (rms %.4f bohr from it, |g| %.3e hartree/bohr)\n",
        rep.geometry_rms, rep.gradient_norm);
  } else {
    s += printed(
        "model: VH (vertical Hessian): FINAL's Hessian for state 1; INITIAL's Hessian (state 2)\n"
        "  and gradient%s at FINAL's geometry (rms %.4f bohr from it, |g| %.3e hartree/bohr)\n",
        rep.gradient_file.empty() ? "" : (" (from " + rep.gradient_file + ")").c_str(),
        rep.geometry_rms, rep.gradient_norm);
  }
  if (rep.model != Model::ah)
    s += printed(
        "  relaxation energy on the initial state %s cm-1 (D2 = g/w^2 along its modes); "
        "coordinates:\n  not used (one geometry)\n",
        cm(-rep.ead_shift).c_str());
  if (rep.drop_below > 0)
    s += printed(
        "dropped: %d mode(s) of state 1 below %s cm-1 (displacement set to zero), carrying %s "
        "cm-1\n  of the reorganisation energy of state 1; state 2: %s -> %s cm-1\n",
        rep.dropped, cm(rep.drop_below).c_str(), cm(rep.dropped_lambda1).c_str(),
        cm(rep.lambda2_before).c_str(), cm(r.lambda2).c_str());
  return s;
}

std::vector<std::string> model_warnings(const ModelReport& rep, const PrepareResult& r) {
  std::vector<std::string> w;
  if (rep.model == Model::ah && rep.internal_ok && rep.difference > 0.10)
    w.push_back(printed(
        "Cartesian and internal coordinates give reorganisation energies %.0f %% apart (state "
        "1: %s cm-1 cartesian, %s internal), mostly through: %s: the straight Cartesian chord "
        "between the minima cuts across a torsion or a large bend%s",
        100.0 * rep.difference, cm(rep.lambda_cart[0]).c_str(), cm(rep.lambda_int[0]).c_str(),
        carrier_names(rep).c_str(),
        rep.coordinates == Coordinates::internal ? " (the internal ones are written)"
                                                 : "; --coordinates internal measures it along "
                                                   "the curve"));
  if (rep.model == Model::ah && rep.internal_ok && rep.s_difference > kFrameWarning)
    w.push_back(printed(
        "the Cartesian and internal Duschinsky matrices differ by up to %.3f (state-2 %s, "
        "state-1 %s): bonds turn by up to %.1f degrees between the minima (%s), and in "
        "Cartesian coordinates the modes that stretch a turning bond mix with those that turn it "
        "(by about the sine of the angle); rates at gaps well above the reorganisation energy "
        "are sensitive to that mixing: compare k_IC with --coordinates %s",
        rep.s_difference, mode_name(rep.s_row, r.modes2).c_str(),
        mode_name(rep.s_col, r.modes1).c_str(), rep.turn * 180.0 / std::numbers::pi,
        rep.turn_label.c_str(),
        rep.coordinates == Coordinates::internal ? "cartesian" : "internal"));
  return w;
}

}  // namespace ictvcf
