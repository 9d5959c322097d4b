// The harmonic models of `ictvcf prepare` and their options: the adiabatic Hessian model (each
// state's Hessian at its own minimum) measured along Cartesian or curvilinear internal
// coordinates, the vertical models (one geometry, the initial state's gradient there), and modes
// left out below a frequency. No files, no output.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "prepare/internal_coords.h"
#include "prepare/modes.h"
#include "prepare/qc_files.h"

namespace ictvcf {

// ah: FINAL and INITIAL each a frequency calculation at its own minimum. vh: INITIAL's Hessian
// and gradient at FINAL's geometry. vg: FINAL's Hessian for both states and INITIAL's gradient at
// FINAL's geometry.
enum class Model { ah, vh, vg };
enum class Coordinates { cartesian, internal };

struct ModelOptions {
  Model model = Model::ah;
  Coordinates coordinates = Coordinates::cartesian;
  double drop_below = 0.0;  // hartree; modes of state 1 below it lose their displacement
};

// The largest rms distance (bohr) between FINAL's geometry and the one of INITIAL's gradient in
// the vertical models.
constexpr double kVerticalGeometryBohr = 2e-3;

struct ModelReport {
  Model model = Model::ah;
  Coordinates coordinates = Coordinates::cartesian;  // of the written files
  // The adiabatic model in both coordinates (with `internal_ok`; otherwise `internal_why`).
  bool internal_ok = false;
  std::string internal_why;
  InternalSet set;
  double lambda_cart[2] = {0, 0}, hr_cart[2] = {0, 0};
  double lambda_int[2] = {0, 0}, hr_int[2] = {0, 0};
  // The primitives carrying most of lambda1(Cartesian) - lambda1(internal), with their share
  // (hartree), their curvilinear change and the chord's.
  struct Carrier {
    std::string label;
    PrimitiveKind kind = PrimitiveKind::bond;
    double share = 0, ds = 0, chord = 0;
  };
  std::vector<Carrier> carriers;
  double difference = 0.0;  // largest |Cartesian / internal - 1| of lambda1, lambda2
  // The two frames' Duschinsky matrices (vibrational blocks, made orthogonal): the largest
  // |S_cart - S_int| element, at state-2 mode `s_row` and state-1 mode `s_col` (1-based over 3N);
  // and the bond whose direction turns most between the two minima, by `turn` radians.
  double s_difference = 0.0;
  int s_row = 0, s_col = 0;
  double turn = 0.0;
  std::string turn_label;
  // The vertical models.
  double geometry_rms = 0.0;   // INITIAL's geometry from FINAL's, bohr
  double gradient_norm = 0.0;  // |g| over the vibrations, hartree/bohr
  double ead_shift = 0.0;      // added to E(INITIAL) - E(FINAL): minus the relaxation energy
  std::string gradient_file;   // where INITIAL's gradient came from, when not INITIAL itself
  // Modes left out.
  int dropped = 0;
  double drop_below = 0.0, dropped_lambda1 = 0.0, lambda2_before = 0.0;
};

// The pair under the chosen model and coordinates; `report` says what was done and what the other
// coordinates give. IoError (naming the file) for input the model cannot use: a vertical
// model's INITIAL without a gradient or at another geometry, internal coordinates asked for but
// unavailable for this geometry.
PrepareResult prepare_model(const QcState& final_state, const QcState& initial_state,
                            const NacInput* nac, const ModelOptions& options, ModelReport& report);

// Modes of state 1 below `omega_min` (hartree) lose their displacement: D1_k = 0 and D2 loses
// S times the removed part. Returns how many, and the reorganisation energy they carried.
std::pair<int, double> drop_modes_below(PrepareResult& r, double omega_min);

}  // namespace ictvcf
