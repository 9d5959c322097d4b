#include "coupling/mode_table.h"

#include <sstream>

namespace ictvcf {

std::vector<std::string> split_words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

bool whole_number(const std::string& word, int& k) {
  std::size_t used = 0;
  try {
    k = std::stoi(word, &used);
  } catch (const std::exception&) {
    return false;
  }
  return used == word.size();
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
