// A two-mode molecule written as input and data files.
#pragma once

#include <string>

#include "test_support.h"

namespace ictvcf::testing {

// The files of a minimal molecule: two modes (n3all), equal frequencies, an accepting mode of
// Huang-Rhys factor 1.2 and a promoting mode with coupling 0.04. `block` adds lines to the input
// block; `freq1` is the first mode's frequency in both states; `matrix_row1` replaces the first
// row of both Duschinsky matrices.
inline void write_molecule(const std::string& block, const std::string& freq1 = "1500.0",
                           const std::string& matrix_row1 = "1 0") {
  write_file("d.dat", "     2  num of modes\n  BEGIN_OUTPUT_1\n -\n h\n -\n M1 A S0 " + freq1 +
                          " 18.7 | 1.2 1800.0 | " + freq1 +
                          " 18.7 | 1.2 1800.0 1 1\n"
                          " M2 A S0 700.0 0.0 | 0.0 0.0 | 700.0 0.0 | 0.0 0.0 2 2\n"
                          "  BEGIN_DUSH_DATA_1\n h\n r\n " +
                          matrix_row1 +
                          "\n r\n 0 1\n  END\n"
                          "  BEGIN_DUSH_DATA_2\n h\n r\n " +
                          matrix_row1 + "\n r\n 0 1\n  END\n");
  write_file("c.dat",
             " N 2\n Derivative Coupling x\n No Mode irrep\n -\n 1 1 A 1 0.0\n 2 2 A 1 0.04\n");
  write_file("ic.inp",
             "&ic_tvcf\n dsfile = d.dat\n coulfile = c.dat\n ftfile = ft.dat\n"
             " logfile = ic.log\n n3all = .true.\n" +
                 block + "/\n");
}

}  // namespace ictvcf::testing
