#pragma once

#include <cstddef>
#include <string>

#include "qrt_toolkit/explain/explain.h"

// The parts of the page.

namespace marlo::toolkit {

/// A text as content or attribute of an element: names come out of files.
std::string html_text(const std::string& text);

/// A number with so many decimals.
std::string html_number(double number, int decimals);

/// "12.5 %"
std::string html_percent(double share);

/// The class of a kind of layers, which has its colour: the most expensive kinds have colours of
/// their own.
/// @param kind a layer's, or "converter"
std::string kind_class(const Explanation& explanation, const std::string& kind);

/// The kind under which a layer is counted.
const std::string& counted_kind(const ExplainedLayer& layer);

/// A pass from left to right, each kernel as wide as it is long.
std::string html_timeline(const Explanation& explanation);

/// GFLOP/s over operations a byte, both logarithmic, beneath the roofs of the machine.
std::string html_intensity(const Explanation& explanation);

/// The style sheet.
const char* html_style();

}  // namespace marlo::toolkit
