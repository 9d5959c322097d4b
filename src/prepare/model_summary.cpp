#include "prepare/model_summary.h"

#include <cmath>
#include <numbers>

#include "util/constants.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

std::string cm(double hartree) { return printed("%.2f", hartree * au2cm); }

// A primitive's change in its own unit: bohr, or degrees for the angles.
std::string change(PrimitiveKind kind, double v) {
  if (kind == PrimitiveKind::bond) return printed("%.4f bohr", v);
  if (kind == PrimitiveKind::linear_bend) return printed("%.4f", v);
  return printed("%.2f degrees", v * 180.0 / std::numbers::pi);
}

std::string carriers(const ModelReport& rep, bool values) {
  std::string s;
  for (const auto& c : rep.carriers) {
    if (!s.empty()) s += ", ";
    s += c.label;
    if (values)
      s += " (" + cm(c.share) + " cm-1; " + change(c.kind, c.ds) + ", along the chord " +
           change(c.kind, c.chord) + ")";
  }
  return s;
}

}  // namespace

std::string model_summary(const ModelReport& rep, const PrepareResult& r, const std::string& fin,
                          const std::string& ini) {
  std::string s;
  if (rep.model == Model::ah) {
    s += printed("model: AH, adiabatic Hessian (%s and %s: each a Hessian at its own minimum)\n",
                 fin.c_str(), ini.c_str());
    const bool internal = rep.coordinates == Coordinates::internal;
    if (!rep.internal_ok) {
      s +=
          "coordinates: cartesian, written; internal coordinates unavailable: " + rep.internal_why +
          "\n";
    } else {
      const InternalSet& set = rep.set;
      s += printed(
          "coordinates: %s written; internal: %zu primitives (bonds %d, angles %d, linear "
          "bends %d, dihedrals %d, out of plane %d; fragments joined by %d of the bonds)\n",
          internal ? "internal" : "cartesian", set.prims.size(), set.bonds, set.angles,
          set.linear_bends, set.dihedrals, set.out_of_plane, set.joins);
      for (int k = 0; k < 2; ++k)
        s += printed("  reorganisation energy, state %d: %s cm-1 internal, %s cm-1 cartesian\n",
                     k + 1, cm(rep.lambda_int[k]).c_str(), cm(rep.lambda_cart[k]).c_str());
      s += printed(
          "  total Huang-Rhys factor (state-1, state-2 modes): %.4f, %.4f internal; %.4f, %.4f "
          "cartesian\n",
          rep.hr_int[0], rep.hr_int[1], rep.hr_cart[0], rep.hr_cart[1]);
      s += "  the difference lies mostly in: " + carriers(rep, true) + "\n";
    }
  } else {
    const bool vg = rep.model == Model::vg;
    s += printed(
        "model: %s (%s: Hessian%s; %s: %sgradient at the final geometry, rms %.4f bohr from "
        "it, |g| %.3e hartree/bohr)%s\n",
        vg ? "VG, vertical gradient" : "VH, vertical Hessian", fin.c_str(),
        vg ? " and frequencies of both states" : " and modes of state 1", ini.c_str(),
        vg ? "" : "Hessian, modes of state 2 and ", rep.geometry_rms, rep.gradient_norm,
        vg ? "; S = 1" : "");
    s += printed(
        "  relaxation energy on the initial state %s cm-1 (D2 = g/w^2 along its modes); "
        "coordinates: not used (one geometry)\n",
        cm(r.lambda2).c_str());
  }
  if (rep.drop_below > 0)
    s += printed(
        "dropped: %d mode(s) of state 1 below %s cm-1 (displacement set to zero); they carried "
        "%s cm-1 of the reorganisation energy of state 1; state 2: %s -> %s cm-1\n",
        rep.dropped, cm(rep.drop_below).c_str(), cm(rep.dropped_lambda1).c_str(),
        cm(rep.lambda2_before).c_str(), cm(r.lambda2).c_str());
  return s;
}

std::vector<std::string> model_warnings(const ModelReport& rep) {
  std::vector<std::string> w;
  if (rep.model == Model::ah && rep.internal_ok && rep.difference > 0.10)
    w.push_back(printed(
        "Cartesian and internal coordinates give reorganisation energies %.0f %% apart (state "
        "1: %s cm-1 cartesian, %s internal), mostly through: %s: the straight Cartesian chord "
        "between the minima cuts across a torsion or a large bend%s",
        100.0 * rep.difference, cm(rep.lambda_cart[0]).c_str(), cm(rep.lambda_int[0]).c_str(),
        carriers(rep, false).c_str(),
        rep.coordinates == Coordinates::internal ? " (the internal ones are written)"
                                                 : "; --coordinates internal measures it along "
                                                   "the curve"));
  return w;
}

}  // namespace ictvcf
