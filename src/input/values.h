// Values with units: one "name = value [unit]" line split into its three parts, the number
// read, and the conversion between the user's unit word and atomic units.
#pragma once

#include <string>
#include <string_view>

#include "util/constants.h"

namespace ictvcf {

// Splits `line` (200 characters, modified in place) at its first "=": `name` the text before it,
// `value` the first blank-free word after it, `unit` the rest, each a left-justified
// 200-character field. Returns false, with nothing split, when the line holds no "=".
bool get_vars(std::string& line, std::string& name, std::string& value, std::string& unit);

// The double read from `text` by a free-format read. Throws IoError(file, line, ...) when the
// text is not a number; `file` and `line` name where the text came from.
double char_to_real(std::string_view text, const std::string& file, long line);

// In place: from the unit word to atomic units, and back. Unknown words, "a.u.", "au" and "k"
// leave the value unchanged; the word is compared in lower case without trailing blanks.
void get_au(double& x, std::string_view unit);
void get_au_inverse(double& x, std::string_view unit);

// True when the text, left-justified and without trailing blanks, is not empty and consists only
// of the ASCII letters A-Z and a-z.
bool is_letter(std::string_view text);

}  // namespace ictvcf
