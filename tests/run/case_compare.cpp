#include "run/case_compare.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "test_support.h"

namespace ictvcf::testing {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> r;
  std::stringstream ss(text);
  std::string l;
  while (std::getline(ss, l)) r.push_back(l);
  return r;
}

// Reads a table value; three-digit exponents are written without the letter E.
double parse_value(const std::string& field) {
  std::string t;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const char c = field[i];
    // a sign after the mantissa is the exponent's
    if ((c == '+' || c == '-') && !t.empty() && t.back() != 'E' && t.back() != 'e') t += 'E';
    if (c != ' ') t += c;
  }
  return std::strtod(t.c_str(), nullptr);
}

struct Table {
  std::vector<std::string> times;  // text tables only
  std::vector<double> re, im;
  std::int64_t nt = 0;
  double dt = 0.0;
  std::string header;
};

bool read_binary(const std::string& data, Table& t, std::string& why) {
  std::size_t pos = 0;
  std::vector<std::string> recs;
  while (pos < data.size()) {
    std::int32_t n = 0, m = 0;
    if (pos + 4 > data.size()) return why = "truncated record marker", false;
    std::memcpy(&n, data.data() + pos, 4);
    if (n < 0 || pos + 8 + static_cast<std::size_t>(n) > data.size())
      return why = "truncated record", false;
    std::memcpy(&m, data.data() + pos + 4 + n, 4);
    if (m != n) return why = "record markers differ", false;
    recs.push_back(data.substr(pos + 4, n));
    pos += 8 + n;
  }
  if (recs.size() < 2 || recs[0].size() != 8 || recs[1].size() != 8)
    return why = "missing nt/dt records", false;
  std::memcpy(&t.nt, recs[0].data(), 8);
  std::memcpy(&t.dt, recs[1].data(), 8);
  for (std::size_t i = 2; i < recs.size(); ++i) {
    if (recs[i].size() != 16) return why = "value record of wrong size", false;
    double v[2];
    std::memcpy(v, recs[i].data(), 16);
    t.re.push_back(v[0]);
    t.im.push_back(v[1]);
  }
  return true;
}

bool read_text(const std::string& data, Table& t, std::string& why) {
  std::vector<std::string> ls = lines_of(data);
  if (ls.empty()) return why = "empty table", false;
  t.header = ls[0];
  for (std::size_t i = 1; i < ls.size(); ++i) {
    if (ls[i].size() < 54) return why = "short line " + std::to_string(i + 1), false;
    t.times.push_back(ls[i].substr(0, 14));
    t.re.push_back(parse_value(ls[i].substr(20, 16)));
    t.im.push_back(parse_value(ls[i].substr(38, 16)));
  }
  return true;
}

bool is_binary(const std::string& data) {
  return data.substr(0, 4096).find('\0') != std::string::npos;
}

}  // namespace

std::string strip_stamp(const std::string& line) {
  // "Begin:  " or "End:    " then yyyy-mm-dd hh:mm:ss.mmm
  const std::string pattern = "dddd-dd-dd dd:dd:dd.ddd";
  for (const char* label : {"Begin:  ", "End:    "}) {
    const std::string head(label);
    if (line.size() != head.size() + pattern.size() || line.compare(0, head.size(), head) != 0)
      continue;
    bool stamp = true;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
      const char c = line[head.size() + i];
      stamp = stamp && (pattern[i] == 'd' ? c >= '0' && c <= '9' : c == pattern[i]);
    }
    if (stamp) {
      std::string masked = head;
      masked += "<stamp>";
      return masked;
    }
  }
  return line;
}

namespace {}  // namespace

