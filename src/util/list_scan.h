// The pieces of list-directed input that the list reader and the name-list reader share: a
// scanner that walks the records of a file and cuts them into values (with separators, null
// values, "/", "r*" repeat counts and quoted text that may run over records), and the rules that
// turn one value into an integer, a double, a logical or fixed-length text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/text_file.h"

namespace ictvcf::detail {

inline bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
// Characters that end an unquoted value.
inline bool ends_value(char c) { return is_blank(c) || c == ',' || c == '/'; }
inline bool is_digit(char c) { return c >= '0' && c <= '9'; }
inline char to_lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// One value of the input as the scanner found it.
struct Datum {
  enum Kind {
    value,            // `text` holds it
    null,             // ",," or "r*": the item keeps its value
    slash,            // "/": the read ends, later items keep their values
    end_of_file,      // no more records
    zero_repeat,      // "0*..."
    repeat_overflow,  // a repeat count beyond 32 bits
  };
  Kind kind = null;
  std::string_view text;  // an unquoted value, or the content of a quoted one
  bool quoted = false;
  bool junk_after_quote =
      false;                  // the closing quote is followed by something else than a separator
  bool eof_in_quote = false;  // the file ended inside the quotes; `text` is what came before
  std::int64_t repeat = 1;    // r of "r*value" or "r*"
  std::size_t rec = 0;        // where the value (after any "r*") starts
  std::size_t col = 0;
};

class Scanner {
 public:
  // Starts at the beginning of record `f.next`. In name-list mode a "!" where a value or name
  // could begin starts a comment that runs to the end of the record.
  Scanner(const TextFile& f, bool namelist) : rec(f.next), f_(f), namelist_(namelist) {}

  bool at_eof() const { return rec >= f_.records.size(); }
  const std::string& record() const { return f_.records[rec]; }
  // The character at the scan position, or -1 at the end of the record (or of the file).
  int peek() const {
    if (at_eof() || col >= record().size()) return -1;
    return static_cast<unsigned char>(record()[col]);
  }
  void next_record() {
    ++rec;
    col = 0;
  }
  // Skips blanks within the current record.
  void skip_blanks();
  // Skips blanks, record ends and (name-list mode) comments; false when the file ends first.
  bool skip_space();

  // The next value. `sep_pending` is true when a value has just been read and its separating
  // comma may still come; a comma met otherwise is a null value.
  Datum scan(bool& sep_pending);

  const TextFile& file() const { return f_; }

  std::size_t rec;  // index of the current record (records.size() at the end of the file)
  std::size_t col = 0;

 private:
  void scan_quoted(Datum& d);

  const TextFile& f_;
  bool namelist_;
  std::string quoted_;  // content of the last quoted value
};

enum class Conv { ok, bad, overflow, bad_repeat };

// Optional sign and digits only, within [lo, hi].
Conv to_integer(std::string_view s, std::int64_t lo, std::int64_t hi, std::int64_t& v);
// A real number: [sign] digits [. digits] or [sign] . digits, then an optional exponent
// (E, D or Q in either case, an optional sign and digits; or a sign and digits alone); or Inf,
// Infinity, NaN in any case. `buf` is scratch space.
Conv to_real(std::string_view s, double& v, std::string& buf);
// An optional "." then T or F in either case; the rest is ignored. A leading digit is a
// repeat count without its "*" (bad_repeat).
Conv to_logical(std::string_view s, bool& v);
// Text into a variable of `len` characters: cut or blank-padded.
void store_text(std::string_view s, std::string& v, std::size_t len);

}  // namespace ictvcf::detail
