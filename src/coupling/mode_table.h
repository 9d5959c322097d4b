// The layout shared by the transition dipole file and the spin-orbit coupling file: '#' comment
// lines, then a line '0 a b c [unit]' (the value at the final state's minimum, three components),
// then optional lines 'k a b c' (its derivative along mode k of the coupling file's numbering),
// each mode once. The words of one value are read by the caller's parser; the messages name the
// file, the line and what was expected.
#pragma once

#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "util/errors.h"
#include "util/strings.h"
#include "util/text_file.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

template <class T>
struct ModeTable {
  std::array<T, 3> zero{};
  std::string unit;  // the word after the `0` line's numbers, empty when there is none
  long unit_line = 0;
  std::vector<int> modes;
  std::vector<std::array<T, 3>> rows;
};

// What the messages call the parts of a table.
struct ModeTableWords {
  std::string zero;         // e.g. "the transition dipole '0 mux muy muz [au|debye]'"
  std::string zero_layout;  // the same where a line of the wrong length was found
  std::string first;        // e.g. "the transition dipole first, on a line '0 mux muy muz ...'"
  std::string row;          // e.g. "a mode number and three numbers 'k mx my mz' (d mu/d Q, au)"
  std::string numbers;      // e.g. "three finite numbers"
};

// A whole number, all of the word.
bool whole_number(const std::string& word, int& k);

// The store's mode (1 .. nmode) whose state-1 number is `listed` (the coupling file's numbering,
// counting the six translations and rotations unless `n3all`); an IoError naming `name` otherwise.
int store_mode(const DushinData& v, int listed, const std::string& name, bool n3all);

template <class T, class Parse>
ModeTable<T> read_mode_table(TextFile& f, const ModeTableWords& say, Parse value) {
  ModeTable<T> out;
  bool have_zero = false;
  std::vector<long> lines;
  std::string line;
  while (read_record(f, line)) {
    const std::vector<std::string> w = split_words(line);
    if (w.empty() || w[0][0] == '#') continue;
    const long at = f.line_of_last();
    const bool unit_word = !have_zero && w.size() == 5;
    if (w.size() != 4 && !unit_word)
      throw IoError(f.name, at, "expected " + (have_zero ? say.row : say.zero_layout));
    int k = 0;
    std::array<T, 3> x{};
    if (!whole_number(w[0], k) || !value(w[1], x[0]) || !value(w[2], x[1]) || !value(w[3], x[2]))
      throw IoError(
          f.name, at,
          "expected an integer and " + say.numbers + ", found '" + std::string(rtrim(line)) + "'");
    if (!have_zero) {
      if (k != 0)
        throw IoError(f.name, at, "expected " + say.first + "; found mode " + std::to_string(k));
      if (unit_word) {
        out.unit = w[4];
        out.unit_line = at;
      }
      out.zero = x;
      have_zero = true;
      continue;
    }
    if (k < 1) throw IoError(f.name, at, "expected a mode number of 1 or more, found " + w[0]);
    for (std::size_t i = 0; i < out.modes.size(); ++i)
      if (out.modes[i] == k)
        throw IoError(f.name, at,
                      "expected each mode once; mode " + w[0] + " is listed on line " +
                          std::to_string(lines[i]) + " already");
    out.modes.push_back(k);
    out.rows.push_back(x);
    lines.push_back(at);
  }
  if (!have_zero) throw IoError(f.name, f.line_of_last(), "expected " + say.zero);
  return out;
}

}  // namespace ictvcf
