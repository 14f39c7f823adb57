#include "fuzz/targets.h"
#include "qrt_toolkit/import_onnx.h"

// Reads its input as an ONNX file and imports it, with the kernels that define what it computes.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const marlo::fuzz::ScratchFile file(".onnx");
  file.write(data, size);
  marlo::fuzz::Library::get();
  marlo::toolkit::ImportOptions options;
  options.kernels = marlo::toolkit::KernelSet::portable;
  marlo::fuzz::accepted([&] { marlo::toolkit::import_onnx(file.path(), options); });
  return 0;
}
