#include "coupling/mode_table.h"

#include <sstream>

#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

bool whole_number(const std::string& word, int& k) {
  std::size_t used = 0;
  try {
    k = std::stoi(word, &used);
  } catch (const std::exception&) {
    return false;
  }
  return used == word.size();
}

int store_mode(const DushinData& v, int listed, const std::string& name, bool n3all) {
  const int n = v.nmode;
  for (int j = 1; j <= n; ++j)
    if (v.order(j, 1) == listed) return j;
  throw IoError(name, 0,
                printed("expected mode numbers of the vibrations, %d to %d (the coupling file's "
                        "numbering); mode %d is not one",
                        n3all ? 1 : 7, n3all ? n : n + 6, listed));
}

}  // namespace ictvcf
