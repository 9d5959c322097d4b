// Loading a case directory into the two stores and the engine's inputs, for engine tests.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "engine/engine.h"
#include "input/inputfile.h"
#include "run/run.h"
#include "test_support.h"
#include "util/files.h"
#include "vibronic/dushindata.h"

namespace ictvcf::testing {

struct Loaded {
  ParameterSet p;
  DushinData v;
  EngineInputs in;
};

// Reads the case's input file and data files as a run does (in a scratch copy), and forms the
// thermal factors. `extra_lines` are added to the input block before the run reads it.
inline Loaded load_case(const std::string& dir, const std::string& input = "ic.inp",
                        const std::string& extra_lines = "") {
  ScratchDir scratch;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    if (e.is_regular_file()) std::filesystem::copy_file(e.path(), e.path().filename());
  if (!extra_lines.empty()) {
    std::string text = read_file(input);
    text.insert(text.find("&ic_tvcf") + 9, extra_lines);
    write_file(input, text);
  }
  Loaded l;
  Units units;
  std::ofstream log;
  read_run_data(input, l.p, l.v, units, log);
  thermal_factors(l.p, l.v);
  l.in = engine_inputs(l.p, l.v);
  return l;
}

}  // namespace ictvcf::testing
