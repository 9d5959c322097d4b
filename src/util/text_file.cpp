#include "util/text_file.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "util/errors.h"

namespace ictvcf {

namespace {

struct FileCloser {
  void operator()(std::FILE* p) const { std::fclose(p); }
};

// Splits the bytes of a file into records: each '\n' ends one (a '\r' right before it is part
// of the line end, not of the record); a last line without '\n' is a record too.
std::vector<std::string> split_records(const std::string& text) {
  std::vector<std::string> records;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t nl = text.find('\n', start);
    if (nl == std::string::npos) {
      records.emplace_back(text, start);
      break;
    }
    std::size_t end = nl;
    if (end > start && text[end - 1] == '\r') --end;
    records.emplace_back(text, start, end - start);
    start = nl + 1;
  }
  return records;
}

}  // namespace

TextFile open_text_file(const std::string& name) {
  auto fail = [&]() {
    return IoError(name, 0, "cannot open the file (expected an existing, readable file)");
  };
  std::unique_ptr<std::FILE, FileCloser> fp(std::fopen(name.c_str(), "rb"));
  if (!fp) throw fail();
  struct stat st {};
  if (fstat(fileno(fp.get()), &st) != 0 || S_ISDIR(st.st_mode)) throw fail();

  std::string text;
  if (S_ISREG(st.st_mode) && st.st_size > 0) text.reserve(static_cast<std::size_t>(st.st_size));
  char buf[1 << 16];
  for (;;) {
    std::size_t n = std::fread(buf, 1, sizeof buf, fp.get());
    text.append(buf, n);
    if (n < sizeof buf) break;
  }
  if (std::ferror(fp.get())) throw fail();
  return text_file_from(name, split_records(text));
}

TextFile text_file_from_bytes(std::string name, const std::string& bytes) {
  return text_file_from(std::move(name), split_records(bytes));
}

TextFile text_file_from(std::string name, std::vector<std::string> records) {
  TextFile f;
  f.name = std::move(name);
  f.records = std::move(records);
  return f;
}

bool read_record(TextFile& f, std::string& line, std::size_t len) {
  if (f.at_end()) return false;
  const std::string& r = f.records[f.next++];
  line.assign(r, 0, len);
  line.resize(len, ' ');
  return true;
}

bool read_record(TextFile& f, std::string& line) {
  if (f.at_end()) return false;
  line = f.records[f.next++];
  return true;
}

}  // namespace ictvcf
