// Turning a failed read into the run's input/output error: the file, the line and what the
// layout expected there.
#pragma once

#include <string>

#include "util/errors.h"
#include "util/list_read.h"
#include "util/text_file.h"

namespace ictvcf {

// Throws IoError unless `st` is ok.
inline void require(LdStatus st, const ListReader& r, const TextFile& f, const std::string& what) {
  if (st == LdStatus::ok) return;
  std::string why = st == LdStatus::end_of_file ? "end of file" : r.message();
  throw IoError(f.name, r.line(), "expected " + what + " (" + why + ")");
}

// Reads one record that must exist (a record skipped by the layout, or a label line).
inline void require_record(TextFile& f, const std::string& what) {
  std::string line;
  if (!read_record(f, line))
    throw IoError(f.name, f.line_of_last() + 1, "expected " + what + " (end of file)");
}

}  // namespace ictvcf
