#include "util/errors.h"

namespace ictvcf {

std::string describe(const IoError& e) {
  std::string s = "ictvcf: " + e.file;
  if (e.line > 0) s += ", line " + std::to_string(e.line);
  s += ": ";
  s += e.what();
  return s;
}

}  // namespace ictvcf
