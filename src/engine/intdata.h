// The correlation integrand over the time grid: for every time step the thermal, complex-time
// Gaussian integral of the two harmonic surfaces joined by the Duschinsky rotation, returned as a
// determinant term (whose continuous square root is the prefactor) and the coupling-weighted
// integrand. Pure functions of the two stores: no files, no output.
#pragma once

#include <complex>
#include <cstdint>

#include "input/inputfile.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

// The straightforward engine, step by step as the formulas read: one thread, scalar loops for
// the congruences and the pair contraction, LAPACK for the factorisations and inversions. It is
// the reference that the fast engine is checked against.
// Fills usqrt[m] and f[m] for m = 0 .. nend - nstart (time steps nstart .. nend). With
// keep_imaginary the imaginary part of the summed integrand is kept (the exact correlation
// function); the table keeps only the real part.
void getintegratedata(const ParameterSet& p, const DushinData& v, std::int64_t nstart,
                      std::int64_t nend, std::complex<double>* usqrt, std::complex<double>* f,
                      bool keep_imaginary = false);

}  // namespace ictvcf
