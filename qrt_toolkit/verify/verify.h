#pragma once

#include "qrt_toolkit/import_stages.h"
#include "qrt_toolkit/verify_import.h"

namespace marlo::toolkit {

/// Runs an imported network beside the graph that it was imported from; see `import_and_verify`. The
/// model is the same afterwards.
Verification verify_stages(ImportStages& stages, const VerifyOptions& verify);

}  // namespace marlo::toolkit
