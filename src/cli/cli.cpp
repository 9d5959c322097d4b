#include "cli/cli.h"

#include <iostream>
#include <string>
#include <vector>

#include "prepare/command.h"
#include "rate/command.h"
#include "run/run.h"
#include "util/errors.h"

namespace ictvcf {

namespace {

const char* const kUsage =
    "usage: ictvcf INPUT\n"
    "       ictvcf rate [--tol REL] [--real-axis] [--modes] [--temps LIST] INPUT\n"
    "       ictvcf rate --radiative | --yield [--dipole FILE] [--refractive-index N]\n"
    "                   [--modes] [--temps LIST] [--tol REL] INPUT\n"
    "                   (--yield may add k_ISC: --soc VALUES UNIT or --soc-file FILE, and\n"
    "                   --isc-input FILE, the singlet-triplet crossing's block)\n"
    "       ictvcf rate --isc (--soc VALUES cm-1|eV|au | --soc-file FILE)\n"
    "                   [--spin singlet-triplet|triplet-singlet] [--modes] [--temps LIST]\n"
    "                   [--tol REL] INPUT\n"
    "       ictvcf prepare FINAL INITIAL [--nac FILE] [--nac-geometry final|initial]\n"
    "                      [--ead VALUE eV|cm-1|au] [--out DIR]\n"
    "       ictvcf --help | --version\n"
    "\n"
    "Computes the thermal vibration correlation function of the internal-conversion rate\n"
    "between two electronic states from the &ic_tvcf block of INPUT, and writes the log and\n"
    "the correlation-function table named there. 'ictvcf rate INPUT' also integrates it into\n"
    "the rate constant k_IC (on a shifted time contour, to the relative accuracy --tol, 1e-6\n"
    "by default; --modes splits it over the modes, --temps gives it at several temperatures).\n"
    "With --radiative it gives the radiative rate k_r and the emission spectrum from the\n"
    "transition dipole in dipole.dat (or --dipole FILE); --yield the fluorescence quantum\n"
    "yield k_r / (k_r + k_IC). With --isc it gives the intersystem-crossing rate k_ISC from\n"
    "the spin-orbit coupling (one value summed over the triplet's sublevels, or three, for\n"
    "M = 0, +1, -1, each re or re:im), at a gap ead of either sign.\n"
    "'ictvcf prepare' writes the data files and the input from two\n"
    "frequency calculations (see 'ictvcf prepare --help').\n"
    "\n"
    "The block, one 'name = value [unit]' per line (units: fs, ps, au, a.u., eV, cm-1, K,\n"
    "debye; energies default to hartree, times to atomic units):\n"
    "  &ic_tvcf\n"
    "   dsfile = dushin.dat      Duschinsky data file (frequencies, displacements, matrices)\n"
    "   dushtype = 1             1: block layout; other: column layout with fort.2\n"
    "   coulfile = nacme.dat     coupling file, one coupling per normal mode\n"
    "   electyp = GAUSSIAN       kind of coupling file (reported only)\n"
    "   if_dcoupl = .false.      also read derivative couplings from dcouplfile\n"
    "   ftfile = ic_tvcf.dat     correlation-function table\n"
    "   ftbin = .false.          write the table in binary\n"
    "   logfile = log            log file\n"
    "   temp = 300 K             temperature\n"
    "   tmin, tmax, dt           time grid (nt = (tmax - tmin)/dt steps each side of t = 0)\n"
    "   ead, evert               adiabatic and vertical energy gaps\n"
    "   mode = 0                 single coupled mode (0: all)\n"
    "   n3all = .false.          keep the six translations and rotations as modes\n"
    "   d12, dush12 = 2          use state 1's (1) or state 2's displacement / matrix\n"
    "   dushin = .true.          read the Duschinsky matrices (false: identity)\n"
    "   samefreq, samed, samemode, freqscale, dscale   adjust the modes as read\n"
    "   isgauss, broadentype, degauss, fwhm, fwhm_w, fwhm_t, fwhmt, lifetime, fwhm_n\n"
    "                            line broadening (used by 'ictvcf rate')\n"
    "   debug = .false.          time stamps in the log\n"
    "  /\n"
    "See README.md for every parameter and the file layouts.\n";

}  // namespace

int main_entry(int argc, char** argv) {
  const std::string first = argc > 1 ? argv[1] : "";
  if (argc < 2) {
    std::cerr << kUsage;
    return 2;
  }
  if (first == "--help") {
    std::cout << kUsage;
    return 0;
  }
  if (first == "--version") {
    std::cout << "ictvcf " << ICTVCF_VERSION << '\n';
    return 0;
  }
  if (first == "rate") {
    if (argc < 3) {
      std::cerr << kUsage;
      return 2;
    }
    RateOptions options;
    const int status = guarded(
        [&] { options = parse_rate_options(std::vector<std::string>(argv + 2, argv + argc)); });
    return status != 0 ? status : run_rate(options);
  }
  if (first == "prepare") return run_prepare(std::vector<std::string>(argv + 2, argv + argc));
#ifdef ICTVCF_WITH_MPI
  return run_mpi(first);
#else
  return guarded([&] { run(first); });
#endif
}

}  // namespace ictvcf
