#include "python/src/pools.h"

#include <utility>

namespace qrt_python {

Pools::Pools(std::shared_ptr<marlo::runtime::Context> context) : context_(std::move(context)) {}

void Pools::give_back(std::shared_ptr<marlo::runtime::Tensor> tensor) {
  const std::lock_guard lock(mutex_);
  if (in_use_) {
    returned_.push_back(std::move(tensor));
  } else {
    tensor.reset();
  }
}

Pools::Use::Use(Pools& pools) : pools_(pools) {
  const std::lock_guard lock(pools_.mutex_);
  holds_ = !pools_.in_use_;
  pools_.in_use_ = true;
}

Pools::Use::~Use() {
  if (!holds_) return;
  const std::lock_guard lock(pools_.mutex_);
  pools_.returned_.clear();
  pools_.in_use_ = false;
}

}  // namespace qrt_python
