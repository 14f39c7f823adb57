#include "tools/qrt/processor.h"

namespace qrt_tool {

std::string missing_instructions(const std::string& kernel) {
  if (kernel.find("AVX") != std::string::npos && __builtin_cpu_supports("avx") == 0) return "AVX";
  return "";
}

}  // namespace qrt_tool
