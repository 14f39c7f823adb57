#pragma once

#include "qrt_core/runtime/engine/net.h"

namespace marlo::toolkit {

/// Has every kernel of a network forget what it carries from pass to pass, as recurrent ones do. A
/// converter that refused its place is passed over: the next pass says what is wrong with it.
void reset_states(const runtime::Net& net);

}  // namespace marlo::toolkit
