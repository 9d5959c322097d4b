#include "coupling/getrlk.h"

#include <iostream>
#include <string>

#include "input/values.h"
#include "util/errors.h"
#include "util/files.h"
#include "util/fortran_format.h"
#include "util/list_read.h"
#include "util/memory.h"
#include "util/read_checks.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

// The store's mode numbering (column 1 of `order`) counts the six translations and rotations
// unless n3all is set. Returns the 1-based position of mode i in a list of nmode entries.
int source_index(const ParameterSet& p, const DushinData& v, int i) {
  const int o = v.order(i, 1);
  const int k = p.n3all ? o : o - 6;
  if (k < 1 || k > v.nmode)
    throw IoError(std::string(rtrim(p.dsfile)), 0,
                  "expected mode numbers " + std::string(p.n3all ? "1" : "7") + " to " +
                      std::to_string(p.n3all ? v.nmode : v.nmode + 6) +
                      " in the mode list, but mode " + std::to_string(i) + " is numbered " +
                      std::to_string(o) + ", outside the coupling list");
  return k;
}

// The derivative couplings over all n3 Cartesian coordinates, moved into mode numbering (a
// scatter: row i+6 of the file goes to row order(i,1)-6).
void read_dcoupl(const ParameterSet& p, DushinData& v) {
  TextFile f = open_text_file(std::string(rtrim(p.dcouplfile)));
  const int n3 = v.n3;
  check_allocation({{static_cast<long long>(n3) * n3, sizeof(double)}});
  Matrix<double> dr_n3(n3, n3);
  for (int i = 1; i <= n3; ++i) {
    ListReader in(f);
    for (int j = 1; j <= n3; ++j)
      require(in.read(dr_n3(i, j)), in, f,
              "value " + std::to_string(j) + " of " + std::to_string(n3) + " in row " +
                  std::to_string(i) + " of the derivative-coupling matrix");
  }
  const int skip = p.n3all ? 0 : 6;
  for (int i = 1; i <= v.nmode; ++i) {
    const int oi = source_index(p, v, i);
    for (int j = 1; j <= v.nmode; ++j) v.dr(oi, source_index(p, v, j)) = dr_n3(i + skip, j + skip);
  }
}

void read_new_layout(ParameterSet& p, DushinData& v, TextFile& f) {
  std::string word = pad("", 200);
  std::int32_t n = 0;
  {
    ListReader in(f);
    require(in.read_text(word, 200), in, f, "a word and the number of coordinates");
    require(in.read(n), in, f, "the number of coordinates after the first word");
  }
  bool skip_six = false;
  if (!p.n3all && n == v.n3) skip_six = true;
  if (p.n3all && n != v.n3) {
    std::cout << "For n3all = .true. case, number of modes in nacme.out should be equal to n3\n"
              << "Exit!" << std::endl;
    p.is_exit = 1;
  }
  while (!same_text(word, "irrep")) {
    ListReader in(f);
    for (int k = 0; k < 3; ++k)
      require(in.read_text(word, 200), in, f, "a heading line whose third word is 'irrep'");
  }
  require_record(f, "the line after the 'irrep' heading");
  if (skip_six)
    for (int k = 0; k < 6; ++k) require_record(f, "the six lines of translations and rotations");
  for (int k = 1; k <= v.nmode; ++k) {
    ListReader in(f);
    LdStatus st = LdStatus::ok;
    for (int w = 0; w < 4 && st == LdStatus::ok; ++w) st = in.skip_text();
    if (st == LdStatus::ok) st = in.read(v.rif(k));
    if (st == LdStatus::bad_value) throw StopRun("Error in reading coupling file, stop!\n", 0);
    require(st, in, f,
            "the coupling of mode " + std::to_string(k) + " of " + std::to_string(v.nmode) +
                " (four words and a number)");
  }
}

void read_old_layout(const ParameterSet& p, DushinData& v, TextFile& f) {
  if (p.n3all)
    throw StopRun("n3all=.true. is not implemented for old elecoupling file!\nExit!\n", 0);
  for (int k = 1; k <= v.nmode; ++k) {
    ListReader in(f);
    require(in.skip_text(), in, f, "a word before the coupling of mode " + std::to_string(k));
    require(in.read(v.rif(k)), in, f,
            "the coupling of mode " + std::to_string(k) + " of " + std::to_string(v.nmode));
    v.rif(k) = v.rif(k) / sqrt_amu / p.evert;
  }
}

}  // namespace

void getrlk(ParameterSet& p, DushinData& v, TextFile& f, int flag, std::ostream& log) {
  p.is_exit = 0;
  if (p.if_dcoupl) read_dcoupl(p, v);
  if (flag == 0) log << "ELETYP is " << fmt_a(rtrim(p.electyp), 12) << '\n';  // ("ELETYP is ",a12)

  std::string line;
  const bool new_layout = search_word(f, 2, 20, "Derivative Coupling", line, 200);
  f.rewind();
  if (new_layout)
    read_new_layout(p, v, f);
  else
    read_old_layout(p, v, f);

  // Mode i of the store takes the coupling listed at its source number (a gather).
  Vector<double> rif_tmp(v.nmode);
  for (int i = 1; i <= v.nmode; ++i) rif_tmp(i) = v.rif(source_index(p, v, i));
  v.rif = rif_tmp;

  for (int j = 1; j <= v.nmode; ++j)
    for (int i = 1; i <= v.nmode; ++i) {
      v.r(i, j) = v.rif(i) * v.rif(j);
      if (p.if_dcoupl) {
        v.r1(i, j) = v.dr(j, j) * v.rif(i);
        v.r2(i, j) = v.dr(i, i) * v.dr(j, j);
      }
    }
}

}  // namespace ictvcf
