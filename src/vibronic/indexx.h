// Index sort of the modes for the log tables: indexx lists an array's elements in ascending
// order without moving them; reverse_order turns such a list end for end.
#pragma once

#include <cstdint>

namespace ictvcf {

// Afterwards arr[indx[0]-1] <= arr[indx[1]-1] <= ...; indices are 1-based mode numbers.
// A non-recursive quicksort (median of three, insertion below 7 elements), whose order of
// equal keys is part of the printed tables.
void indexx(int n, const double* arr, std::int32_t* indx);

void reverse_order(int n, std::int32_t* order);

}  // namespace ictvcf
