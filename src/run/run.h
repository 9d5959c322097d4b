// One batch run from the input file to the correlation-function table, and the command line
// around it.
#pragma once

#include <complex>
#include <cstdint>
#include <fstream>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "engine/fast.h"
#include "input/inputfile.h"
#include "util/files.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

// Steps 1-8 of a run: defaults, the parameter block (echoed to the log), run preparation, the
// Duschinsky and coupling files. Leaves the log open for appending in `log`. With a scratch
// directory, the temporary files go there and no log is written (`log` stays closed).
void read_run_data(const std::string& infile, ParameterSet& p, DushinData& v, Units& units,
                   std::ofstream& log, const std::string& scratch_dir = "");

// invz2(j) = 4 sinh^2(omegae(j) / 2kT) and its scaled product invz2det. Warns on standard error
// when a factor overflows.
void thermal_factors(const ParameterSet& p, DushinData& v);

// The correlation function on k = -nt .. nt from the engine's values at k = 0 .. nt: each value
// times the continuous square root of its determinant term, then C(-t) = C(t)*. Also fills
// v.sqrtdone. Returns h_ft with h_ft[k + nt] the value at step k.
std::vector<std::complex<double>> assemble(std::int64_t nt,
                                           const std::vector<std::complex<double>>& usqrt,
                                           const std::vector<std::complex<double>>& ft,
                                           Vector<std::complex<double>>& sqrtdone);

// A warning on standard error when values of the table are infinite or not a number.
void warn_non_finite(const std::vector<std::complex<double>>& h_ft, std::int64_t nt, double dt);

// The table, text ("(F14.5,6X,E16.9,2X,E16.9)" lines under a header) or binary (sequential
// records: nt, dt, then the real and imaginary parts per step). Written beside the final name
// and renamed into place once complete.
void write_table(const std::string& name, bool binary, std::int64_t nt, double dt,
                 const std::vector<std::complex<double>>& h_ft);

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

// The progress line for long runs (empty when standard error is not a terminal).
Progress terminal_progress();

// The complete run of `ictvcf INPUT`. Throws StopRun, IoError or FatalError.
void run(const std::string& infile);

// The run with the time grid split over MPI ranks; returns the status. Defined only in builds
// with ICTVCF_MPI=ON.
int run_mpi(const std::string& infile);

// `ictvcf rate INPUT`: the exact correlation function and the rate constant; returns the status.
int run_rate(const std::string& infile);

// Runs `body`, turning every error into its message and exit status.
int guarded(const std::function<void()>& body);

// The command line: `ictvcf INPUT`, `ictvcf rate INPUT`, `--help`, `--version`. Returns the exit
// status; every error becomes its message and status here.
int main_entry(int argc, char** argv);

}  // namespace ictvcf
