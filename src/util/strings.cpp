#include "util/strings.h"

#include <cstdarg>
#include <cstdio>

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

}  // namespace ictvcf
