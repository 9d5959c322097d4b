#include "input/read_input.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "input/diagnostics.h"
#include "input/values.h"
#include "util/errors.h"
#include "util/fortran_format.h"
#include "util/strings.h"
#include "util/text_file.h"
#include "util/warning.h"

namespace ictvcf {

namespace {

constexpr std::size_t kBlockLine = 400;  // lines of the user's input file
constexpr std::size_t kParamLine = 200;  // lines of the block file
constexpr std::size_t kPrintLine = 500;  // lines printed back from the work file

std::string dashes() { return std::string(100, '-'); }

// Reads a text file if it exists; a missing file reads as empty.
TextFile records_or_empty(const std::string& name) {
  std::ifstream probe(name);
  if (!probe) return text_file_from(name, {});
  return open_text_file(name);
}

std::ofstream open_for_writing(const std::string& name, std::ios::openmode mode) {
  std::ofstream out(name, mode);
  if (!out) throw IoError(name, 0, "cannot open the file for writing");
  return out;
}

}  // namespace

void del_comment1(std::string& line) {
  line = adjustl(line);
  std::size_t p = line.find_first_of("!#");
  if (p != std::string::npos) line.replace(p, line.size() - p, line.size() - p, ' ');
}

void full_to_short_name(std::string& name) {
  std::string_view t = rtrim(name);
  std::size_t slash = t.rfind('/');
  if (slash == std::string_view::npos) return;
  name = pad(t.substr(slash + 1), name.size());
}

BlockSource extract_input(Units& units, const std::string& infile, const std::string& outfile,
                          const std::string& startmark, const std::string& endmark) {
  UnitLease in_unit(units);
  TextFile in = open_text_file(std::string(rtrim(infile)));
  UnitLease out_unit(units);
  const std::string out_name(rtrim(outfile));
  // Opening the block file creates it (without emptying it): it exists even when the search
  // for the block ends in an error.
  open_for_writing(out_name, std::ios::app);

  BlockSource kept{in.name, {}};
  std::vector<std::string> block;
  std::string line;
  bool eof = !read_record(in, line, kBlockLine);
  // Look for the start marker: a line that, without its comment, is the marker alone.
  while (!eof) {
    del_comment1(line);
    if (is_blank(line)) {
      eof = !read_record(in, line, kBlockLine);
      continue;
    }
    if (same_text(line, startmark)) break;
    if (!read_record(in, line, kBlockLine))
      throw IoError(in.name, in.line_of_last() + 1,
                    "end of file while looking for the line '" + startmark +
                        "' that opens the parameter block");
  }
  // Copy the block up to the end marker. The line after a blank line is taken as it stands,
  // comment included.
  if (!eof) {
    eof = !read_record(in, line, kBlockLine);
    if (!eof) del_comment1(line);
    while (!eof && rtrim(ltrim(line)) != rtrim(endmark)) {
      if (is_blank(line)) {
        eof = !read_record(in, line, kBlockLine);
        continue;
      }
      std::string kept_line(1, ' ');
      kept_line += rtrim(line);
      block.push_back(std::move(kept_line));
      kept.lines.push_back(in.line_of_last());
      eof = !read_record(in, line, kBlockLine);
      if (!eof) del_comment1(line);
    }
  }
  // Only a write replaces what the block file held.
  if (!block.empty()) {
    std::ofstream out = open_for_writing(out_name, std::ios::out | std::ios::trunc);
    for (const std::string& l : block) out << l << '\n';
  }
  return kept;
}

void read_input(ParameterSet& p, Units& units, std::string& blockfile, const std::string& convfile,
                const BlockSource* source, bool reduce_name) {
  {
    // The converted file begins with the block as extracted.
    TextFile block = records_or_empty(std::string(rtrim(blockfile)));
    std::ofstream conv = open_for_writing(convfile, std::ios::out | std::ios::trunc);
    for (const std::string& l : block.records) conv << l << '\n';
  }
  if (reduce_name) full_to_short_name(blockfile);
  UnitLease block_unit(units);
  TextFile block = records_or_empty(std::string(rtrim(blockfile)));
  const std::string work_name = std::string(rtrim(blockfile)) + "_tmp";
  UnitLease conv_unit(units);
  std::ofstream conv = open_for_writing(convfile, std::ios::app);

  conv << dashes() << '\n';
  conv << "  Unit conversion\n\n";
  conv << "  au2fs   = 0.024188843265\n";
  conv << "  au2ps   = 0.024188843265 x 10^(-3)\n";
  conv << "  au2eV   = 27.21139617\n";
  conv << "  au2cm   = 219474.6307\n";
  conv << "  au2db   = 2.541580252938\n";
  conv << dashes() << '\n';
  conv.flush();

  const std::vector<NmlVar> group = input_group(p);
  std::string line, name, value, unit;
  for (std::size_t k = 0; k < block.records.size(); ++k) {
    read_record(block, line, kParamLine);
    const bool has_assignment = get_vars(line, name, value, unit);
    const std::string& file = source ? source->file : blockfile;
    const long src_line =
        source && k < source->lines.size() ? source->lines[k] : static_cast<long>(k + 1);
    const std::string at = where(std::string(rtrim(file)), src_line);
    if (has_assignment) check_parameter_line(at, name, value, unit);

    // Each line becomes a one-assignment name-list record in the work file.
    std::vector<std::string> work{" &input"};
    UnitLease work_unit(units);
    // A fresh connection: the work file holds only what this line writes, from " &input" on
    // (so it exists even when the value before a unit word cannot be read).
    std::ofstream(work_name, std::ios::out | std::ios::trunc) << work[0] << '\n';
    if (!has_assignment) {
      work.push_back("  " + adjustl(line));
    } else if (is_blank(unit)) {
      std::string_view v = rtrim(value);
      // (2x,a30,x,"=",x,aL)
      conv << fmt_x(2) << fmt_a(name, 30) << " =";
      if (!v.empty()) conv << ' ' << v;
      conv << '\n';
      // (2x,aK,x,"=",x,a): words are handed over quoted, everything else as it stands
      std::string assignment = fmt_x(2) + std::string(rtrim(name)) + " = ";
      if (is_letter(std::string_view(value).substr(0, 1)))
        assignment += "'" + value + "'";
      else
        assignment += value;
      work.push_back(assignment);
    } else {
      double x = char_to_real(value, file, src_line);
      get_au(x, unit);
      double y = x;
      get_au_inverse(y, unit);
      // (2x,aK,x,"=",x,E25.15): the value is stored as this text reads back
      work.push_back(fmt_x(2) + std::string(rtrim(name)) + " = " + fmt_e(x, 25, 15));
      // (2x,a30,x,"=",x,E25.15,x,"au",x,"=",f17.8,x,aU)
      conv << fmt_x(2) << fmt_a(name, 30) << " = " << fmt_e(x, 25, 15) << " au =" << fmt_f(y, 17, 8)
           << ' ' << rtrim(unit) << '\n';
    }
    work.push_back(" /");
    conv.flush();
    {
      std::ofstream wf = open_for_writing(work_name, std::ios::out | std::ios::trunc);
      for (const std::string& l : work) wf << l << '\n';
    }

    TextFile nml = text_file_from(work_name, work);
    NmlResult r;
    if (has_assignment) r = read_namelist(nml, "input", group);
    if (!has_assignment || r.status != LdStatus::ok) {
      explain_bad_line(at, has_assignment, line, name, value, unit);
      std::string out = "  Error for input parameter:\n\n";
      for (const std::string& l : work) out += std::string(rtrim(pad(l, kPrintLine))) + "\n";
      throw StopRun(out, 1);
    }
  }
  conv << dashes() << '\n';
  conv.close();
  file_delete(units, work_name);
}

void readinput(ParameterSet& p, Units& units, const std::string& infile,
               const std::string& convfile, const std::string& startmark,
               const std::string& endmark, const std::string& scratch_dir) {
  const std::string in(rtrim(ltrim(infile)));
  const std::size_t slash = in.rfind('/');
  std::string blockname;
  if (!scratch_dir.empty()) {
    blockname = scratch_dir + "/." + in.substr(slash == std::string::npos ? 0 : slash + 1);
  } else if (slash == std::string::npos) {
    blockname = "." + in;
  } else {
    // An input named with a directory part keeps its block file beside it, the dot in front of
    // its own name ("run/ic.inp" gives "run/.ic.inp", "./ic.inp" gives "./.ic.inp"), so that the
    // run never writes, reads or deletes a file of that name anywhere else.
    blockname = in.substr(0, slash + 1) + "." + in.substr(slash + 1);
  }
  // A plain name is a 200-character field; a path is never cut (it would point elsewhere).
  const bool plain = scratch_dir.empty() && slash == std::string::npos;
  blockname = pad(blockname, plain ? 200 : std::max<std::size_t>(200, blockname.size()));
  BlockSource source =
      extract_input(units, infile, std::string(rtrim(blockname)), startmark, endmark);
  // The block file is already a name of its own directory: no reduction to the last component.
  read_input(p, units, blockname, convfile, &source, false);
  file_delete(units, blockname);
}

}  // namespace ictvcf
