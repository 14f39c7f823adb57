#include "qrt_toolkit/verify/agreement.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "qrt_toolkit/assign/rounding.h"

namespace marlo::toolkit {
namespace {

constexpr double kEps = 0x1p-23;
/// Kernels of elementary functions are off by a few units in the last place.
constexpr double kFewUnits = 4;

double largest_of(const LayerRecord& record) {
  double largest = 0;
  for (const double number : record.values()) {
    if (std::isfinite(number)) largest = std::max(largest, std::fabs(number));
  }
  return largest;
}

double count_of(const LayerRecord& record) {
  return record.bytes.empty() ? 0 : static_cast<double>(ElementCount(record.shape));
}

/// The sums that a layer's weights take part in.
struct Sums {
  double terms = 0;  ///< of one output
  double gain = 0;   ///< largest root of the sum of squares of its weights
};

Sums sums_of(runtime::LayerInfo& layer, const LayerRecord& made) {
  Sums sums;
  const auto& dims = made.shape.dims;
  if (dims.empty()) return sums;
  const bool is_sequence = dynamic_cast<runtime::RecurrentSequenceWeights*>(&layer) != nullptr;
  const bool is_dense = dynamic_cast<runtime::DenseInfo*>(&layer) != nullptr;
  // Of a sequence every step reads the one before; the units are its last axis.
  const double outputs = is_sequence || is_dense ? dims.back() : dims[0];
  for (const runtime::LayerWeight& weight : runtime::WeightsOf(layer)) {
    const std::vector<float> numbers = runtime::WeightNumbers(*weight.blob);
    const auto row = static_cast<size_t>(
        std::max(1.0, static_cast<double>(numbers.size()) / std::max(1.0, outputs)));
    for (size_t at = 0; at < numbers.size(); at += row) {
      double squares = 0;
      for (size_t i = at; i < std::min(at + row, numbers.size()); ++i) {
        squares += static_cast<double>(numbers[i]) * numbers[i];
      }
      sums.gain = std::max(sums.gain, std::sqrt(squares));
    }
    sums.terms += static_cast<double>(row);
  }
  if (is_sequence) sums.terms *= std::max(1u, dims[0]);
  return sums;
}

/// Of how many numbers a line or a group has that are normalized together; 0 where each is computed
/// alone.
double line_of(const runtime::LayerInfo& layer, const LayerRecord& input) {
  const auto& dims = input.shape.dims;
  const auto from_front = [&](int32_t axis) {
    const auto place =
        static_cast<size_t>(axis < 0 ? axis + static_cast<int32_t>(dims.size()) : axis);
    return std::min(place, dims.size());
  };
  const auto product = [&](size_t first, size_t end) {
    double numbers = 1;
    for (size_t i = first; i < std::min(end, dims.size()); ++i) numbers *= dims[i];
    return numbers;
  };
  if (const auto* softmax = dynamic_cast<const runtime::SoftmaxInfo*>(&layer)) {
    const size_t axis = softmax->dim == 0 ? 0 : softmax->dim - size_t{1};
    return product(axis, axis + 1);
  }
  if (const auto* softmax = dynamic_cast<const runtime::AxisSoftmaxInfo*>(&layer)) {
    const size_t axis = from_front(softmax->axis);
    return product(axis, axis + 1);
  }
  if (const auto* norm = dynamic_cast<const runtime::LayerNormInfo*>(&layer)) {
    return product(from_front(norm->axis), dims.size());
  }
  if (const auto* norm = dynamic_cast<const runtime::GroupNormInfo*>(&layer)) {
    return product(0, dims.size()) / std::max(1u, norm->groups);
  }
  if (dynamic_cast<const runtime::InstanceNorm2dInfo*>(&layer) != nullptr) {
    return product(0, dims.size());
  }
  return 0;
}

/// Whether a layer moves numbers, or tells truths and whole numbers, which are never off.
bool is_exact(const runtime::LayerInfo& layer) {
  const auto any_of = [&]<typename... Moves>() {
    return ((dynamic_cast<const Moves*>(&layer) != nullptr) || ...);
  };
  if (const auto* binary = dynamic_cast<const runtime::BinaryFunctionInfo*>(&layer)) {
    return binary->function >= static_cast<uint32_t>(runtime::BinaryFunction::Equal);
  }
  if (const auto* function = dynamic_cast<const runtime::ElementFunctionInfo*>(&layer)) {
    using F = runtime::ElementFunction;
    const auto which = static_cast<F>(function->function);
    return which == F::Not || which == F::IsNaN || which == F::Sign || which == F::Floor ||
           which == F::Ceil || which == F::Round || which == F::Abs || which == F::Neg;
  }
  using namespace runtime;
  return any_of.
  operator()<ConcatenateInfo, TensorReshapeInfo, TensorTransposeInfo, TensorSliceInfo, GatherInfo,
             EmbeddingInfo, BroadcastToInfo, PadInfo, StridedSliceInfo, ReshapeToInfo>();
}

/// Of a product of two tensors the sums have as many terms as a row of the first one, and none is
/// larger than the largest numbers' product.
Sums product_sums(const runtime::MatMulInfo& product, const LayerRecord& first, double largest) {
  const auto& dims = first.shape.dims;
  if (dims.empty()) return {};
  const bool turned = product.transpose_a && dims.size() > 1;
  const double terms = dims[dims.size() - (turned ? 2 : 1)];
  return {terms, std::fabs(product.alpha) * std::sqrt(terms) * largest};
}

}  // namespace

std::vector<double> agreements_of(const runtime::QRModelInfo& network,
                                  const runtime::QRModelCfg& config,
                                  const std::vector<LayerRecord>& records) {
  std::map<std::string, size_t> index;
  std::vector<double> largest;
  std::vector<double> agreements;
  for (size_t i = 0; i < network.squential_ids.size(); ++i) {
    const std::string& id = network.squential_ids[i];
    runtime::LayerInfo& layer = *network.layers.at(id);
    index[id] = i;
    largest.push_back(largest_of(records[i]));
    double input_largest = 0;
    double input_count = 0;
    for (const std::string& input : layer.input_ids) {
      const size_t source = index.at(input);
      input_largest = std::max(input_largest, largest[source]);
      input_count += count_of(records[source]);
    }
    if (layer.input_ids.empty() || is_exact(layer)) {
      agreements.push_back(0);
      continue;
    }
    const auto* product = dynamic_cast<const runtime::MatMulInfo*>(&layer);
    const size_t first = index.at(layer.input_ids[0]);
    const Sums sums = product == nullptr ? sums_of(layer, records[i])
                                         : product_sums(*product, records[first],
                                                        largest[index.at(layer.input_ids.back())]);
    const double count = std::max(1.0, count_of(records[i]));
    const double terms =
        sums.terms + kFewUnits + std::max(line_of(layer, records[first]), input_count / count);
    const std::string& kernel = config.layer_cfgs.at(id)->kernel->kernel_type;
    agreements.push_back(rounding_growth(kernel).most * terms * kEps *
                         std::max(largest[i], sums.gain * input_largest));
  }
  return agreements;
}

}  // namespace marlo::toolkit
