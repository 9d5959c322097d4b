// Name-list input: one group "&name ... /" of "name = value" assignments read into a table of
// variables, as the READ(u, NML=group) statement does, with one deliberate difference: unquoted
// text runs up to the first blank, comma or "/", whatever its first character.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "util/list_read.h"
#include "util/text_file.h"

namespace ictvcf {

struct NmlVar {
  enum Type { integer, real, logical, text };
  std::string_view name;  // lower case
  Type type;
  void* ptr;            // std::int32_t*, double*, bool* or std::string* (fixed length `len`)
  std::size_t len = 0;  // length of a text variable
};

struct NmlResult {
  LdStatus status = LdStatus::ok;
  std::string message;  // the runtime's message when status is not ok
};

// Reads the first group named `group` (case-insensitive) from the current position of `f`:
// "&group" or "$group" followed by a blank or the record end, up to "/", "&end" or "$end".
// Assignments read before an error stay done. A value must start on the record of its "=";
// "name =" with nothing after it assigns nothing. Afterwards f.next is the record after the
// last one read, so f.line_of_last() is the line of the end of the group or of the error. A
// missing group or end is end_of_file.
NmlResult read_namelist(TextFile& f, std::string_view group, std::span<const NmlVar> vars);

}  // namespace ictvcf
