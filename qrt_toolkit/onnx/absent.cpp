#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/verify_import.h"

// In place of the import, in builds without what reads ONNX files.

namespace marlo::toolkit {
namespace {

[[noreturn]] void throw_absent() {
  throw FileError("this build can't read ONNX files",
                  "build with -DQRT_WITH_ONNX=ON, which needs libonnx-dev and libprotobuf-dev");
}

}  // namespace

bool can_read_onnx() noexcept { return false; }

ImportedModel import_onnx(const std::string&, const ImportOptions&) { throw_absent(); }

std::vector<OperatorSupport> supported_operators() { throw_absent(); }

VerifiedImport import_and_verify(const std::string&, const ImportOptions&, const VerifyOptions&) {
  throw_absent();
}

}  // namespace marlo::toolkit
