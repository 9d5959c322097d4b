// The electronic coupling file: one non-adiabatic coupling per normal mode, in the new layout
// (recognised by "Derivative Coupling" in columns 2-20 of some line; values in atomic units) or
// the old one (one word and a value per line, converted here). Optionally a full matrix of
// derivative couplings over Cartesian coordinates. The couplings are put into the store's mode
// order and turned into the pair matrices the engine contracts.
#pragma once

#include <ostream>

#include "input/inputfile.h"
#include "util/text_file.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

// `f` is the coupling file positioned at its start. With flag 0 the "ELETYP is" line is written
// to the log. Sets p.is_exit when the run must stop after this call.
void getrlk(ParameterSet& p, DushinData& v, TextFile& f, int flag, std::ostream& log);

}  // namespace ictvcf
