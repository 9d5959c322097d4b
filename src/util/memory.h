// Guards for large allocations: a size that overflows, or more storage than the machine has,
// ends the run with the runtime's allocation messages instead of a crash or an out-of-memory kill.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace ictvcf {

// One array of `count` elements of `size` bytes each (a negative count counts as 0).
struct ArraySize {
  long long count;
  std::size_t size;
};

// Throws FatalError "Integer overflow when calculating the amount of memory to allocate"
// (status 2) when the byte count overflows, and "Allocation would exceed memory limit"
// (status 1) when the arrays together need more than the machine's memory.
void check_allocation(std::initializer_list<ArraySize> arrays);

// The limit used above: physical memory in bytes, unless lowered for a process that must stay
// small (the fuzzing harnesses, which run under a memory cap of their own).
std::size_t memory_limit_bytes();
void set_memory_limit_bytes(std::size_t bytes);

}  // namespace ictvcf
