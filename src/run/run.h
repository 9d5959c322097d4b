// One batch run of `ictvcf INPUT`, from the input file to the correlation-function table: the
// parameter block (echoed to the log), the Duschinsky and coupling files, the thermal factors,
// the engine over the time grid and the table. Its phases are also used by the MPI run and by
// `ictvcf rate`.
#pragma once

#include <complex>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "input/inputfile.h"
#include "util/files.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

// Steps 1-8 of a run: defaults, the parameter block (echoed to the log), run preparation, the
// Duschinsky and coupling files. Leaves the log open for appending in `log`. With a scratch
// directory, the temporary files go there and no log is written (`log` stays closed).
void read_run_data(const std::string& infile, ParameterSet& p, DushinData& v, Units& units,
                   std::ofstream& log, const std::string& scratch_dir = "");

// invz2(j) = 4 sinh^2(omegae(j) / 2kT) and its scaled product invz2det (infinite at 0 K; the
// engine forms the thermal factors itself without overflow, so only a product set to zero
// matters to the run).
void thermal_factors(const ParameterSet& p, DushinData& v);

// The part of the two stores the engine reads.
EngineInputs engine_inputs(const ParameterSet& p, const DushinData& v);

// A local time stamp line: "Begin:" or "End:  " followed by the date and time.
std::string stamp_line(const char* label);

// The state of one run between its phases.
struct RunState {
  ParameterSet p;
  DushinData v;
  Units units;
  std::ofstream log;
};

// A negative number of time steps ends the run (status 2); arrays over the grid that would not
// fit in memory end it with the allocation message.
void check_time_grid(std::int64_t nt);

// Reading and checks, up to the thermal factors. False when the run stops after reading.
bool prepare_run(const std::string& infile, RunState& s);

// From the engine's values at k = 0 .. nt: the square root, the mirror, the log lines, the table.
void finish_run(RunState& s, const std::vector<std::complex<double>>& usqrt,
                const std::vector<std::complex<double>>& ft);

// The complete run of `ictvcf INPUT`. Throws StopRun, IoError or FatalError.
void run(const std::string& infile);

// The run with the time grid split over MPI ranks; returns the status. Defined only in builds
// with ICTVCF_MPI=ON.
int run_mpi(const std::string& infile);

}  // namespace ictvcf
