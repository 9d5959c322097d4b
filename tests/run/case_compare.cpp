#include "run/case_compare.h"

#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "test_support.h"

namespace ictvcf::testing {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> r;
  std::stringstream ss(text);
  for (std::string l; std::getline(ss, l);) r.push_back(l);
  return r;
}

bool is_binary(const std::string& data) {
  return data.substr(0, 4096).find('\0') != std::string::npos;
}

// A table's head (the header line, or the nt and dt records), its time column (text only) and its
// values. Text rows are (F14.5,6X,E16.9,2X,E16.9), three-digit exponents written without the E;
// a binary table is sequential records, each with its byte count before and after.
struct Table {
  std::string head;
  std::vector<std::string> times;
  std::vector<double> values;  // re, im of each row
};

double parse_value(const std::string& field) {
  std::string t;
  for (char c : field) {
    if ((c == '+' || c == '-') && !t.empty() && t.back() != 'E') t += 'E';
    if (c != ' ') t += c;
  }
  return std::strtod(t.c_str(), nullptr);
}

std::string read_table(const std::string& data, Table& t) {
  if (!is_binary(data)) {
    const std::vector<std::string> ls = lines_of(data);
    if (ls.empty()) return "empty table";
    t.head = ls[0];
    for (std::size_t i = 1; i < ls.size(); ++i) {
      if (ls[i].size() < 54) return "short line " + std::to_string(i + 1);
      t.times.push_back(ls[i].substr(0, 14));
      t.values.push_back(parse_value(ls[i].substr(20, 16)));
      t.values.push_back(parse_value(ls[i].substr(38, 16)));
    }
    return "";
  }
  for (std::size_t pos = 0, k = 0; pos < data.size(); ++k) {
    std::int32_t n = 0, m = -1;
    std::memcpy(&n, data.data() + pos, std::min<std::size_t>(4, data.size() - pos));
    if (n < 0 || pos + 8 + static_cast<std::size_t>(n) > data.size()) return "truncated record";
    std::memcpy(&m, data.data() + pos + 4 + n, 4);
    if (m != n || n != (k < 2 ? 8 : 16)) return "bad record " + std::to_string(k + 1);
    if (k < 2) t.head += data.substr(pos + 4, n);
    for (int v = 0; k >= 2 && v < 2; ++v) {
      double x;
      std::memcpy(&x, data.data() + pos + 4 + 8 * v, 8);
      t.values.push_back(x);
    }
    pos += 8 + n;
  }
  return t.head.size() == 16 ? "" : "missing nt and dt records";
}

std::string compare_tables(const std::string& expected, const std::string& actual, double rtol,
                           double t0_rtol) {
  if (is_binary(expected) != is_binary(actual)) return "one table is binary, the other text";
  Table e, a;
  if (std::string why = read_table(expected, e); !why.empty()) return "expected: " + why;
  if (std::string why = read_table(actual, a); !why.empty()) return why;
  if (e.head != a.head) return "header (or nt, dt) differs";
  if (e.values.size() != a.values.size()) return "number of rows differs";
  if (e.times != a.times) return "time column differs";
  double scale = 1e-300;
  for (double x : e.values) scale = std::max(scale, std::fabs(x));
  const std::size_t middle = e.values.size() / 4;  // the t = 0 row
  for (std::size_t i = 0; i < e.values.size(); ++i) {
    const double d = std::fabs(e.values[i] - a.values[i]) / scale;
    if (!(d <= (i / 2 == middle ? t0_rtol : rtol)))
      return "row " + std::to_string(i / 2 + 1) + " differs by " + std::to_string(d) +
             " of the largest value";
  }
  return "";
}

}  // namespace

// The values of the "Begin:" and "End:" time stamps masked, their place and layout kept.
std::string mask_stamps(const std::string& text) {
  static const std::regex stamp(R"((Begin:  |End:    )\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\n)");
  return is_binary(text) ? text : std::regex_replace(text, stamp, "$1<stamp>\n");
}

std::map<std::string, std::string> run_case(const std::string& exe, const std::string& case_dir,
                                            const std::string& launcher) {
  std::vector<std::string> inputs{".case-stdout"};
  ScratchDir dir;
  for (const auto& ent : fs::directory_iterator(case_dir))
    if (ent.is_regular_file() && ent.path().filename() != "cmd") {
      fs::copy_file(ent.path(), ent.path().filename());
      inputs.push_back(ent.path().filename().string());
    }
  const std::string arg = lines_of(read_file(case_dir + "/cmd")).at(0);
  const int raw =
      std::system((launcher + " '" + exe + "' '" + arg + "' >.case-stdout 2>/dev/null").c_str());
  std::map<std::string, std::string> out{
      {"<status>", std::to_string(WIFEXITED(raw) ? WEXITSTATUS(raw) : -1)},
      {"<stdout>", read_file(".case-stdout")}};
  for (const std::string& f : dot_files())
    if (std::find(inputs.begin(), inputs.end(), f) == inputs.end()) out["<leftovers>"] += f + "\n";
  for (const auto& ent : fs::directory_iterator("."))
    if (std::find(inputs.begin(), inputs.end(), ent.path().filename()) == inputs.end())
      out[ent.path().filename().string()] = mask_stamps(read_file(ent.path().string()));
  return out;
}

std::vector<std::string> check_case(const std::string& exe, const std::string& case_dir) {
  constexpr double rtol = 1e-8, t0_rtol = 1e-5;
  std::vector<std::string> problems;
  std::map<std::string, std::string> run = run_case(exe, case_dir);
  const std::string exp = case_dir + "/expected/";
  if (run["<status>"] != lines_of(read_file(exp + "status.txt")).at(0))
    problems.push_back("exit status " + run["<status>"]);
  if (run["<stdout>"] != read_file(exp + "stdout.txt"))
    problems.push_back("standard output differs:\n" + run["<stdout>"]);
  std::vector<std::string> want_left;
  for (const std::string& f : lines_of(read_file(exp + "leftovers.txt")))
    if (!f.empty()) want_left.push_back(f);
  std::sort(want_left.begin(), want_left.end());
  if (lines_of(run["<leftovers>"]) != want_left) problems.push_back("leftover dot-files differ");

  for (const auto& ent : fs::directory_iterator(exp)) {
    const std::string name = ent.path().filename().string();
    if (name == "status.txt" || name == "stdout.txt" || name == "leftovers.txt") continue;
    if (!run.count(name)) {
      problems.push_back(name + " was not written");
      continue;
    }
    const std::string e = mask_stamps(read_file(ent.path().string())), &a = run[name];
    const std::size_t first = e.find_first_not_of(' ');
    if (is_binary(e) || (first != std::string::npos && e.compare(first, 9, "#time(fs)") == 0)) {
      if (std::string why = compare_tables(e, a, rtol, t0_rtol); !why.empty())
        problems.push_back(name + ": " + why);
      continue;
    }
    const std::vector<std::string> el = lines_of(e), al = lines_of(a);
    for (std::size_t i = 0; i < std::max(el.size(), al.size()) && e != a; ++i)
      if (i >= el.size() || i >= al.size() || el[i] != al[i]) {
        problems.push_back(name + " line " + std::to_string(i + 1) + ": expected |" +
                           (i < el.size() ? el[i] : "") + "| got |" + (i < al.size() ? al[i] : "") +
                           "|");
        break;
      }
    if (e != a && el == al) problems.push_back(name + " differs in its line ends");
  }
  return problems;
}

}  // namespace ictvcf::testing
