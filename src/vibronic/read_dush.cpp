#include "vibronic/read_dush.h"

#include <cmath>
#include <string>
#include <vector>

#include "input/values.h"
#include "util/errors.h"
#include "util/files.h"
#include "util/fortran_format.h"
#include "util/list_read.h"
#include "util/memory.h"
#include "util/read_checks.h"
#include "util/scaled_product.h"
#include "util/strings.h"
#include "util/warning.h"
#include "vibronic/indexx.h"

namespace ictvcf {

namespace {

constexpr std::size_t kLine = 200;

inline double sq(double x) { return x * x; }

StopRun missing(const std::string& marker) {
  return StopRun("Can not find '" + marker + "' in dushin file!\n", 0);
}

// n3 rows of the full Cartesian matrix, each a label record and then n3 values read
// list-directed; then the rows and columns of the modes: all of them with n3all, otherwise
// without the six translations and rotations.
void read_matrix(TextFile& f, int n3, bool n3all, int nmode, Matrix<double>& s,
                 const std::string& block) {
  check_allocation({{static_cast<long long>(n3) * n3, sizeof(double)}});
  Matrix<double> full(n3, n3);
  for (int i = 1; i <= n3; ++i) {
    require_record(f, "the label line of row " + std::to_string(i) + " of " + block);
    ListReader in(f);
    for (int j = 1; j <= n3; ++j)
      require(in.read(full(i, j)), in, f,
              "value " + std::to_string(j) + " of " + std::to_string(n3) + " in row " +
                  std::to_string(i) + " of " + block);
  }
  const int skip = n3all ? 0 : 6;
  for (int j = 1; j <= nmode; ++j)
    for (int i = 1; i <= nmode; ++i) s(i, j) = full(i + skip, j + skip);
}

// A frequency written as negative is imaginary: the geometry is a saddle point, not a minimum.
void warn_imaginary(const std::string& file, long line, int mode, double w1, double w2,
                    const char* use) {
  if (!(w1 < 0.0) && !(w2 < 0.0)) return;
  std::string values;
  if (w1 < 0.0) values = printed("%.6g cm-1 in state 1", w1);
  if (w2 < 0.0) values += (values.empty() ? "" : " and ") + printed("%.6g cm-1 in state 2", w2);
  const bool near_zero = std::fabs(std::min(w1, w2)) < 50.0;
  warn(where(file, line) + "mode " + std::to_string(mode) + " has an imaginary frequency, " +
       values +
       (near_zero ? " (near zero: a translation or rotation left among the modes?); "
                  : " (a saddle point, not a minimum); ") +
       use);
}

void read_layout1(const ParameterSet& p, DushinData& v, TextFile& f) {
  std::string line;
  if (!search_word(f, 3, 16, "BEGIN_OUTPUT_1", line, kLine)) throw missing("BEGIN_OUTPUT_1");
  const int skipped = p.n3all ? 3 : 9;
  for (int k = 0; k < skipped; ++k) require_record(f, "the header lines after BEGIN_OUTPUT_1");
  for (int i = 1; i <= v.nmode; ++i) {
    const std::string what = "the record of mode " + std::to_string(i) + ": ";
    ListReader in(f);
    for (int k = 0; k < 3; ++k) require(in.skip_text(), in, f, what + "three leading words");
    require(in.read(v.omegag(i)), in, f, what + "the state-1 frequency");
    require(in.read(v.d1(i)), in, f, what + "the state-1 displacement");
    require(in.skip_text(), in, f, what + "a separator word");
    require(in.read(v.hr(i, 1)), in, f, what + "the state-1 Huang-Rhys factor");
    require(in.read(v.lam1(i)), in, f, what + "the state-1 reorganisation energy");
    require(in.skip_text(), in, f, what + "a separator word");
    require(in.read(v.omegae(i)), in, f, what + "the state-2 frequency");
    require(in.read(v.d2(i)), in, f, what + "the state-2 displacement");
    require(in.skip_text(), in, f, what + "a separator word");
    require(in.read(v.hr(i, 2)), in, f, what + "the state-2 Huang-Rhys factor");
    require(in.read(v.lam2(i)), in, f, what + "the state-2 reorganisation energy");
    require(in.read(v.order(i, 1)), in, f, what + "the state-1 mode number");
    require(in.read(v.order(i, 2)), in, f, what + "the state-2 mode number");
    // An imaginary frequency written as negative counts as real.
    warn_imaginary(f.name, in.line(), i, v.omegag(i), v.omegae(i),
                   "its absolute value is used as a real one");
    v.omegag(i) = std::fabs(v.omegag(i));
    v.omegae(i) = std::fabs(v.omegae(i));
  }
  if (!p.dushin) return;
  if (!search_word(f, 3, 19, "BEGIN_DUSH_DATA_1", line, kLine)) throw missing("BEGIN_DUSH_DATA_1");
  require_record(f, "the heading line after BEGIN_DUSH_DATA_1");
  read_matrix(f, v.n3, p.n3all, v.nmode, v.s1, "the first Duschinsky matrix");
  if (!search_word(f, 3, 19, "BEGIN_DUSH_DATA_2", line, kLine)) throw missing("BEGIN_DUSH_DATA_2");
  require_record(f, "the heading line after BEGIN_DUSH_DATA_2");
  read_matrix(f, v.n3, p.n3all, v.nmode, v.s2, "the second Duschinsky matrix");
}

// One field of a fixed-column record; columns beyond the record are blanks.
double f_field(const TextFile& t, const std::string& rec, int first, int width, int d,
               const std::string& what) {
  std::string field = pad(rec.size() >= static_cast<std::size_t>(first - 1)
                              ? std::string_view(rec).substr(first - 1, width)
                              : std::string_view(),
                          width);
  double x = 0.0;
  if (read_f(field, d, x) != LdStatus::ok)
    throw IoError(t.name, t.line_of_last(),
                  "expected " + what + " in columns " + std::to_string(first) + "-" +
                      std::to_string(first + width - 1) + ", found '" + field + "'");
  return x;
}

// The column layout: the frequency table and the matrix heading stand in the file of unit 2
// ("fort.2" in the working directory); only the matrix rows come from the data file.
void read_column_layout(const ParameterSet& p, DushinData& v, TextFile& f, TextFile& u2) {
  for (int k = 0; k < 9; ++k) require_record(u2, "the nine header lines of the frequency table");
  std::string rec;
  for (int i = 1; i <= v.nmode; ++i) {
    if (!read_record(u2, rec))
      throw IoError(
          u2.name, u2.line_of_last() + 1,
          "expected the frequency-table record of mode " + std::to_string(i) + " (end of file)");
    // (6X,F7.0,14X,F7.0,17X,F15.6)
    v.omegag(i) = f_field(u2, rec, 7, 7, 0, "the state-1 frequency");
    v.omegae(i) = f_field(u2, rec, 28, 7, 0, "the state-2 frequency");
    v.d1(i) = f_field(u2, rec, 52, 15, 6, "the dimensionless displacement");
    warn_imaginary(u2.name, u2.line_of_last(), i, v.omegag(i), v.omegae(i),
                   "it is used as it stands, and the displacement is then not a number");
    v.hr(i, 1) = sq(v.d1(i)) / 2.0;
    v.hr(i, 2) = v.hr(i, 1);
    // The second assignment overwrites the first; lam1 and lam2 are recomputed later.
    v.lam1(i) = v.omegag(i) * v.hr(i, 1) / au2cm;
    v.lam1(i) = v.omegae(i) * v.hr(i, 2) / au2cm;
    v.d1(i) = v.d1(i) / std::sqrt(v.omegae(i) / au2cm);
    v.d2(i) = v.d1(i);
    v.order(i, 1) = i + 6;
    v.order(i, 2) = i + 6;
  }
  if (!p.dushin) return;
  std::string line;
  for (;;) {
    if (!read_record(u2, line))
      throw IoError(u2.name, u2.line_of_last() + 1,
                    "expected a line beginning 'Dushin Matrix S' (end of file)");
    if (std::string_view(pad(line, 15)) == "Dushin Matrix S") break;
  }
  require_record(u2, "the line after 'Dushin Matrix S'");
  read_matrix(f, v.n3, p.n3all, v.nmode, v.s1, "the Duschinsky matrix");
}

}  // namespace

void readdushinout(const ParameterSet& p, DushinData& v, std::ostream& log) {
  TextFile f = open_text_file(std::string(rtrim(p.dsfile)));
  read_dushin(p, v, f, nullptr, log);
}

void read_dushin(const ParameterSet& p, DushinData& v, TextFile& f, TextFile* fort2,
                 std::ostream& log) {
  std::string line;
  if (!search_word(f, 9, 20, "num of modes", line, kLine)) throw missing("num of modes");
  {
    TextFile rec = text_file_from(f.name, {line});
    ListReader in(rec);
    if (in.read(v.n3) != LdStatus::ok)
      throw IoError(f.name, f.line_of_last(),
                    "expected the number of Cartesian coordinates in front of 'num of modes' (" +
                        in.message() + ")");
  }
  v.nmode = p.n3all ? v.n3 : v.n3 - 6;
  if (v.nmode <= 0)
    throw IoError(f.name, f.line_of_last(),
                  "expected a molecule with at least one vibrational mode, but 'num of modes' "
                  "gives " +
                      std::to_string(v.n3) + " coordinates" +
                      (p.n3all ? "" : " (the first six, translations and rotations, are dropped)"));

  allocatedushindata(v, p.nt);

  for (int j = 1; j <= v.nmode; ++j)
    for (int i = 1; i <= v.nmode; ++i) v.s1(i, j) = i == j ? 1.0 : 0.0;
  v.s2 = v.s1;

  if (p.mode != 0) {
    if (p.mode < 1 || p.mode > v.nmode) throw StopRun("mode should be 0,1,...,3n-6 ! Stop!\n", 0);
    std::fill(v.iscal.data.begin(), v.iscal.data.end(), 0);
    v.iscal(p.mode, p.mode) = 1;
  } else {
    std::fill(v.iscal.data.begin(), v.iscal.data.end(), 1);
  }

  if (p.dushtype == 1) {
    read_layout1(p, v, f);
  } else if (fort2) {
    read_column_layout(p, v, f, *fort2);
  } else {
    TextFile u2 = open_text_file("fort.2");
    read_column_layout(p, v, f, u2);
  }
  dushin_derive(p, v, log);
}

void dushin_derive(const ParameterSet& p, DushinData& v, std::ostream& log) {
  const int n = v.nmode;
  if (p.samefreq) {
    for (int i = 1; i <= n; ++i) {
      if (p.samemode == 1) {
        v.omegae(i) = v.omegag(i);
      } else if (p.samemode == 2) {
        v.omegag(i) = v.omegae(i);
      } else {
        v.omegag(i) = 0.5 * (v.omegae(i) + v.omegag(i));
        v.omegae(i) = v.omegag(i);
      }
    }
  }
  if (p.samed) {
    for (int i = 1; i <= n; ++i) {
      if (p.samemode == 1) {
        v.d2(i) = v.d1(i);
      } else if (p.samemode == 2) {
        v.d1(i) = v.d2(i);
      } else {
        v.d1(i) = 0.5 * (v.d1(i) + v.d2(i));
        v.d2(i) = v.d1(i);
      }
      v.hr(i, 1) = v.omegag(i) * sq(v.d1(i)) / 2.0 / au2cm;
      v.hr(i, 2) = v.omegae(i) * sq(v.d2(i)) / 2.0 / au2cm;
    }
  }
  for (int i = 1; i <= n; ++i) {
    v.omegag(i) = v.omegag(i) * p.freqscale / au2cm;
    v.omegae(i) = v.omegae(i) * p.freqscale / au2cm;
  }
  for (int i = 1; i <= n; ++i) {
    v.d1(i) = v.d1(i) * p.dscale;
    v.d2(i) = v.d2(i) * p.dscale;
  }
  for (int i = 1; i <= n; ++i) {
    v.hr(i, 1) = 0.5 * v.omegag(i) * sq(v.d1(i));
    v.hr(i, 2) = 0.5 * v.omegae(i) * sq(v.d2(i));
    v.lam1(i) = 0.5 * sq(v.omegag(i)) * sq(v.d1(i));
    v.lam2(i) = 0.5 * sq(v.omegae(i)) * sq(v.d2(i));
  }

  // Both tables list the modes from the largest |D| to the smallest.
  Matrix<std::int32_t> idx(n, 2);
  std::vector<double> key(n);
  for (int i = 1; i <= n; ++i) key[i - 1] = std::fabs(v.d1(i));
  indexx(n, key.data(), &idx(1, 1));
  for (int i = 1; i <= n; ++i) key[i - 1] = std::fabs(v.d2(i));
  indexx(n, key.data(), &idx(1, 2));
  reverse_order(n, &idx(1, 1));
  reverse_order(n, &idx(1, 2));

  log << " Calculate D1:\n";
  // (a10,4a20)
  log << fmt_a("imode", 10) << fmt_a("Freq(cm-1)", 20) << fmt_a("D(a.u.)", 20)
      << fmt_a("Huang_Rhys", 20) << fmt_a("Reog. Energy(cm-1)", 20) << '\n';
  for (int state = 1; state <= 2; ++state) {
    if (state == 2) log << " Calculate D2:\n";
    const Vector<double>& w = state == 1 ? v.omegag : v.omegae;
    const Vector<double>& dd = state == 1 ? v.d1 : v.d2;
    const Vector<double>& lam = state == 1 ? v.lam1 : v.lam2;
    int count = 0;
    for (int k = 1; k <= n; ++k) {
      int i = idx(k, state);
      if (std::fabs(dd(i)) >= p.dmin[state - 1]) {
        // (i10,4f20.7)
        log << fmt_i(i, 10) << fmt_f(w(i) * au2cm, 20, 7) << fmt_f(dd(i), 20, 7)
            << fmt_f(v.hr(i, state), 20, 7) << fmt_f(lam(i) * au2cm, 20, 7) << '\n';
        ++count;
      }
    }
    // (" Total number is :",i10)
    log << " Total number is :" << fmt_i(count, 10) << '\n';
  }

  v.d = p.d12 == 1 ? v.d1 : v.d2;
  v.s = p.dush12 == 1 ? v.s1 : v.s2;

  v.lamt1 = v.lamt2 = 0.0;
  v.e00 = p.ead;
  v.de00 = 0.0;
  double zpe1 = 0.0, zpe2 = 0.0;
  for (int i = 1; i <= n; ++i) {
    v.lam1(i) = 0.5 * sq(v.omegag(i) * v.d1(i));
    v.lam2(i) = 0.5 * sq(v.omegae(i) * v.d2(i));
    v.lamt1 += v.lam1(i);
    v.lamt2 += v.lam2(i);
    zpe1 += 0.5 * v.omegag(i);
    zpe2 += 0.5 * v.omegae(i);
    v.de00 += 0.5 * (v.omegae(i) - v.omegag(i));
    // (i4,4f15.7)
    log << fmt_i(i, 4) << fmt_f(v.d1(i), 15, 7) << fmt_f(v.d2(i), 15, 7)
        << fmt_f(v.d1(i) + v.d2(i), 15, 7) << fmt_f(v.s(i, i), 15, 7) << '\n';
  }
  v.e00 = v.e00 + v.de00;

  auto energy = [&log](const char* text, double hartree) {
    log << text << fmt_f(hartree * au2cm, 17, 5) << " cm-1\n\n";
  };
  energy(" Adiabatic Energy             is: ", p.ead);
  energy(" Zero point energy of state 1 is: ", zpe1);
  energy(" Zero point energy of state 2 is: ", zpe2);
  energy(" E0-0                         is: ", v.e00);
  energy(" DE0-0                        is: ", v.de00);
  energy(" Reorganiztion Energy 1       is: ", v.lamt1);
  energy(" Reorganiztion Energy 2       is: ", v.lamt2);
  energy(" Vertical Energy      1       is: ", p.ead + v.lamt2);
  energy(" Vertical Energy      2       is: ", p.ead - v.lamt1);

  // invz2 is filled only later by the run; this product is recomputed before any use.
  rdetm(v.invz2.data(), n, v.invz2det);
}

}  // namespace ictvcf
