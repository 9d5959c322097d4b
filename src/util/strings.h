// Fixed-length, blank-padded text fields as the files and the parameter set hold them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ictvcf {

// The text without trailing blanks.
inline std::string_view rtrim(std::string_view s) {
  std::size_t n = s.size();
  while (n > 0 && s[n - 1] == ' ') --n;
  return s.substr(0, n);
}

// The text without leading blanks (left-justified, as ADJUSTL does before the blanks are moved).
inline std::string_view ltrim(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size() && s[i] == ' ') ++i;
  return s.substr(i);
}

// The text cut or blank-padded to exactly n characters.
inline std::string pad(std::string_view s, std::size_t n) {
  std::string r(s.substr(0, n));
  r.resize(n, ' ');
  return r;
}

// Left-justified in a field of the same length.
inline std::string adjustl(std::string_view s) { return pad(ltrim(s), s.size()); }

inline bool is_blank(std::string_view s) { return rtrim(s).empty(); }

// Comparison of two texts with the shorter side padded with blanks (case-sensitive).
inline bool same_text(std::string_view a, std::string_view b) { return rtrim(a) == rtrim(b); }

inline std::string lower_ascii(std::string_view s) {
  std::string r(s);
  for (char& c : r)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return r;
}

// printf-style formatting into a string, for messages and plot text (checked by the compiler).
std::string printed(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The blank-separated words of a line; a finite number that is all of its word.
std::vector<std::string> split_words(const std::string& line);
bool finite_number(const std::string& word, double& x);

}  // namespace ictvcf
