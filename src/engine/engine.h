// The correlation-function engine: for two harmonic surfaces joined by the Duschinsky rotation
// and a non-adiabatic coupling per mode, the thermal correlation integrand at each time point:
// a determinant term (whose continuous square root is the prefactor) and the coupling-weighted
// integrand. Pure computation on its inputs: no files, no output.
#pragma once

#include <complex>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "util/matrix.h"

namespace ictvcf {

// What the engine reads of a molecule. Energies in hartree, displacements mass-weighted (atomic
// units); vectors are indexed from 0, matrices from 1 (column-major).
struct EngineInputs {
  int nmode = 0;
  std::vector<double> omegag;       // final state (1) frequencies
  std::vector<double> omegae;       // initial state (2) frequencies
  std::vector<double> d;            // displacement: Q2 = S Q1 + d
  std::vector<double> rif;          // coupling of each mode
  Matrix<double> s;                 // Duschinsky matrix
  Matrix<double> r;                 // coupling over mode pairs (rif rif^T unless set otherwise)
  Matrix<char> iscal;               // pair mask: nonzero where the pair contributes
  double temp = 300.0;              // K
  double invz2det[2] = {1.0, 0.0};  // product of 4 sinh^2(omegae / 2kT), scaled (mantissa, e10)
};

// All of EngineInputs as doubles and back (to send it to other processes).
std::vector<double> pack(const EngineInputs& in);
EngineInputs unpack_engine_inputs(std::span<const double> buf);

// Called now and then from one thread with the number of time points done so far.
using Progress = std::function<void(std::int64_t done, std::int64_t total)>;

// The fast engine. Fills usqrt[m] and f[m] for the time steps nstart + m, m = 0 .. nend - nstart
// (t = step * dt; step 0 is taken at dt * 1e-5), on `threads` threads (0: the OpenMP default).
// With keep_imaginary the imaginary part of the summed integrand is kept (the exact correlation
// function); the run's table keeps only the real part. The result does not depend on the thread
// count, bit for bit.
void compute_correlation(const EngineInputs& in, double dt, std::int64_t nstart, std::int64_t nend,
                         std::complex<double>* usqrt, std::complex<double>* f,
                         bool keep_imaginary = false, int threads = 0,
                         const Progress& progress = {});

// The straightforward engine, step by step as the formulas read: one thread, scalar loops for
// the congruences and the pair contraction, LU factorisations and inversions. It is the
// reference the fast engine is checked against; same arguments.
void getintegratedata(const EngineInputs& in, double dt, std::int64_t nstart, std::int64_t nend,
                      std::complex<double>* usqrt, std::complex<double>* f,
                      bool keep_imaginary = false);

}  // namespace ictvcf