TableCompare compare_tables(const std::string& expected_path, const std::string& actual_path,
                            double rtol, double t0_rtol) {
  TableCompare r;
  std::string e = read_file(expected_path), a = read_file(actual_path);
  Table te, ta;
  const bool binary = is_binary(e);
  if (binary != is_binary(a)) return r.why = "one table is binary, the other text", r;
  bool ok = binary ? read_binary(e, te, r.why) && read_binary(a, ta, r.why)
                   : read_text(e, te, r.why) && read_text(a, ta, r.why);
  if (!ok) return r;
  if (te.header != ta.header) return r.why = "header differs", r;
  if (te.nt != ta.nt || te.dt != ta.dt) return r.why = "nt or dt differs", r;
  if (te.re.size() != ta.re.size()) return r.why = "number of rows differs", r;
  if (te.times != ta.times) return r.why = "time column differs", r;
  double scale = 0.0;
  for (std::size_t i = 0; i < te.re.size(); ++i)
    scale = std::max({scale, std::fabs(te.re[i]), std::fabs(te.im[i])});
  if (scale == 0.0) scale = 1e-300;
  const std::size_t middle = te.re.size() / 2;
  for (std::size_t i = 0; i < te.re.size(); ++i) {
    const double tol = i == middle ? t0_rtol : rtol;
    for (double d : {te.re[i] - ta.re[i], te.im[i] - ta.im[i]}) {
      const double scaled = std::isnan(d) ? INFINITY : std::fabs(d) / scale;
      if (i != middle) r.worst = std::max(r.worst, scaled);
      if (scaled > tol) {
        r.why = "row " + std::to_string(i + 1) + " differs by " + std::to_string(scaled) +
                " of the largest value";
        return r;
      }
    }
  }
  r.ok = true;
  return r;
}

std::vector<std::string> check_case(const std::string& exe, const std::string& case_dir,
                                    double rtol, double t0_rtol, const std::string& launcher) {
  std::vector<std::string> problems;
  ScratchDir dir;
  std::vector<std::string> inputs;
  for (const auto& ent : fs::directory_iterator(case_dir)) {
    const std::string name = ent.path().filename().string();
    if (ent.is_regular_file() && name != "cmd") {
      fs::copy_file(ent.path(), name);
      inputs.push_back(name);
    }
  }
  std::string arg = lines_of(read_file(case_dir + "/cmd")).at(0);
  const std::string command =
      launcher + " '" + exe + "' '" + arg + "' >.case-stdout 2>.case-stderr";
  const int raw = std::system(command.c_str());
  const int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  const std::string out = read_file(".case-stdout"), err = read_file(".case-stderr");
  fs::remove(".case-stdout");
  fs::remove(".case-stderr");

  const std::string exp = case_dir + "/expected/";
  const int want_status = std::stoi(read_file(exp + "status.txt"));
  if (status != want_status)
    problems.push_back("exit status " + std::to_string(status) + ", expected " +
                       std::to_string(want_status) + " (stderr: " + err + ")");
  if (out != read_file(exp + "stdout.txt")) problems.push_back("standard output differs:\n" + out);
  std::vector<std::string> left;
  for (const std::string& f : dot_files())
    if (std::find(inputs.begin(), inputs.end(), f) == inputs.end()) left.push_back(f);
  std::vector<std::string> want_left = lines_of(read_file(exp + "leftovers.txt"));
  want_left.erase(std::remove(want_left.begin(), want_left.end(), ""), want_left.end());
  std::sort(want_left.begin(), want_left.end());
  if (left != want_left) problems.push_back("leftover dot-files differ");

  for (const auto& ent : fs::directory_iterator(exp)) {
    const std::string name = ent.path().filename().string();
    if (name == "status.txt" || name == "stdout.txt" || name == "leftovers.txt") continue;
    if (!exists(name)) {
      problems.push_back(name + " was not written");
      continue;
    }
    const std::string e = read_file(ent.path().string());
    const std::size_t first = e.find_first_not_of(' ');
    if (is_binary(e) || (first != std::string::npos && e.compare(first, 9, "#time(fs)") == 0)) {
      TableCompare t = compare_tables(ent.path().string(), name, rtol, t0_rtol);
      if (!t.ok) problems.push_back(name + ": " + t.why);
      continue;
    }
    std::vector<std::string> el = lines_of(e), al = lines_of(read_file(name));
    for (std::size_t i = 0; i < std::max(el.size(), al.size()); ++i) {
      std::string x = i < el.size() ? strip_stamp(el[i]) : "<none>";
      std::string y = i < al.size() ? strip_stamp(al[i]) : "<none>";
      if (x != y) {
        problems.push_back(name + " line " + std::to_string(i + 1) + ": expected |" + x +
                           "| got |" + y + "|");
        break;
      }
    }
    if (e != read_file(name) && problems.empty() && el.size() == al.size()) {
      // Same lines but different bytes (line ends): only acceptable if stamps differ.
      bool stamps_only = true;
      for (std::size_t i = 0; i < el.size(); ++i)
        if (el[i] != al[i] && strip_stamp(el[i]) == el[i]) stamps_only = false;
      if (!stamps_only) problems.push_back(name + " differs in its line ends");
    }
  }
  return problems;
}

}  // namespace ictvcf::testing
