#include <cstdio>

#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/verify_import.h"

// Imports the network of a file beside its source, and says what it is; without a file, what can be
// imported.

int main(int argc, char** argv) {
  if (argc < 2) {
    const auto operators = marlo::toolkit::supported_operators();
    std::printf("%s\n", operators.size() > 100 ? "many operators" : "few operators");
    return 0;
  }
  try {
    const auto result = marlo::toolkit::import_and_verify(argv[1]);
    const auto& report = result.imported.report;
    std::printf("%s: %zu layers compared, %s\n", report.network.c_str(),
                result.verification.layers.size(),
                result.verification.first_beyond() == nullptr ? "all agree" : "some differ");
  } catch (const marlo::toolkit::ImportError& error) {
    std::printf("refused: %s\n", error.what());
  }
  return 0;
}
