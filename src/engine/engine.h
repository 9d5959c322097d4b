// The correlation-function engine: for two harmonic surfaces joined by the Duschinsky rotation
// and an operator between them (the non-adiabatic coupling, the Franck-Condon unit operator or a
// transition dipole linear in the coordinates), the thermal correlation integrand at each time
// point: a determinant term (whose continuous square root is the prefactor) and the operator's
// contraction. Times may be complex, t = s + i tau with tau > -beta: the formulas are algebraic in
// t, and the thermal factors are written in terms of e^{-beta w}, so every temperature from 0 K
// up is finite. Pure computation on its inputs: no files, no output.
#pragma once

#include <array>
#include <complex>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "util/matrix.h"

namespace ictvcf {

// The operator O of C(t) = Tr[e^{-beta H2} e^{iH2 t} O^+ e^{-iH1 t} O]/Z2.
//  - coupling: V = sum_k rif_k p1k (the final state's momenta), over the pairs r and iscal select;
//  - franck_condon: O = 1, so C(0) = 1/|det S| (1 for a rotation);
//  - dipole: O = mu0_c + sum_k m_kc Q1k for each Cartesian component c, C summed over c (mu0 the
//    transition dipole at the final state's minimum, m its derivatives along the final state's
//    mass-weighted normal coordinates; atomic units).
enum class OperatorKind { coupling, franck_condon, dipole };

struct Operator {
  OperatorKind kind = OperatorKind::coupling;
  std::array<double, 3> mu0{};  // dipole: the constant part, per component
  std::vector<double> dmu;      // dipole: m_kc at dmu[c * nmode + k] (empty: all zero)
};

// What the engine reads of a molecule. Energies in hartree, displacements mass-weighted (atomic
// units); vectors are indexed from 0, matrices from 1 (column-major).
struct EngineInputs {
  int nmode = 0;
  std::vector<double> omegag;  // final state (1) frequencies
  std::vector<double> omegae;  // initial state (2) frequencies
  std::vector<double> d;       // displacement: Q2 = S Q1 + d
  std::vector<double> rif;     // coupling of each mode
  Matrix<double> s;            // Duschinsky matrix
  Matrix<double> r;            // coupling over mode pairs (rif rif^T unless set otherwise)
  Matrix<char> iscal;          // pair mask: nonzero where the pair contributes
  double temp = 300.0;         // K; 0 is the zero-temperature limit
  Operator op;                 // the coupling unless set otherwise
};

// All of EngineInputs as doubles and back (to send it to other processes).
std::vector<double> pack(const EngineInputs& in);
EngineInputs unpack_engine_inputs(std::span<const double> buf);

// Called now and then from one thread with the number of time points done so far.
using Progress = std::function<void(std::int64_t done, std::int64_t total)>;

// The integrand at one time t. The correlation function is
//   C(t) = sqrt(det * 2^exp2) * exp(iphase) * pairs
// with the square root continued along the path of times (its branch is the caller's business).
struct PointValue {
  std::complex<double> det;     // determinant term, mantissa: 1/2 <= max(|Re|, |Im|) < 1 unless 0
  double exp2 = 0.0;            // and its power of two
  std::complex<double> iphase;  // exponent of the Gaussian integral's exponential factor
  std::complex<double> pairs;   // the operator's contraction: for the coupling the sum over mode
                                // pairs of r(j,k) [-u_j u_k + i trg(j,k)]; 1 for Franck-Condon;
                                // sum_c (mu0_c - m_c.ib)^2 + (i/2) m_c^T (P - Q) m_c for a dipole
  // At purely imaginary t: b - a and b + a have the definiteness of a convergent Gaussian
  // integral, i.e. t lies inside the strip where C(t) is analytic. True at other times.
  bool in_strip = true;
};

// What to compute at each point besides the determinant term.
struct PointRequest {
  bool determinant_only = false;  // only det and exp2 (to follow the square root's branch)
  // If set: the pair terms -u_j u_k + i trg(j,k) of every pair (lower triangle, column-major,
  // nmode * nmode numbers per point, the points one after another), without r and without the
  // factor exp(iphase). `pairs` is then still the sum weighted by r and the mask. The coupling
  // operator only.
  std::complex<double>* pair_terms = nullptr;
};

// Per-thread workspaces for one molecule, sized once and reused by every evaluation. `in` must
// outlive the context.
struct EngineContext {
  explicit EngineContext(const EngineInputs& inputs, int threads = 0);
  ~EngineContext();
  EngineContext(const EngineContext&) = delete;
  EngineContext& operator=(const EngineContext&) = delete;

  const EngineInputs& in;
  int threads;  // 0: the OpenMP default, which follows OMP_NUM_THREADS
  struct Workspaces;
  std::unique_ptr<Workspaces> ws;
};

// The integrand at each of `times` (Im t > -beta; t = 0 itself is singular), the points split
// over the context's threads. The result does not depend on the thread count, bit for bit.
void evaluate(EngineContext& ctx, std::span<const std::complex<double>> times,
              std::span<PointValue> out, const PointRequest& request = {},
              const Progress& progress = {});

// The run's grid: usqrt[m] = det 2^exp2 and f[m] = exp(iphase) pairs at the time steps
// nstart + m, m = 0 .. nend - nstart (t = step * dt; step 0 is taken at dt * 1e-5). With
// keep_imaginary the imaginary part of f is kept (the exact correlation function); the run's
// table keeps only the real part.
void compute_correlation(const EngineInputs& in, double dt, std::int64_t nstart, std::int64_t nend,
                         std::complex<double>* usqrt, std::complex<double>* f,
                         bool keep_imaginary = false, int threads = 0,
                         const Progress& progress = {});

// C(0) exactly: the thermal average of O^+ O in the initial state. For the coupling, V = sum_k
// rif_k p_k with the final state's momenta p1 = S^T p2, so C(0) = sum_kl r(k,l) sum_j S(j,k)
// S(j,l) (we_j/2) coth(beta we_j/2) over the pairs the mask selects. For a dipole, Q1 = S^-1 (Q2 -
// d) has the mean -S^-1 d and (S orthogonal) the covariance S^T Sigma S, Sigma =
// diag(coth(beta we/2)/(2 we)): C(0) = sum_c (mu0_c - m_c.S^-1 d)^2 + m_c^T S^T Sigma S m_c.
// Franck-Condon: 1. All divided by |det S| as the engine's Gaussian integrals are (1 for an
// orthogonal S). The formulas at t are singular at t = 0.
double correlation_at_zero(EngineContext& ctx);

// The straightforward engine, step by step as the formulas read: one thread, scalar loops for
// the congruences and the pair contraction, LU factorisations and inversions. It is the
// reference the fast engine is checked against; same arguments.
void getintegratedata(const EngineInputs& in, double dt, std::int64_t nstart, std::int64_t nend,
                      std::complex<double>* usqrt, std::complex<double>* f,
                      bool keep_imaginary = false);

}  // namespace ictvcf
