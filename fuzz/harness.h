// The fuzzing harnesses: each feeds arbitrary bytes to one reader and accepts every described
// outcome (a stop with its message, an input/output error, an allocation failure). Anything
// else, a crash, an out-of-range access, undefined behaviour or a hang, is a finding. The same
// functions replay the kept findings in the test suite.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ictvcf::fuzz {

// The parameter block: extraction from an input file, name-list reading, run preparation.
void input_block(const std::uint8_t* data, std::size_t size);

// The Duschinsky file in both layouts. The first byte chooses the options (layout, n3all,
// dushin, mode, samefreq/samed); the rest is the data file, and for the column layout the part
// after a line "====" is the frequency file of unit 2.
void dushin_file(const std::uint8_t* data, std::size_t size);

// The coupling file in both layouts, for a store of up to 16 modes whose size, numbering and
// options come from the first two bytes.
void coupling_file(const std::uint8_t* data, std::size_t size);

// One state's frequency calculation as a Gaussian formatted checkpoint, and as an ORCA Hessian
// file; the first byte chooses whether ghost atoms are dropped. A state that is read is then
// analysed (normal modes, paired with itself) when it has at most 40 atoms.
void fchk_file(const std::uint8_t* data, std::size_t size);
void orca_hess_file(const std::uint8_t* data, std::size_t size);

// A coupling vector in an ORCA output (with or without its coordinates) and as a plain list; the
// first byte gives the number of atoms (1-64) and where a list without a geometry was computed.
void orca_output(const std::uint8_t* data, std::size_t size);
void plain_coupling(const std::uint8_t* data, std::size_t size);

// Tables of excited-state jobs: a TD checkpoint's 'ETran state values', an ORCA output's dipole
// table or its spin-orbit table (first byte: bit 3 the spin-orbit table, else bit 0 the
// checkpoint; bits 1-2 the excited state, bits 4-5 the singlet), and dipole.dat.
void dipole_tables(const std::uint8_t* data, std::size_t size);
void dipole_file(const std::uint8_t* data, std::size_t size);

// Sets up what every harness needs once: a scratch working directory and a memory cap.
void prepare_process();

}  // namespace ictvcf::fuzz
