// The three files `ictvcf prepare` writes for the run, as texts: the Duschinsky data file (block
// layout), the coupling file (the layout headed 'Derivative Coupling') and the input file with its
// &ic_tvcf block; the time grid chosen for it; and writing a set of files all or nothing.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "prepare/modes.h"

namespace ictvcf {

// Names of the sources, for the files' headings.
struct Sources {
  std::string final_file, initial_file, nac_file;
};

std::string dushin_text(const PrepareResult& r, const Sources& src);
std::string nacme_text(const PrepareResult& r, const Sources& src);

// Time grid of the input (atomic units): dt a quarter of the shortest vibrational period, or less
// so that the gaps up to ead + 1 eV stay 20 % below the grid's limit pi/dt; tmax = nt dt where a
// Gaussian damping of full width `fwhm` (hartree) has fallen below 1e-8.
struct TimeGrid {
  double dt = 0.0, tmax = 0.0;
  long nt = 0;
};
TimeGrid choose_grid(double omega_max, double ead, double fwhm);

struct InputSettings {
  Sources src;
  double ead = 0.0;  // hartree
  std::string ead_origin;
  double fwhm = 0.0;  // hartree
  double temp = 300.0;
  TimeGrid grid;
};
std::string input_text(const InputSettings& s);

// Writes each (name, text) under a temporary name beside it, and renames them into place only
// when all are complete; on failure removes what it wrote and throws IoError.
void write_all_or_nothing(const std::vector<std::pair<std::string, std::string>>& files);

}  // namespace ictvcf
