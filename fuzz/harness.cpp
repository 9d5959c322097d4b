#include "harness.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <string>

#include "coupling/dipole.h"
#include "coupling/getrlk.h"
#include "input/read_input.h"
#include "prepare/dipole_files.h"
#include "prepare/modes.h"
#include "prepare/qc_files.h"
#include "prepare/soc_files.h"
#include "run/prepare_data.h"
#include "util/errors.h"
#include "util/memory.h"
#include "util/text_file.h"
#include "vibronic/read_dush.h"

namespace ictvcf::fuzz {

namespace {

// Runs one reader; the described outcomes are all fine.
template <class F>
void outcome(F body) {
  try {
    body();
  } catch (const StopRun&) {
  } catch (const IoError&) {
  } catch (const FatalError&) {
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

void prepare_process() {
  static bool done = false;
  if (done) return;
  done = true;
  char dir[] = "/tmp/ictvcf-fuzz-XXXXXX";
  if (mkdtemp(dir)) std::filesystem::current_path(dir);
  set_memory_limit_bytes(std::size_t{512} << 20);
}

void input_block(const std::uint8_t* data, std::size_t size) {
  prepare_process();
  {
    std::ofstream out("in.inp", std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  ParameterSet p;
  Units units;
  outcome([&] {
    init(p);
    readinput(p, units, "in.inp", ".input.convert", "&ic_tvcf", "/");
    prepare_data(p);
  });
  for (const char* f : {"in.inp", ".in.inp", ".in.inp_tmp", ".input.convert"}) std::remove(f);
}

void dushin_file(const std::uint8_t* data, std::size_t size) {
  prepare_process();
  if (size == 0) return;
  const std::uint8_t opt = data[0];
  std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  ParameterSet p;
  p.dushtype = (opt & 1) ? 1 : 2;
  p.n3all = opt & 2;
  p.dushin = !(opt & 4);
  p.mode = (opt >> 3) & 3;
  p.samefreq = opt & 32;
  p.samed = opt & 64;
  p.samemode = (opt >> 7) + 1;
  p.dsfile = pad("dushin.dat", 200);
  std::string fort2_bytes;
  if (std::size_t cut = bytes.find("\n====\n"); cut != std::string::npos) {
    fort2_bytes = bytes.substr(cut + 6);
    bytes.resize(cut + 1);
  }
  TextFile f = text_file_from_bytes("dushin.dat", bytes);
  TextFile fort2 = text_file_from_bytes("fort.2", fort2_bytes);
  DushinData v;
  std::ostringstream log;
  outcome([&] { read_dushin(p, v, f, &fort2, log); });
}

void coupling_file(const std::uint8_t* data, std::size_t size) {
  prepare_process();
  if (size < 2) return;
  const std::uint8_t a = data[0], b = data[1];
  ParameterSet p;
  p.n3all = a & 1;
  p.evert = (a & 2) ? 0.0 : 0.1;
  DushinData v;
  v.nmode = 1 + ((a >> 2) & 15);
  v.n3 = p.n3all ? v.nmode : v.nmode + 6;
  allocatedushindata(v, 0);
  // A numbering that is a rotation of the modes, sometimes pointing outside the list.
  for (int i = 1; i <= v.nmode; ++i) {
    int k = (i - 1 + b % v.nmode) % v.nmode + 1;
    if ((b & 0x80) && i == v.nmode) k = v.nmode + 1 + (b & 3);
    v.order(i, 1) = v.order(i, 2) = p.n3all ? k : k + 6;
  }
  TextFile f = text_file_from_bytes("nacme.dat",
                                    std::string(reinterpret_cast<const char*>(data + 2), size - 2));
  std::ostringstream log;
  outcome([&] { getrlk(p, v, f, 0, log); });
}

namespace {

std::string rest(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data + 1), size - 1);
}

template <class Parse>
void qc_state(const std::uint8_t* data, std::size_t size, const char* name, Parse parse) {
  prepare_process();
  if (size == 0) return;
  const TextFile f = text_file_from_bytes(name, rest(data, size));
  outcome([&] {
    const QcState s = checked_state(parse(f), data[0] & 1);
    if (s.natoms() <= 40) prepare_pair(s, s, nullptr);
  });
}

template <class Parse>
void coupling(const std::uint8_t* data, std::size_t size, const char* name, Parse parse) {
  prepare_process();
  if (size == 0) return;
  const int natoms = 1 + (data[0] & 63);
  const NacGeometry at = (data[0] & 64) ? NacGeometry::initial_state : NacGeometry::unknown;
  const TextFile f = text_file_from_bytes(name, rest(data, size));
  outcome([&] { parse(f, natoms, at); });
}

}  // namespace

void fchk_file(const std::uint8_t* data, std::size_t size) {
  qc_state(data, size, "state.fchk", parse_fchk);
}

void orca_hess_file(const std::uint8_t* data, std::size_t size) {
  qc_state(data, size, "state.hess", parse_orca_hess);
}

void orca_output(const std::uint8_t* data, std::size_t size) {
  coupling(data, size, "nac.out",
           [](const TextFile& f, int n, NacGeometry at) { parse_orca_nac(f, n, at); });
}

void plain_coupling(const std::uint8_t* data, std::size_t size) {
  coupling(data, size, "nac.txt",
           [](const TextFile& f, int n, NacGeometry) { parse_plain_nac(f, n); });
}

void dipole_tables(const std::uint8_t* data, std::size_t size) {
  prepare_process();
  if (size == 0) return;
  const TextFile f = text_file_from_bytes("dipole.out", rest(data, size));
  const int root = 1 + ((data[0] >> 1) & 3);
  outcome([&] {
    if (data[0] & 8)
      parse_orca_soc(f, root, (data[0] >> 4) & 3);
    else if (data[0] & 1)
      parse_fchk_dipole(f, root);
    else
      parse_orca_dipole(f, root);
  });
}

void dipole_file(const std::uint8_t* data, std::size_t size) {
  prepare_process();
  TextFile f =
      text_file_from_bytes("dipole.dat", std::string(reinterpret_cast<const char*>(data), size));
  outcome([&] { read_dipole_file(f); });
}

}  // namespace ictvcf::fuzz
