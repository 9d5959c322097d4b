// The fast engine: the same correlation integrand as the straightforward one, computed with
// BLAS-3 congruences, two LU factorisations and inversions, and an O(n^2) pair contraction that
// follows from exact identities of the formulas (see fast.cpp). Time points are independent and
// are split over threads, each with its own workspace; BLAS runs single-threaded inside, so the
// result does not depend on the thread count, bit for bit.
#pragma once

#include <complex>
#include <cstdint>
#include <functional>

#include "input/inputfile.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

// Called now and then from one thread with the number of time points done so far.
using Progress = std::function<void(std::int64_t done, std::int64_t total)>;

// Fills usqrt[m] and f[m] for time steps nstart + m, m = 0 .. nend - nstart, on `threads`
// threads (0: the OpenMP default, which follows OMP_NUM_THREADS).
void fast_integrate(const ParameterSet& p, const DushinData& v, std::int64_t nstart,
                    std::int64_t nend, std::complex<double>* usqrt, std::complex<double>* f,
                    bool keep_imaginary, int threads = 0, const Progress& progress = {});

}  // namespace ictvcf
