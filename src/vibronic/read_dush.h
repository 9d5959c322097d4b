// The Duschinsky data file: mode count, the two states' frequencies and displacements, and the
// Duschinsky matrices, in the block layout (dushtype = 1) or the column layout (frequency table
// in "fort.2", matrix rows in the data file). Fills the store, then derives the Huang-Rhys
// factors and energies and writes the mode tables and the energy summary to the log.
#pragma once

#include <ostream>

#include "input/inputfile.h"
#include "util/text_file.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

void readdushinout(const ParameterSet& p, DushinData& v, std::ostream& log);

// The same from a file already read; `fort2` is the frequency table of the column layout (null:
// "fort.2" in the working directory).
void read_dushin(const ParameterSet& p, DushinData& v, TextFile& f, TextFile* fort2,
                 std::ostream& log);

// The second half of the reader: shared frequencies/displacements, conversion to hartree,
// Huang-Rhys factors, the mode tables, the choice of d and s, and the energy summary.
void dushin_derive(const ParameterSet& p, DushinData& v, std::ostream& log);

}  // namespace ictvcf
