#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"

// Which kernel runs which layer of a network of the earlier generation, which doesn't say it.

namespace qrt_tool {

/// The kernels of layers that no rule names.
enum class OldKernelSet {
  portable,
  sse,  ///< SSE kernels over planes whose results agree with the portable ones; else portable
};

/// The set for a word, "portable" or "sse".
/// @return whether there is one
bool kernel_set_for(const std::string& word, OldKernelSet& set);

/// One line of a rules file.
struct KernelRule {
  size_t line = 0;
  std::string key;                   ///< "Conv2d", "Activation 3" or "layer-12"
  std::vector<std::string> kernels;  ///< the first that takes the layer runs it
};

/// A rules file:
///
/// @code{.unparsed}
/// # the rest of a line is a comment
/// default = sse
/// MaxPool2d = Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1, Pooling2D_Max_Fallback_Float_M1
/// Activation 3 = HSwish_SSE_Float_M1
/// layer-12 = TanH_SSE_Float_M1
/// @endcode
class KernelRules {
 public:
  KernelRules() = default;

  /// @throws ToolError (kInputError), naming the file and the line
  explicit KernelRules(const std::string& path);

  /// The rule for a layer: that of its id, else that of its activation, else that of its type; null
  /// if there is none.
  const KernelRule* rule_for(const marlo::runtime::LayerInfo& info) const;

  /// "rules.txt: line 3: "
  std::string place_of(const KernelRule& rule) const;

  OldKernelSet set() const { return set_; }
  const std::vector<KernelRule>& rules() const { return rules_; }

 private:
  void parse_line(const std::string& text, size_t line);
  const KernelRule* find(const std::string& key) const;
  [[noreturn]] void refuse(size_t line, const std::string& why) const;

  std::string path_;
  OldKernelSet set_ = OldKernelSet::portable;
  bool has_set_ = false;
  std::vector<KernelRule> rules_;
};

/// Whether a key is the id of a layer rather than a type.
bool is_layer_key(const std::string& key);

}  // namespace qrt_tool
