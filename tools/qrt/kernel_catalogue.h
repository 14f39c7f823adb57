#pragma once

#include <string>

namespace qrt_tool {

/// What the catalogue of the documents says about a kernel. Texts are empty for one that it doesn't
/// hold.
struct CatalogueEntry {
  std::string accepts;    ///< of a layer's description
  std::string in;         ///< layouts of the inputs
  std::string out;        ///< layouts of the outputs
  std::string differs;    ///< from its siblings
  std::string agreement;  ///< with the portable kernel
};

CatalogueEntry catalogue_entry(const std::string& kernel);

}  // namespace qrt_tool
