// libFuzzer entry point for the coupling_file harness.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, unsigned long size) {
  ictvcf::fuzz::coupling_file(data, size);
  return 0;
}
