// The initial state of the vertical models of `ictvcf prepare`: a file holding its gradient at the
// final state's geometry. A Gaussian formatted checkpoint (a single point with forces, or a
// frequency job) or an ORCA gradient file (.engrad: the count of atoms, the total energy, the 3N
// gradient components and 'Z x y z' per atom, each after its '#' comment lines). Atomic units, the
// file's own frame; nothing is computed.
#pragma once

#include <string>

#include "prepare/qc_files.h"
#include "util/text_file.h"

namespace ictvcf {

QcState parse_orca_engrad(const TextFile& f);

// The state in a file, told apart by content; a Hessian is optional, a gradient that is not all
// zeros required. An .engrad has no masses: it takes those of `final_state` (whose atoms it must
// have, in the same order).
QcState read_gradient_state(const std::string& name, const QcState& final_state);

}  // namespace ictvcf
