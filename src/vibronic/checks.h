// Checks of the vibronic data once both files are read, warned on standard error: a Duschinsky
// matrix that is not a rotation, Huang-Rhys factors or reorganisation energies too large for two
// geometries in one frame, values that are not finite, and a matrix read but not used.
#pragma once

#include "input/inputfile.h"
#include "util/matrix.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

// How far a square matrix is from a rotation: max |S^T S - I| and |det S|.
struct Orthogonality {
  double deviation = 0.0;
  double abs_det = 1.0;
};
Orthogonality orthogonality(const Matrix<double>& s);

// A total Huang-Rhys factor above this is not one molecule's two minima in one frame.
inline constexpr double kMaxHuangRhys = 50.0;
// A Duschinsky matrix whose S^T S departs from the identity by more than this is not a rotation.
inline constexpr double kMaxOrthogonalityDeviation = 0.05;

void check_vibronic_data(const ParameterSet& p, const DushinData& v);

}  // namespace ictvcf
