#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  marlo::fuzz::read_legacy(data, size);
  return 0;
}
