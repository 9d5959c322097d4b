// The BLAS and LAPACK routines the engine uses, with Fortran calling conventions. This header
// alone declares the Fortran symbols.
#pragma once

#include <complex>

extern "C" {
void zgetrf_(const int* m, const int* n, std::complex<double>* a, const int* lda, int* ipiv,
             int* info);
void zgetri_(const int* n, std::complex<double>* a, const int* lda, const int* ipiv,
             std::complex<double>* work, const int* lwork, int* info);
void zgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const std::complex<double>* alpha, const std::complex<double>* a, const int* lda,
            const std::complex<double>* b, const int* ldb, const std::complex<double>* beta,
            std::complex<double>* c, const int* ldc);
void dgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,
            const double* beta, double* c, const int* ldc);
}

extern "C" {
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* beta, double* c, const int* ldc);
void zsymv_(const char* uplo, const int* n, const std::complex<double>* alpha,
            const std::complex<double>* a, const int* lda, const std::complex<double>* x,
            const int* incx, const std::complex<double>* beta, std::complex<double>* y,
            const int* incy);
void zsytrf_(const char* uplo, const int* n, std::complex<double>* a, const int* lda, int* ipiv,
             std::complex<double>* work, const int* lwork, int* info);
void zsytrs_(const char* uplo, const int* n, const int* nrhs, const std::complex<double>* a,
             const int* lda, const int* ipiv, std::complex<double>* b, const int* ldb, int* info);
// OpenBLAS: the number of threads its routines use.
void openblas_set_num_threads(int num_threads);
int openblas_get_num_threads(void);
}
