#include "vibronic/indexx.h"

#include <iostream>
#include <utility>

#include "util/errors.h"

namespace ictvcf {

void indexx(int n, const double* arr_in, std::int32_t* indx_in) {
  constexpr int M = 7;
  constexpr int NSTACK = 50;
  // 1-based views of the two arrays.
  auto arr = [arr_in](int i) { return arr_in[i - 1]; };
  auto indx = [indx_in](int i) -> std::int32_t& { return indx_in[i - 1]; };
  int istack[NSTACK + 1];
  for (int j = 1; j <= n; ++j) indx(j) = j;
  int jstack = 0, l = 1, ir = n;
  for (;;) {
    if (ir - l < M) {
      for (int j = l + 1; j <= ir; ++j) {
        std::int32_t indxt = indx(j);
        double a = arr(indxt);
        int i = j - 1;
        for (; i >= l; --i) {
          if (arr(indx(i)) <= a) break;
          indx(i + 1) = indx(i);
        }
        indx(i + 1) = indxt;
      }
      if (jstack == 0) return;
      ir = istack[jstack];
      l = istack[jstack - 1];
      jstack -= 2;
    } else {
      int k = (l + ir) / 2;
      std::swap(indx(k), indx(l + 1));
      if (arr(indx(l)) > arr(indx(ir))) std::swap(indx(l), indx(ir));
      if (arr(indx(l + 1)) > arr(indx(ir))) std::swap(indx(l + 1), indx(ir));
      if (arr(indx(l)) > arr(indx(l + 1))) std::swap(indx(l), indx(l + 1));
      int i = l + 1, j = ir;
      std::int32_t indxt = indx(l + 1);
      double a = arr(indxt);
      for (;;) {
        do ++i;
        while (arr(indx(i)) < a);
        do --j;
        while (arr(indx(j)) > a);
        if (j < i) break;
        std::swap(indx(i), indx(j));
      }
      indx(l + 1) = indx(j);
      indx(j) = indxt;
      jstack += 2;
      if (jstack > NSTACK) {
        std::cout << "NSTACK too small in indexx\nStop" << std::endl;
        throw FatalError("indexx: sort stack exhausted", 2);
      }
      if (ir - i + 1 >= j - l) {
        istack[jstack] = ir;
        istack[jstack - 1] = i;
        ir = j - 1;
      } else {
        istack[jstack] = j - 1;
        istack[jstack - 1] = l;
        l = i;
      }
    }
  }
}

void reverse_order(int n, std::int32_t* order) {
  for (int i = 1; i <= n / 2; ++i) std::swap(order[i - 1], order[n - i]);
}

}  // namespace ictvcf
