// Atoms of one element numbered differently in two files of the same molecule (a state built
// from another input, a geometry from another program): the renumbering of the second file that
// brings it closest to the first. Pure computation: no files, no output.
#pragma once

#include <string>
#include <vector>

#include "prepare/qc_files.h"

namespace ictvcf {

struct AtomMatch {
  // order[i]: the atom of the second geometry (0-based) that is atom i of the first. Atoms are
  // only exchanged with atoms of the same element.
  std::vector<int> order;
  double rms_before = 0.0;  // rms distance after the best rotation, the atoms as numbered, bohr
  double rms_after = 0.0;   // the same with `order`
  // True when `order` is not the identity and removes a distance worth removing.
  bool renumbered() const;
};

// The same-element renumbering of b that, after the best rotation of b onto a, minimises the
// mass-weighted squared distance sum_i m_i |a_i - R b_order(i)|^2. Masses (one per atom, any unit)
// are a's; b has the same number of atoms of each element as a (not checked here).
// Several starting rotations (the atoms as numbered, the principal axes, a set spread over all
// rotations for small molecules) each refined by alternating assignment and rotation.
AtomMatch match_atoms(const std::vector<double>& mass, const std::vector<int>& element_a,
                      const std::vector<double>& a, const std::vector<int>& element_b,
                      const std::vector<double>& b);

// "H7 <- H8, H8 <- H7": atom i of the first file takes atom order[i] of the second, the moved ones
// only, the first `limit` of them.
std::string describe_order(const std::vector<int>& order, const std::vector<int>& element,
                           std::size_t limit = 12);

// The state's atoms renumbered so that its atom i is its old atom order[i]: geometry, masses,
// elements, Hessian, gradient and coupling.
void renumber_atoms(QcState& s, const std::vector<int>& order);

// A 3N vector of per-atom triples renumbered the same way.
std::vector<double> renumbered(const std::vector<double>& v, const std::vector<int>& order);

// The cheapest assignment of rows to columns of a square cost matrix (row-major, n x n):
// result[row] = column. Exact (the Hungarian method), O(n^3).
std::vector<int> cheapest_assignment(const std::vector<double>& cost, int n);

}  // namespace ictvcf
