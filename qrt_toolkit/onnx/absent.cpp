#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/onnx/read.h"

// In place of the reader, in builds without it.

namespace marlo::toolkit {
namespace {

[[noreturn]] void throw_absent() {
  throw FileError("this build can't read ONNX files",
                  "build with -DQRT_WITH_ONNX=ON, which needs libonnx-dev and libprotobuf-dev");
}

}  // namespace

bool can_read_onnx() noexcept { return false; }

OnnxModel read_onnx(const std::filesystem::path&) { throw_absent(); }

Constant read_onnx_tensor(const std::filesystem::path&) { throw_absent(); }

}  // namespace marlo::toolkit
