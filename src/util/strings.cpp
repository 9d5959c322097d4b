#include "util/strings.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <sstream>

namespace ictvcf {

std::string printed(const char* format, ...) {
  va_list args, again;
  va_start(args, format);
  va_copy(again, args);
  const int n = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string s(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(s.data(), s.size() + 1, format, again);
  va_end(again);
  return s;
}

std::vector<std::string> split_words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

bool finite_number(const std::string& word, double& x) {
  std::size_t used = 0;
  try {
    x = std::stod(word, &used);
  } catch (const std::exception&) {
    return false;
  }
  return used == word.size() && std::isfinite(x);
}

}  // namespace ictvcf
