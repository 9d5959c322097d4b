#include "util/warning.h"

#include <iostream>

namespace ictvcf {

void warn(const std::string& text) { std::cerr << "ictvcf: warning: " << text << '\n'; }

std::string where(const std::string& file, long line) {
  return line > 0 ? file + ", line " + std::to_string(line) + ": " : file + ": ";
}

}  // namespace ictvcf
