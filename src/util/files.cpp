#include "util/files.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace fs = std::filesystem;

int get_free_fid(const Units& units) {
  int fid = 100;
  while (units.open.count(fid)) ++fid;
  return fid;
}

void file_copy(Units& units, std::string_view source, std::string_view target) {
  UnitLease in_unit(units);
  std::ifstream in(std::string(rtrim(source)), std::ios::binary);
  UnitLease out_unit(units);
  std::ofstream out(std::string(rtrim(target)), std::ios::binary | std::ios::trunc);
  if (!in || !out) return;
  std::error_code ec;
  if (fs::is_directory(std::string(rtrim(source)), ec)) return;
  out << in.rdbuf();
}

void file_delete(Units& units, std::string_view name) {
  UnitLease unit(units);
  std::error_code ec;
  fs::path p{std::string(rtrim(name))};
  if (fs::is_directory(p, ec)) return;  // a directory cannot be opened as a file
  fs::remove(p, ec);
}

bool search_word(TextFile& f, int first, int last, std::string_view word, std::string& line,
                 std::size_t len) {
  if (!read_record(f, line, len))
    throw IoError(f.name, f.line_of_last() + 1,
                  "end of file while searching for '" + std::string(word) + "'");
  auto b = static_cast<std::size_t>(first - 1);
  auto n = static_cast<std::size_t>(last - first + 1);
  for (;;) {
    if (same_text(std::string_view(line).substr(b, n), word)) return true;
    if (!read_record(f, line, len)) return false;
  }
}

}  // namespace ictvcf
