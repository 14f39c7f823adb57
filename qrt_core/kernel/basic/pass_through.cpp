#include "qrt_core/kernel/basic/pass_through.h"

#include "qrt_core/kernel/misfits_internal.h"

namespace marlo::kernel {

KernelFamily::Misfits PassThrough::refusals(const LayerInfo* info,
                                            const InferenceParam* param) const {
  Expectations expected;
  expected.expect(info != nullptr || param != nullptr, "", "a description", "none");
  return std::move(expected).unmet();
}

KernelFamily::Misfits PassThrough::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs", row_.inputs, runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

}  // namespace marlo::kernel
