// The BLAS and LAPACK routines the program uses, behind checked wrappers: each queries its
// workspace where LAPACK offers it and checks `info`. A negative `info` (an illegal argument) is
// a programming error and throws std::logic_error; a positive one (an exactly singular matrix, an
// eigensolver that did not converge) is returned for the caller to report. Matrices are
// column-major with leading dimension n unless stated. Only lapack.cpp declares the Fortran
// symbols.
#pragma once

#include <complex>
#include <vector>

namespace ictvcf::lapack {

using cplx = std::complex<double>;

// Complex symmetric (not Hermitian) Bunch-Kaufman factorisation P L D L^T P^T of the lower
// triangle of a. D has 1x1 and 2x2 blocks; ipiv says which (LAPACK's convention).
int sytrf_lwork(int n);
int sytrf(int n, cplx* a, int* ipiv, cplx* work, int lwork);
// b (n x nrhs) := A^-1 b with the factorisation above.
void sytrs(int n, int nrhs, const cplx* a, const int* ipiv, cplx* b);
// a := A^-1 (lower triangle) from the factorisation (blocked), with the workspace sytri2_lwork
// asks for.
int sytri2_lwork(int n);
int sytri2(int n, cplx* a, const int* ipiv, cplx* work, int lwork);

// General LU factorisation with partial pivoting, and the inverse from it (`work` is grown to
// the size LAPACK asks for on the first call and reused).
int getrf(int n, cplx* a, int* ipiv);
int getri(int n, cplx* a, const int* ipiv, std::vector<cplx>& work);
// Real LU factorisation with partial pivoting, and one solve with it (b := A^-1 b).
int getrf(int n, double* a, int* ipiv);
void getrs(int n, const double* a, const int* ipiv, double* b);
// c = a b for n x n matrices.
void gemm(int n, const cplx* a, const cplx* b, cplx* c);

// Lower triangle of c (n x n) := alpha a^T a + beta c, with a k x n (leading dimension lda).
void syrk_t(int n, int k, double alpha, const double* a, int lda, double beta, double* c);

// c (m x n) := alpha op(a) op(b) + beta c for real matrices, op(x) = x^T where the flag is set;
// leading dimensions as stored.
void dgemm(bool trans_a, bool trans_b, int m, int n, int k, double alpha, const double* a, int lda,
           const double* b, int ldb, double beta, double* c, int ldc);

// Real symmetric eigenproblem of the n x n matrix a: eigenvalues ascending in w, orthonormal
// eigenvectors in the columns of a.
int syev(int n, double* a, double* w);
// Singular value decomposition a = U diag(s) V^T of an m x n matrix (a is overwritten); u is
// m x m, vt is n x n, s holds min(m, n) values in descending order.
int gesvd(int m, int n, double* a, double* s, double* u, double* vt);
// The same with only the first min(m, n) columns of U (u is m x min(m, n)).
int gesvd_thin(int m, int n, double* a, double* s, double* u, double* vt);

// While it lives, BLAS runs single-threaded inside the calling thread (the program parallelises
// over time points instead). With OpenBLAS the thread count is set and restored; with another
// library nothing is changed (set its own variable, e.g. OMP_NUM_THREADS, if it threads).
class SingleThreadedBlas {
 public:
  SingleThreadedBlas();
  ~SingleThreadedBlas();
  SingleThreadedBlas(const SingleThreadedBlas&) = delete;
  SingleThreadedBlas& operator=(const SingleThreadedBlas&) = delete;

 private:
  int previous_ = -1;
};

}  // namespace ictvcf::lapack
