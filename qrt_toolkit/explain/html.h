#pragma once

#include <string>

#include "qrt_core/utility/export.h"
#include "qrt_toolkit/explain/explain.h"

namespace marlo::toolkit {

/// An explanation as one page of HTML that needs nothing else, neither a network nor scripts: the
/// pass as a timeline to scale, each layer against its limit, arithmetic intensity, and the
/// candidates of each layer on demand. Everything that a chart shows stands in a table too.
/// @param title of the page, such as the model's name
QRT_API std::string explain_html(const Explanation& explanation, const std::string& title);

}  // namespace marlo::toolkit
