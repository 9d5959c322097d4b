// libFuzzer entry point of one harness, chosen when it is built (ICTVCF_FUZZ_TARGET).
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, unsigned long size) {
  ictvcf::fuzz::ICTVCF_FUZZ_TARGET(data, size);
  return 0;
}
