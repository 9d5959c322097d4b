#include "util/lapack.h"

#include <algorithm>
#include <stdexcept>
#include <string>

extern "C" {
void zsytrf_(const char* uplo, const int* n, std::complex<double>* a, const int* lda, int* ipiv,
             std::complex<double>* work, const int* lwork, int* info);
void zsytrs_(const char* uplo, const int* n, const int* nrhs, const std::complex<double>* a,
             const int* lda, const int* ipiv, std::complex<double>* b, const int* ldb, int* info);
void zsytri2_(const char* uplo, const int* n, std::complex<double>* a, const int* lda,
              const int* ipiv, std::complex<double>* work, const int* lwork, int* info);
void zgetrf_(const int* m, const int* n, std::complex<double>* a, const int* lda, int* ipiv,
             int* info);
void zgetri_(const int* n, std::complex<double>* a, const int* lda, const int* ipiv,
             std::complex<double>* work, const int* lwork, int* info);
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void dgetrs_(const char* trans, const int* n, const int* nrhs, const double* a, const int* lda,
             const int* ipiv, double* b, const int* ldb, int* info);
void zgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const std::complex<double>* alpha, const std::complex<double>* a, const int* lda,
            const std::complex<double>* b, const int* ldb, const std::complex<double>* beta,
            std::complex<double>* c, const int* ldc);
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* beta, double* c, const int* ldc);
void dgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,
            const double* beta, double* c, const int* ldc);
void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w,
            double* work, const int* lwork, int* info);
void dgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, double* a,
             const int* lda, double* s, double* u, const int* ldu, double* vt, const int* ldvt,
             double* work, const int* lwork, int* info);
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
  zsytrf_("L", &n, &a, &n, &ipiv, &size, &query, &info);
  checked(info, "zsytrf");
  return work_size(size.real());
}

int sytrf(int n, cplx* a, int* ipiv, cplx* work, int lwork) {
  int info = 0;
  zsytrf_("L", &n, a, &n, ipiv, work, &lwork, &info);
  return checked(info, "zsytrf");
}

void sytrs(int n, int nrhs, const cplx* a, const int* ipiv, cplx* b) {
  int info = 0;
  zsytrs_("L", &n, &nrhs, a, &n, ipiv, b, &n, &info);
  checked(info, "zsytrs");
}

int sytri2_lwork(int n) {
  int info = 0, query = -1, ipiv = 0;
  cplx size, a;
  zsytri2_("L", &n, &a, &n, &ipiv, &size, &query, &info);
  checked(info, "zsytri2");
  return work_size(size.real());
}

int sytri2(int n, cplx* a, const int* ipiv, cplx* work, int lwork) {
  int info = 0;
  zsytri2_("L", &n, a, &n, ipiv, work, &lwork, &info);
  return checked(info, "zsytri2");
}

int getrf(int n, cplx* a, int* ipiv) {
  int info = 0;
  zgetrf_(&n, &n, a, &n, ipiv, &info);
  return checked(info, "zgetrf");
}

int getri(int n, cplx* a, const int* ipiv, std::vector<cplx>& work) {
  int info = 0, query = -1;
  if (work.empty()) {
    cplx size;
    zgetri_(&n, a, &n, ipiv, &size, &query, &info);
    checked(info, "zgetri");
    work.resize(static_cast<std::size_t>(std::max(n, work_size(size.real()))));
  }
  int lwork = static_cast<int>(work.size());
  zgetri_(&n, a, &n, ipiv, work.data(), &lwork, &info);
  return checked(info, "zgetri");
}

int getrf(int n, double* a, int* ipiv) {
  int info = 0;
  if (n == 0) return 0;
  dgetrf_(&n, &n, a, &n, ipiv, &info);
  return checked(info, "dgetrf");
}

void getrs(int n, const double* a, const int* ipiv, double* b) {
  int info = 0, one = 1;
  dgetrs_("N", &n, &one, a, &n, ipiv, b, &n, &info);
  checked(info, "dgetrs");
}

void gemm(int n, const cplx* a, const cplx* b, cplx* c) {
  const cplx one(1.0, 0.0), zero(0.0, 0.0);
  zgemm_("N", "N", &n, &n, &n, &one, a, &n, b, &n, &zero, c, &n);
}

void syrk_t(int n, int k, double alpha, const double* a, int lda, double beta, double* c) {
  dsyrk_("L", "T", &n, &k, &alpha, a, &lda, &beta, c, &n);
}

void dgemm(bool trans_a, bool trans_b, int m, int n, int k, double alpha, const double* a, int lda,
           const double* b, int ldb, double beta, double* c, int ldc) {
  if (m == 0 || n == 0) return;
  dgemm_(trans_a ? "T" : "N", trans_b ? "T" : "N", &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c,
         &ldc);
}

int syev(int n, double* a, double* w) {
  int info = 0, query = -1;
  double size = 0.0;
  if (n == 0) return 0;
  dsyev_("V", "L", &n, a, &n, w, &size, &query, &info);
  checked(info, "dsyev");
  int lwork = work_size(size);
  std::vector<double> work(static_cast<std::size_t>(lwork));
  dsyev_("V", "L", &n, a, &n, w, work.data(), &lwork, &info);
  return checked(info, "dsyev");
}

int gesvd(int m, int n, double* a, double* s, double* u, double* vt) {
  if (m == 0 || n == 0) return 0;
  int info = 0, query = -1;
  double size = 0.0;
  dgesvd_("A", "A", &m, &n, a, &m, s, u, &m, vt, &n, &size, &query, &info);
  checked(info, "dgesvd");
  int lwork = work_size(size);
  std::vector<double> work(static_cast<std::size_t>(lwork));
  dgesvd_("A", "A", &m, &n, a, &m, s, u, &m, vt, &n, work.data(), &lwork, &info);
  return checked(info, "dgesvd");
}

int gesvd_thin(int m, int n, double* a, double* s, double* u, double* vt) {
  if (m == 0 || n == 0) return 0;
  int info = 0, query = -1;
  double size = 0.0;
  dgesvd_("S", "A", &m, &n, a, &m, s, u, &m, vt, &n, &size, &query, &info);
  checked(info, "dgesvd");
  int lwork = work_size(size);
  std::vector<double> work(static_cast<std::size_t>(lwork));
  dgesvd_("S", "A", &m, &n, a, &m, s, u, &m, vt, &n, work.data(), &lwork, &info);
  return checked(info, "dgesvd");
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
