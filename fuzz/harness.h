// The fuzzing harnesses: each feeds arbitrary bytes to one reader and accepts every described
// outcome (a stop with its message, an input/output error, an allocation failure). Anything
// else, a crash, an out-of-range access, undefined behaviour or a hang, is a finding. The same
// functions replay the kept findings in the test suite.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ictvcf::fuzz {

// The parameter block: extraction from an input file, name-list reading, run preparation.
void input_block(const std::uint8_t* data, std::size_t size);

// The Duschinsky file in both layouts. The first byte chooses the options (layout, n3all,
// dushin, mode, samefreq/samed); the rest is the data file, and for the column layout the part
// after a line "====" is the frequency file of unit 2.
void dushin_file(const std::uint8_t* data, std::size_t size);

// The coupling file in both layouts, for a store of up to 16 modes whose size, numbering and
// options come from the first two bytes.
void coupling_file(const std::uint8_t* data, std::size_t size);

// Sets up what every harness needs once: a scratch working directory and a memory cap.
void prepare_process();

}  // namespace ictvcf::fuzz
