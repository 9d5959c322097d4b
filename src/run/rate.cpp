#include <iostream>
#include <string>

namespace ictvcf {

int run_rate(const std::string& infile) {
  std::cerr << "ictvcf rate: not available in this build (" << infile << ")\n";
  return 2;
}

}  // namespace ictvcf
