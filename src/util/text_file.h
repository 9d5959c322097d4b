// A formatted sequential text file opened for reading: its records (lines, without the line
// end; a CR before the LF is dropped) and the position of the next record. Readers work
// record by record, as Fortran READ statements do.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ictvcf {

struct TextFile {
  std::string name;                  // the name it was opened by, for messages
  std::vector<std::string> records;  // every record of the file
  std::size_t next = 0;              // index of the next record to be read

  long line_of_last() const { return static_cast<long>(next); }  // 1-based line just read
  bool at_end() const { return next >= records.size(); }
  void rewind() { next = 0; }
};

// Opens an existing file and reads all its records; throws IoError when it cannot be opened.
TextFile open_text_file(const std::string& name);

// A file made of the bytes of a file's contents, split into records as open_text_file does.
TextFile text_file_from_bytes(std::string name, const std::string& bytes);

// A file made of the given records (an internal file, or a test's data).
TextFile text_file_from(std::string name, std::vector<std::string> records);

// READ(u,'(a)') into a buffer of `len` characters: the record cut or blank-padded to `len`.
// Returns false (and leaves `line` unchanged) at the end of the file.
bool read_record(TextFile& f, std::string& line, std::size_t len);

// The whole next record as it stands; false at the end of the file.
bool read_record(TextFile& f, std::string& line);

}  // namespace ictvcf
