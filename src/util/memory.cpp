#include "util/memory.h"

#include <unistd.h>

#include <limits>

#include "util/errors.h"

namespace ictvcf {

namespace {
std::size_t lowered_limit = 0;
}  // namespace

void set_memory_limit_bytes(std::size_t bytes) { lowered_limit = bytes; }

std::size_t memory_limit_bytes() {
  if (lowered_limit != 0) return lowered_limit;
  long pages = sysconf(_SC_PHYS_PAGES);
  long page = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page <= 0) return std::numeric_limits<std::size_t>::max();
  return static_cast<std::size_t>(pages) * static_cast<std::size_t>(page);
}

void check_allocation(std::initializer_list<ArraySize> arrays) {
  constexpr std::size_t max = std::numeric_limits<std::size_t>::max();
  std::size_t total = 0;
  for (const ArraySize& a : arrays) {
    if (a.count <= 0) continue;
    auto n = static_cast<std::size_t>(a.count);
    if (a.size != 0 && n > max / a.size)
      throw FatalError("Integer overflow when calculating the amount of memory to allocate", 2);
    std::size_t bytes = n * a.size;
    if (bytes > max - total)
      throw FatalError("Integer overflow when calculating the amount of memory to allocate", 2);
    total += bytes;
  }
  if (total > memory_limit_bytes()) throw FatalError("Allocation would exceed memory limit", 1);
}

}  // namespace ictvcf
