#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/kernel/basic/pooling.h"
#include "tests/support/oracle.h"
#include "tests/support/window_case.h"

namespace marlo::test {

/// The sizes of one pooling. A plane is a channel, or a block of them.
struct PoolingCase : WindowCase {
  uint32_t planes = 1;
  bool ceil_mode = false;
  bool count_include_pad = false;
};

/// Runs one pooling on every kind of data and compares it with its definition.
///
/// @code
/// PoolingTester().planes(2).size(15, 14).kernel(3).stride(2).padding(1, 0, 2, 1).test(row);
/// @endcode
///
/// A failure shows the sentence that repeats it.
class PoolingTester : public WindowSetters<PoolingTester, PoolingCase> {
 public:
  PoolingTester& planes(uint32_t planes) {
    sizes_.planes = planes;
    return *this;
  }
  PoolingTester& ceil_mode(bool ceil_mode) {
    sizes_.ceil_mode = ceil_mode;
    return *this;
  }
  PoolingTester& count_include_pad(bool count) {
    sizes_.count_include_pad = count;
    return *this;
  }

  /// Tests the row's kernel: small integers exactly, floats within their bound, or exactly for
  /// maxima, tensors from a hostile pool and an input in an unaligned buffer of its own.
  void test(const kernel::PoolingRow& row) const;

  /// The output of the row's kernel for given data, without a comparison.
  std::vector<float> output(const kernel::PoolingRow& row, const std::vector<float>& input) const;

  /// The layer.
  std::shared_ptr<runtime::LayerInfo> description(const kernel::PoolingRow& row) const;

  /// The dims of the input.
  std::vector<uint32_t> dims(const kernel::PoolingRow& row) const;

  /// The sentence that repeats this test of a kernel.
  std::string sentence(const std::string& kernel) const;
};

/// The result of a pooling.
struct PoolingOracle {
  uint32_t height = 0;
  uint32_t width = 0;
  std::vector<Sum> outputs;
};

/// The definition. What a kernel made for one window leaves out of the description is left out here
/// too: see `PoolingRow`. A window that passes the edge reads on in memory, where zeros follow the
/// last plane.
PoolingOracle pooling(const kernel::PoolingRow& row, const PoolingCase& sizes,
                      const std::vector<float>& input);

}  // namespace marlo::test
