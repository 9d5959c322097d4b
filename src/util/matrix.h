// Dense matrices indexed (row, column) from 1, stored column-major so that LAPACK and BLAS see
// exactly the Fortran-ordered array: element (i, j) of an n_rows-row matrix is
// data[(i - 1) + (j - 1) * n_rows].
#pragma once

#include <cstddef>
#include <vector>

namespace ictvcf {

template <class T>
struct Matrix {
  int rows = 0;
  int cols = 0;
  std::vector<T> data;

  Matrix() = default;
  Matrix(int n_rows, int n_cols, T fill = T())
      : rows(n_rows),
        cols(n_cols),
        data(static_cast<std::size_t>(n_rows < 0 ? 0 : n_rows) *
                 static_cast<std::size_t>(n_cols < 0 ? 0 : n_cols),
             fill) {}

  T& operator()(int i, int j) {
    return data[static_cast<std::size_t>(i - 1) + static_cast<std::size_t>(j - 1) * rows];
  }
  const T& operator()(int i, int j) const {
    return data[static_cast<std::size_t>(i - 1) + static_cast<std::size_t>(j - 1) * rows];
  }
  T* ptr() { return data.data(); }
  const T* ptr() const { return data.data(); }
  bool empty() const { return data.empty(); }
};

}  // namespace ictvcf

namespace ictvcf {

// A vector indexed from 1 with operator(), like the arrays of the formulas; operator[] keeps
// the 0-based access of std::vector.
template <class T>
struct Vector : std::vector<T> {
  using std::vector<T>::vector;
  T& operator()(int i) { return (*this)[static_cast<std::size_t>(i - 1)]; }
  const T& operator()(int i) const { return (*this)[static_cast<std::size_t>(i - 1)]; }
};

}  // namespace ictvcf
