// Small text-file helpers of the run: the first free input/output unit, byte copy, delete,
// and positioning a text file just behind the record that holds a keyword in given columns.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "util/text_file.h"

namespace ictvcf {

// The units that are open. The fixed units of the run (1, 3, 10, 45, 58) lie below 100;
// helper files take the first free unit from 100 upward.
struct Units {
  std::set<int> open;
};

int get_free_fid(const Units& units);

// A unit taken for the lifetime of a scope: registered as open on construction, closed (freed)
// on destruction.
struct UnitLease {
  UnitLease(Units& u, int fid) : units(u), unit(fid) { units.open.insert(unit); }
  explicit UnitLease(Units& u) : UnitLease(u, get_free_fid(u)) {}
  ~UnitLease() { units.open.erase(unit); }
  UnitLease(const UnitLease&) = delete;
  UnitLease& operator=(const UnitLease&) = delete;
  Units& units;
  int unit;
};

// Copies `source` byte by byte onto `target`, which is created or truncated even when the
// source cannot be read. Reports nothing in any case.
void file_copy(Units& units, std::string_view source, std::string_view target);

// Deletes the file if it exists; a missing file is no error.
void file_delete(Units& units, std::string_view name);

// Reads records from the current position until columns first..last (1-based) of a record,
// taken as a buffer of `len` characters, equal `word` (shorter side blank-padded,
// case-sensitive). On a match the record is left in `line` (cut or padded to `len`) and the
// file stands just behind it: true. The end of the file after the first read: false. The end
// of the file on the very first read is an input/output error (IoError).
bool search_word(TextFile& f, int first, int last, std::string_view word, std::string& line,
                 std::size_t len = 200);

}  // namespace ictvcf
