#include "util/lapack.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

// LAPACK's prototypes as Debian's LAPACKE headers declare them, with the hidden lengths of
// Fortran's character arguments passed (LAPACK_FORTRAN_STRLEN_END) and std::complex for its
// complex type.
#define lapack_complex_float std::complex<float>
#define lapack_complex_double std::complex<double>
#include <lapack.h>

// The three BLAS routines (no C header declares the Fortran interface): the hidden lengths of
// their character arguments at the end, as gfortran passes them.
extern "C" {
void zgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const std::complex<double>* alpha, const std::complex<double>* a, const int* lda,
            const std::complex<double>* b, const int* ldb, const std::complex<double>* beta,
            std::complex<double>* c, const int* ldc, std::size_t, std::size_t);
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* beta, double* c, const int* ldc,
            std::size_t, std::size_t);
void dgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,
            const double* beta, double* c, const int* ldc, std::size_t, std::size_t);
// OpenBLAS only: weak, so that any other BLAS links too (the pointers are then null).
void openblas_set_num_threads(int num_threads) __attribute__((weak));
int openblas_get_num_threads(void) __attribute__((weak));
}

namespace ictvcf::lapack {

namespace {

int checked(int info, const char* routine) {
  if (info < 0)
    throw std::logic_error(std::string(routine) + ": argument " + std::to_string(-info) +
                           " is illegal");
  return info;
}

int work_size(double w) { return std::max(1, static_cast<int>(w)); }

}  // namespace

int sytrf_lwork(int n) {
  int info = 0, query = -1, ipiv = 0;
  cplx size, a;
  LAPACK_zsytrf("L", &n, &a, &n, &ipiv, &size, &query, &info);
  checked(info, "zsytrf");
  return work_size(size.real());
}

int sytrf(int n, cplx* a, int* ipiv, cplx* work, int lwork) {
  int info = 0;
  LAPACK_zsytrf("L", &n, a, &n, ipiv, work, &lwork, &info);
  return checked(info, "zsytrf");
}

void sytrs(int n, int nrhs, const cplx* a, const int* ipiv, cplx* b) {
  int info = 0;
  LAPACK_zsytrs("L", &n, &nrhs, a, &n, ipiv, b, &n, &info);
  checked(info, "zsytrs");
}

int sytri2_lwork(int n) {
  int info = 0, query = -1, ipiv = 0;
  cplx size, a;
  LAPACK_zsytri2("L", &n, &a, &n, &ipiv, &size, &query, &info);
  checked(info, "zsytri2");
  return work_size(size.real());
}

int sytri2(int n, cplx* a, const int* ipiv, cplx* work, int lwork) {
  int info = 0;
  LAPACK_zsytri2("L", &n, a, &n, ipiv, work, &lwork, &info);
  return checked(info, "zsytri2");
}

int getrf(int n, cplx* a, int* ipiv) {
  int info = 0;
  LAPACK_zgetrf(&n, &n, a, &n, ipiv, &info);
  return checked(info, "zgetrf");
}

int getri(int n, cplx* a, const int* ipiv, std::vector<cplx>& work) {
  int info = 0, query = -1;
  if (work.empty()) {
    cplx size;
    LAPACK_zgetri(&n, a, &n, ipiv, &size, &query, &info);
    checked(info, "zgetri");
    work.resize(static_cast<std::size_t>(std::max(n, work_size(size.real()))));
  }
  int lwork = static_cast<int>(work.size());
  LAPACK_zgetri(&n, a, &n, ipiv, work.data(), &lwork, &info);
  return checked(info, "zgetri");
}

int getrf(int n, double* a, int* ipiv) {
  int info = 0;
  if (n == 0) return 0;
  LAPACK_dgetrf(&n, &n, a, &n, ipiv, &info);
  return checked(info, "dgetrf");
}

void getrs(int n, const double* a, const int* ipiv, double* b) {
  int info = 0, one = 1;
  LAPACK_dgetrs("N", &n, &one, a, &n, ipiv, b, &n, &info);
  checked(info, "dgetrs");
}

void gemm(int n, const cplx* a, const cplx* b, cplx* c) {
  const cplx one(1.0, 0.0), zero(0.0, 0.0);
  zgemm_("N", "N", &n, &n, &n, &one, a, &n, b, &n, &zero, c, &n, 1, 1);
}

void syrk_t(int n, int k, double alpha, const double* a, int lda, double beta, double* c) {
  dsyrk_("L", "T", &n, &k, &alpha, a, &lda, &beta, c, &n, 1, 1);
}

void dgemm(bool trans_a, bool trans_b, int m, int n, int k, double alpha, const double* a, int lda,
           const double* b, int ldb, double beta, double* c, int ldc) {
  if (m == 0 || n == 0) return;
  dgemm_(trans_a ? "T" : "N", trans_b ? "T" : "N", &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c,
         &ldc, 1, 1);
}

int syev(int n, double* a, double* w) {
  int info = 0, query = -1;
  double size = 0.0;
  if (n == 0) return 0;
  LAPACK_dsyev("V", "L", &n, a, &n, w, &size, &query, &info);
  checked(info, "dsyev");
  int lwork = work_size(size);
  std::vector<double> work(static_cast<std::size_t>(lwork));
  LAPACK_dsyev("V", "L", &n, a, &n, w, work.data(), &lwork, &info);
  return checked(info, "dsyev");
}

namespace {

// dgesvd with all of V^T and all ("A") or the first n ("S") columns of U.
int gesvd_job(const char* jobu, int m, int n, double* a, double* s, double* u, double* vt) {
  if (m == 0 || n == 0) return 0;
  int info = 0, query = -1;
  double size = 0.0;
  LAPACK_dgesvd(jobu, "A", &m, &n, a, &m, s, u, &m, vt, &n, &size, &query, &info);
  checked(info, "dgesvd");
  int lwork = work_size(size);
  std::vector<double> work(static_cast<std::size_t>(lwork));
  LAPACK_dgesvd(jobu, "A", &m, &n, a, &m, s, u, &m, vt, &n, work.data(), &lwork, &info);
  return checked(info, "dgesvd");
}

}  // namespace

int gesvd(int m, int n, double* a, double* s, double* u, double* vt) {
  return gesvd_job("A", m, n, a, s, u, vt);
}

int gesvd_thin(int m, int n, double* a, double* s, double* u, double* vt) {
  return gesvd_job("S", m, n, a, s, u, vt);
}

SingleThreadedBlas::SingleThreadedBlas() {
  if (openblas_get_num_threads && openblas_set_num_threads) {
    previous_ = openblas_get_num_threads();
    openblas_set_num_threads(1);
  }
}

SingleThreadedBlas::~SingleThreadedBlas() {
  if (previous_ > 0 && openblas_set_num_threads) openblas_set_num_threads(previous_);
}

}  // namespace ictvcf::lapack
