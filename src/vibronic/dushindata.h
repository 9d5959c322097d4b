// The vibronic data store: the two states' normal modes (frequencies, displacements, Duschinsky
// matrices, Huang-Rhys factors, reorganisation energies), the mode mask and numbering, the
// coupling arrays and the thermal factors. Filled by the Duschinsky and coupling readers, then
// only read by the engine. Energies in hartree; displacements mass-weighted, atomic units.
// Vectors and matrices are indexed from 1 with operator(); matrices are column-major.
#pragma once

#include <complex>
#include <cstdint>

#include "util/matrix.h"

namespace ictvcf {

struct DushinData {
  std::int32_t n3 = 0;     // Cartesian degrees of freedom, as counted in the file
  std::int32_t nmode = 0;  // vibrational modes: n3 - 6, or n3 with n3all
  double e00 = 0.0;        // adiabatic gap plus the zero-point difference
  double de00 = 0.0;       // zero-point energy of state 2 minus that of state 1
  double lamt1 = 0.0;      // total reorganisation energies
  double lamt2 = 0.0;
  double invz2det[2] = {0.0, 0.0};  // product of invz2 as (mantissa, power of ten)

  Matrix<std::int32_t> order;  // nmode x 2: source numbering of each mode, per state
  Vector<double> omegae;       // state 2 frequencies
  Vector<double> omegag;       // state 1 frequencies
  Vector<double> d;            // displacement used by the engine (d1 or d2)
  Vector<double> d1;
  Vector<double> d2;
  Vector<double> lam1;  // per-mode reorganisation energies
  Vector<double> lam2;
  Matrix<double> hr;   // nmode x 2 Huang-Rhys factors
  Vector<double> rif;  // coupling of each mode
  Matrix<double> r;    // rif(i) * rif(j), contracted by the engine
  Matrix<double> r1;   // derivative-coupling products
  Matrix<double> r2;
  Matrix<double> dr;     // derivative couplings in mode numbering
  Matrix<char> iscal;    // mode-pair mask of the engine (nonzero: the pair contributes)
  Vector<double> invz2;  // 4 sinh^2(omegae / 2kT)
  Matrix<double> s;      // Duschinsky matrix used by the engine (s1 or s2)
  Matrix<double> s1;
  Matrix<double> s2;
  Vector<std::complex<double>> sqrtdone;  // index k = 0..nt at [k]

  bool allocated = false;
};

// Creates every array for `nmode` modes and `nt` time steps (nothing when nmode is 0).
// Throws FatalError on a second call, or when the arrays would not fit in memory.
void allocatedushindata(DushinData& v, std::int64_t nt);

}  // namespace ictvcf
