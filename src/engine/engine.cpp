#include "engine/engine.h"

#include "engine/fast.h"

namespace ictvcf {

void compute_correlation(const ParameterSet& p, const DushinData& v, std::int64_t nstart,
                         std::int64_t nend, std::complex<double>* usqrt, std::complex<double>* f,
                         bool keep_imaginary, const Progress& progress) {
  fast_integrate(p, v, nstart, nend, usqrt, f, keep_imaginary, 0, progress);
}

}  // namespace ictvcf
