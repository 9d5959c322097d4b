// `ictvcf rate [options] INPUT`: the internal-conversion rate constant from the same input as the
// run, with its energy-gap scan, plots, and optionally its decomposition over modes and its
// temperature dependence.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ictvcf {

struct RateOptions {
  std::string input;
  double tol = 1e-6;                  // relative accuracy of the contour integral
  bool real_axis = false;             // integrate on the block's real time grid instead
  bool modes = false;                 // the rate's decomposition over modes and mode pairs
  bool exact = false;                 // write the exact C(t) on the block's whole grid (.exact)
  std::vector<double> temps;          // temperatures (K) for a temperature study
  bool radiative = false;             // k_r and the emission spectrum instead of k_IC
  bool yield = false;                 // k_r, k_IC and the fluorescence quantum yield
  std::string dipole = "dipole.dat";  // the transition dipole file (--dipole)
  double refractive_index = 1.0;      // of the medium the light is emitted into
  bool isc = false;                   // k_ISC from the spin-orbit coupling instead of k_IC
  std::string soc_values, soc_unit;   // --soc VALUES UNIT (empty: none given)
  std::string soc_file;               // --soc-file FILE: a coupling linear in the coordinates
  std::string isc_input;  // --isc-input FILE: with --yield, the singlet-triplet crossing's block
  std::string spin = "singlet-triplet";  // --spin: how the triplet's sublevels count
  bool spin_given = false;
};

// The options from the words after `rate`. Throws FatalError (status 2) with the usage problem.
RateOptions parse_rate_options(const std::vector<std::string>& args);

// Temperatures from "77,150,300" or "100:500:50" (first:last:step, both ends included).
std::vector<double> parse_temperature_list(const std::string& list);

// Runs the command; returns the exit status (messages already written).
int run_rate(const RateOptions& options);

// Shared by the commands of `ictvcf rate` (defined in command.cpp): the block and the data files
// read without leaving work files (false when a reader asked the run to stop; `any_gap` accepts
// ead <= 0, the uphill direction of a crossing), a text file written whole (IoError naming `what`
// if it cannot be), and the printed damping line.
struct ParameterSet;
struct DushinData;
struct Damping;
bool read_inputs(const std::string& infile, ParameterSet& p, DushinData& v, bool any_gap = false);
void write_text(const std::string& name, const std::string& text, const char* what);
std::string damping_line(const Damping& d);

// --radiative and --yield (radiative_command.cpp).
void radiative_command(const RateOptions& o);
void yield_command(const RateOptions& o);

// --isc (isc_command.cpp).
void isc_command(const RateOptions& o);

// --yield --soc (or --soc-file) --isc-input FILE: the crossing's block and coupling read once
// (false when a reader asked the run to stop), the lines that say what is counted, and k_ISC
// (au) at its gap at a temperature.
struct IscChannel {
  std::vector<std::string> lines;
  std::function<double(double temp, std::vector<std::string>& warnings)> rate_at;
};
bool isc_channel(const RateOptions& o, IscChannel& channel);

}  // namespace ictvcf
