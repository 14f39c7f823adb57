#include "tools/qrt/old_network.h"

#include <set>
#include <utility>
#include <vector>

#include "qrt_core/utility/build_options.h"
#include "tools/qrt/description_fit.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/kernel_candidates.h"
#include "tools/qrt/layer_facts.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/processor.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::FullConnectionInfo;
using marlo::runtime::LayerCfg;
using marlo::runtime::LayerInfo;
using marlo::runtime::QRModelCfg;
using marlo::runtime::QRModelInfo;
using marlo::runtime::TensorReshapeInfo;

namespace {

constexpr char kFlattenKernel[] = "Reshape_Fallback_To_C_M1";

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

/// Walks a network and gives each layer its kernel.
class Configurator {
 public:
  Configurator(QRModelInfo& network, const std::string& path, const KernelRules& rules,
               OldKernelSet set, Library& library)
      : network_(network), path_(path), rules_(rules), set_(set), library_(library) {}

  std::shared_ptr<QRModelCfg> run() {
    check_rules();
    const std::vector<std::string> ids = std::exchange(network_.squential_ids, {});
    network_.squential_types.clear();
    std::set<std::string> known;
    for (const std::string& id : ids) {
      const auto info = network_.layers.at(id);
      for (const std::string& source : info->input_ids) {
        if (known.count(source) == 0) {
          refuse(*info, "it reads " + in_quotes(source) + ", which stands behind it in the file");
        }
      }
      known.insert(id);
      configure(info);
    }
    warn_of_unused_rules();
    return config_;
  }

 private:
  void warn_of_unused_rules() const {
    for (const KernelRule& rule : rules_.rules()) {
      if (used_rules_.count(rule.line) != 0) continue;
      say(rules_.place_of(rule) + "no layer of " + printable(path_) + " gets its kernel from " +
              in_quotes(rule.key),
          Level::warning);
    }
  }

  void check_rules() const {
    for (const KernelRule& rule : rules_.rules()) {
      if (is_layer_key(rule.key) && network_.layers.count(rule.key) == 0) {
        refuse_rule(rule, printable(path_) + " has no layer " + in_quotes(rule.key));
      }
      for (const std::string& kernel : rule.kernels) {
        if (library_.kernels.Create(kernel) == nullptr) {
          refuse_rule(rule, "this build has no kernel " + in_quotes(kernel) +
                                "; `qrt kernels` lists those that it has");
        }
        if (contains(kernel, "C4HW4") || contains(kernel, "C8HW8")) {
          refuse_rule(rule, kernel + " works on blocks of channels; expected a kernel over planes");
        }
      }
    }
  }

  void configure(const std::shared_ptr<LayerInfo>& info) {
    const KernelRule* rule = rules_.rule_for(*info);
    Candidates candidates;
    if (rule != nullptr) {
      used_rules_.insert(rule->line);
      candidates.kernels = rule->kernels;
    } else {
      candidates = candidates_for(*info, set_);
      if (!candidates.why_none.empty()) refuse(*info, candidates.why_none);
    }
    std::vector<std::string> faults;
    for (const std::string& kernel : candidates.kernels) {
      std::string fault;
      std::shared_ptr<LayerInfo> ready = tried(info, kernel, fault);
      if (ready != nullptr) return add(ready, kernel);
      faults.push_back(joined({kernel, fault}, ": "));
    }
    if (rule != nullptr) {
      refuse(*info,
             rules_.place_of(*rule) + "no kernel of this rule takes it: " + joined(faults, "; "));
    }
    refuse(*info, "no kernel takes it: " + joined(faults, "; "));
  }

  // The description with which a kernel takes a layer; null if it doesn't.
  std::shared_ptr<LayerInfo> tried(const std::shared_ptr<LayerInfo>& info,
                                   const std::string& kernel, std::string& fault) const {
    const std::string missing = missing_instructions(kernel);
    if (!missing.empty()) {
      fault = "this processor has no " + missing;
      return nullptr;
    }
    if (contains(kernel, "_G1_") && groups_of(*info) > 1) {
      fault = "it knows no groups";
      return nullptr;
    }
    try {
      std::shared_ptr<LayerInfo> ready = fitted(info, kernel);
      const auto made = library_.kernels.Create(kernel);
      if (made->Config(ready, nullptr, library_.context)) return ready;
      fault = "refused";
    } catch (const std::runtime_error& failure) {
      fault = take_fault(failure);
      if (fault.empty()) fault = "it can't be configured";
    }
    return nullptr;
  }

