#include "qrt_toolkit/assign/fast_kernels.h"

#include <algorithm>
#include <vector>

#include "qrt_toolkit/assign/form.h"
#include "qrt_toolkit/assign/restate.h"

namespace marlo::toolkit {

bool has_fast_kernel(Workshop& workshop, KernelSet set,
                     const std::shared_ptr<runtime::LayerInfo>& layer,
                     const runtime::TensorShape& planes) {
  std::vector<std::shared_ptr<runtime::LayerInfo>> descriptions{layer};
  for (const Restatement restate : restatements_of(*layer)) {
    if (auto other = restate(*layer)) descriptions.push_back(std::move(other));
  }
  const std::vector<Form> forms = forms_of(planes);
  const auto runs = [&](const std::string& name, const auto& description) {
    const auto kernel = workshop.configured(name, description);
    const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel.get());
    return facts != nullptr && std::any_of(forms.begin(), forms.end(), [&](const Form& form) {
             return workshop.made_of(*kernel, {form.shape}) &&
                    facts->differences(*description, {form.shape}).empty();
           });
  };
  for (const std::string& name : workshop.kernels().Keys()) {
    const KernelSet needed = set_of_kernel(name, runtime::needs_of(name));
    if (needed == KernelSet::portable || needed > set) continue;
    for (const auto& description : descriptions) {
      if (runs(name, description)) return true;
    }
  }
  return false;
}

}  // namespace marlo::toolkit
