// Readers of quantum-chemistry output for `ictvcf prepare`: one electronic state's frequency
// calculation (Gaussian formatted checkpoint or ORCA Hessian file, told apart by content) and a
// non-adiabatic coupling vector (formatted checkpoint, ORCA output or a plain list). Everything is
// returned in atomic units as the file gives it, in the file's own frame; nothing is computed.
#pragma once

#include <string>
#include <vector>

#include "util/matrix.h"
#include "util/text_file.h"

namespace ictvcf {

// One state's frequency calculation.
struct QcState {
  std::string file;    // the name it was read from, for messages
  std::string format;  // "Gaussian fchk" or "ORCA hess"
  std::vector<int> atomic_number;
  std::vector<double> mass;      // amu
  std::vector<double> x;         // 3N Cartesian coordinates, bohr, atom by atom
  Matrix<double> hessian;        // 3N x 3N, hartree/bohr^2, symmetric
  std::vector<double> gradient;  // 3N, hartree/bohr; empty when the file has none
  bool has_energy = false;
  double energy = 0.0;             // total energy, hartree
  std::vector<double> nac;         // 3N, <lower|d/dx|upper> in 1/bohr; empty when absent
  std::vector<double> file_omega;  // the file's own vibrational frequencies, cm-1; may be empty
  bool nac_all_zero = false;       // the file has a coupling field, every value 0
  double hessian_asymmetry = 0.0;  // max |H - H^T| of the matrix as written (H is its mean)
  std::string mass_origin;         // empty: the file's masses; else where they came from
  std::vector<int> ghosts;         // 1-based atoms without mass or nucleus (Bq), as read
  int natoms() const { return static_cast<int>(atomic_number.size()); }
};

// Where a coupling vector was computed, and so which frame it is written in.
enum class NacGeometry { unknown, final_state, initial_state, own };

struct NacInput {
  std::string file;
  std::vector<double> d;  // 3N, 1/bohr
  NacGeometry at = NacGeometry::unknown;
  std::vector<double> x;           // with `own`: the geometry it belongs to (3N, bohr, its frame)
  std::vector<int> atomic_number;  // the atoms, when the file names them
};

// The element symbol of an atomic number (1-118), and back (case-insensitive; 0 if unknown).
std::string element_symbol(int z);
int atomic_number_of(const std::string& symbol);

// The mass of an element's most abundant isotope, amu (0 where none is tabulated).
double most_abundant_mass(int z);

// The state in a file, its format recognised by content. Refuses a file without a Hessian, a
// single atom, and ghost atoms (atomic number or mass 0) unless `drop_ghosts` leaves them out.
QcState read_qc_state(const std::string& name, bool drop_ghosts = false);
// The same checks on a state already parsed from `file`.
QcState checked_state(QcState s, bool drop_ghosts = false);
QcState parse_fchk(const TextFile& f);
QcState parse_orca_hess(const TextFile& f);

// A coupling file given on the command line: a formatted checkpoint with a 'Nonadiabatic
// coupling' (at its own geometry), an ORCA output with the CARTESIAN NON-ADIABATIC COUPLINGS
// block (at the geometry printed before it, or at `plain_at` when the block was cut out of its
// output alone), or N lines 'x y z' (at the geometry `plain_at`, which must then be known).
// `natoms` is checked.
NacInput read_nac_file(const std::string& name, int natoms, NacGeometry plain_at);
NacInput parse_orca_nac(const TextFile& f, int natoms, NacGeometry plain_at = NacGeometry::unknown);
NacInput parse_plain_nac(const TextFile& f, int natoms);

}  // namespace ictvcf