  void add(const std::shared_ptr<LayerInfo>& info, const std::string& kernel) {
    const bool reads_row =
        dynamic_cast<const FullConnectionInfo*>(info.get()) != nullptr && !contains(kernel, "_BC_");
    if (reads_row && rows_.count(info->input_ids.at(0)) == 0) flatten_input_of(*info);
    append(info, kernel);
  }

  // Kernels of full connections read rows, whatever made them.
  void flatten_input_of(LayerInfo& reader) {
    auto flat = std::make_shared<TensorReshapeInfo>();
    flat->id = reader.id + "-row";
    flat->input_ids = reader.input_ids;
    flat->read_count = 1;
    flat->new_shape = {1, -1};
    reader.input_ids = {flat->id};
    append(flat, kFlattenKernel);
  }

  void append(const std::shared_ptr<LayerInfo>& info, const std::string& kernel) {
    note_row(*info, kernel);
    network_.squential_ids.push_back(info->id);
    network_.squential_types.push_back(info->type);
    network_.layers[info->id] = info;
    auto layer = std::make_shared<LayerCfg>();
    layer->kernel->kernel_type = kernel;
    config_->squential_ids.push_back(info->id);
    config_->layer_cfgs[info->id] = layer;
  }

  // Rows come from full connections and from reshapes that make them, and pass through functions of
  // one element.
  void note_row(const LayerInfo& info, const std::string& kernel) {
    const bool makes_row =
        kernel.rfind("FullConnection_", 0) == 0 || kernel == kFlattenKernel ||
        kernel == "Reshape_Fallback_CnHWn_To_C_M1" ||
        (kind_of(info) == "Activation" && rows_.count(info.input_ids.at(0)) != 0);
    if (makes_row) rows_.insert(info.id);
  }

  [[noreturn]] void refuse(const LayerInfo& info, const std::string& why) const {
    throw ToolError(kModelError, printable(path_) + ": layer " + in_quotes(info.id) + " (" +
                                     kind_of(info) + "): " + why);
  }
  [[noreturn]] void refuse_rule(const KernelRule& rule, const std::string& why) const {
    throw ToolError(kInputError, rules_.place_of(rule) + why);
  }

  QRModelInfo& network_;
  const std::string& path_;
  const KernelRules& rules_;
  const OldKernelSet set_;
  Library& library_;
  std::shared_ptr<QRModelCfg> config_ = std::make_shared<QRModelCfg>();
  std::set<size_t> used_rules_;  // by their lines
  std::set<std::string> rows_;   // layers known to make tensors of one row
};

// The library's words for a file that it can't translate, made plain.
std::string import_fault(const std::string& words) {
  if (words.find("Not Implemented") != std::string::npos) {
    return "a layer, or the value of one of its fields, has no counterpart today";
  }
  if (words.find("fail") != std::string::npos) {
    return "it is no whole network of the earlier generation: its header isn't one, it ends inside "
           "a record, or its layers contradict each other";
  }
  return "a depthwise convolution has unequal numbers of input and output channels";
}

}  // namespace

std::shared_ptr<QRModelInfo> read_old_network(const std::string& path) {
  check_readable(path, kModelError);
  auto network = std::make_shared<QRModelInfo>();
  try {
    network->LoadFromQRModel1(path.c_str());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::runtime_error& failure) {
    throw ToolError(kModelError, printable(path) + ": " + import_fault(take_fault(failure)));
  }
  if (network->squential_ids.empty()) {
    throw ToolError(kModelError, printable(path) + ": the network has no layers");
  }
  return network;
}

std::shared_ptr<QRModelCfg> configure_old_network(QRModelInfo& network, const std::string& path,
                                                  const KernelRules& rules, OldKernelSet set,
                                                  Library& library) {
  if (set == OldKernelSet::sse && !QRT_WITH_SSE) {
    throw ToolError(kUsageError, "this build has no SSE kernels; expected the portable ones");
  }
  return Configurator(network, path, rules, set, library).run();
}

}  // namespace qrt_tool
