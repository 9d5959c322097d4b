// libFuzzer entry point for the dushin_file harness.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, unsigned long size) {
  ictvcf::fuzz::dushin_file(data, size);
  return 0;
}
