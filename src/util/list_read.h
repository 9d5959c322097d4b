// List-directed input (READ(u,*)) as a Fortran runtime performs it, over the records of a
// TextFile: values separated by blanks, commas or record ends, "/" ending the read, null values,
// r*value repeat counts, quoted and unquoted text, values continuing over records. Also the
// F edit descriptor on input (fixed columns, implied decimals). Every file reader and the
// name-list reader stand on this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "util/text_file.h"

namespace ictvcf {

// iostat-like outcome of one item: ok (value stored, or a null value / a "/" left it unchanged),
// end of file (-1), bad value (5010).
enum class LdStatus { ok, end_of_file, bad_value };

// One READ(u,*) statement in progress. It starts at the next record of the file; finish()
// (or the destructor) discards the rest of the last record read, as the end of a READ does.
// Items are read in order; after a "/" every later item keeps its value; after an error or
// end of file, later items also fail with the same status.
class ListReader {
 public:
  explicit ListReader(TextFile& f);
  ~ListReader();
  ListReader(const ListReader&) = delete;
  ListReader& operator=(const ListReader&) = delete;

  LdStatus read(std::int32_t& v);
  LdStatus read(std::int64_t& v);
  LdStatus read(double& v);
  LdStatus read(bool& v);
  // Text into a variable of `len` characters: cut or blank-padded to exactly `len`. When the
  // file ends inside quotes, the text read so far is stored and the status is end_of_file.
  LdStatus read_text(std::string& v, std::size_t len);
  // A text item whose value is not kept.
  LdStatus skip_text();

  // Ends the READ: the next one starts on the record after the last one read (after the first
  // record when no item was read). Items read afterwards keep their values.
  void finish();
  // The runtime's message for the last failure, e.g. "Bad integer for item 1 in list input",
  // "Bad real number in item 2 of list input", "End of file".
  const std::string& message() const { return message_; }
  // 1-based line number of the record where reading stands (for error messages).
  long line() const;

 private:
  struct State;  // current record and column, pending repeat count, "/" seen, first failure
  TextFile& f_;
  std::string message_;
  std::unique_ptr<State> st_;
};

// F editing on input of one field (Fw.d with w = field.size()): blanks ignored, an all-blank
// field is zero, d implied decimals when there is no point, E/D/Q exponents or a bare exponent
// sign, Inf/Infinity/NaN. Returns bad_value (and leaves `v` alone) for anything else.
LdStatus read_f(std::string_view field, int d, double& v);

}  // namespace ictvcf
