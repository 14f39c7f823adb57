#pragma once

#include "qrt_toolkit/watch/profiler.h"

// Where the time of a pass goes, as the toolkit measures it.

namespace qrt_tool {

using marlo::toolkit::median;
using marlo::toolkit::Profile;
using marlo::toolkit::Profiler;
using marlo::toolkit::ProfileRow;
using marlo::toolkit::Stopwatch;
using marlo::toolkit::Times;

}  // namespace qrt_tool
