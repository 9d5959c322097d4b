// libFuzzer entry point for the input_block harness.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, unsigned long size) {
  ictvcf::fuzz::input_block(data, size);
  return 0;
}
