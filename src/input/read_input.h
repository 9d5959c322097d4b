// The parameter block: cut out of the user's input file ("&ic_tvcf" ... "/"), without comments
// and blank lines, into a block file; then read line by line into the parameter set, converting
// values given with units, with the echo of every parameter written to the converted file.
#pragma once

#include <string>
#include <vector>

#include "input/inputfile.h"
#include "util/files.h"

namespace ictvcf {

// Where each line of the block file came from in the user's input file (1-based line numbers),
// so that messages can point at the user's own line.
struct BlockSource {
  std::string file;
  std::vector<long> lines;
};

// Strips a comment ("!" or "#", no quoting) from a line, after left-justifying it.
void del_comment1(std::string& line);

// Copies the block between `startmark` and `endmark` of `infile` into `outfile`, one kept line
// per line with one leading blank. Returns the source line of each line written.
BlockSource extract_input(Units& units, const std::string& infile, const std::string& outfile,
                          const std::string& startmark, const std::string& endmark);

// Reads the block file into `p` and writes the echo to `convfile`. `blockfile` is reduced in
// place to its last path component. A bad line ends the run (StopRun, status 1).
void read_input(ParameterSet& p, Units& units, std::string& blockfile, const std::string& convfile,
                const BlockSource* source = nullptr, bool reduce_name = true);

// The whole input step: block file "." + infile, extraction, reading, deletion of the block file.
// An input named with a directory part has its block file (and the work file) in that directory,
// the dot in front of the file's own name. With a scratch directory the block file and its work
// file are made there instead (for runs that must leave nothing of their own in the working
// directory).
void readinput(ParameterSet& p, Units& units, const std::string& infile,
               const std::string& convfile, const std::string& startmark,
               const std::string& endmark, const std::string& scratch_dir = "");

// Replaces a path by its last component (after the last "/"), left-justified in the same field.
void full_to_short_name(std::string& name);

}  // namespace ictvcf
