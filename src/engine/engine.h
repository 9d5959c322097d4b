// The engine the run uses: the correlation integrand for time steps nstart .. nend into
// usqrt[0 ..] and f[0 ..].
#pragma once

#include <complex>
#include <cstdint>

#include "engine/fast.h"
#include "input/inputfile.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

void compute_correlation(const ParameterSet& p, const DushinData& v, std::int64_t nstart,
                         std::int64_t nend, std::complex<double>* usqrt, std::complex<double>* f,
                         bool keep_imaginary, const Progress& progress = {});

}  // namespace ictvcf
