#include "qrt_toolkit/assign/trial.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <set>
#include <string>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/hollow_tensors.h"
#include "qrt_core/utility/application.h"
#include "qrt_core/utility/quiet_log_internal.h"

namespace marlo::toolkit {
namespace {

using runtime::IKernel;
using runtime::TensorShape;

constexpr unsigned int kAlignment = 64;

/// What a step gives, or nothing where a kernel throws: that is a way to refuse, too.
template <typename Result, typename Step>
Result unless_refused(Step step) {
  const utility::QuietLog quiet;
  try {
    return step();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return Result();
  }
}

}  // namespace

Workshop::Workshop(const runtime::KernelRegistry& kernels) : kernels_(kernels) { clear(); }

void Workshop::clear() { utility::create_context(context_, kAlignment); }

std::shared_ptr<IKernel> Workshop::configured(const std::string& name,
                                              const std::shared_ptr<runtime::LayerInfo>& info) {
  using Result = std::shared_ptr<IKernel>;
  return unless_refused<Result>([&]() -> Result {
    Result kernel = kernels_.Create(name);
    if (kernel == nullptr) return nullptr;
    return kernel->Config(info, nullptr, context_) ? kernel : nullptr;
  });
}

std::optional<TensorShape> Workshop::made_of(IKernel& kernel, const Shapes& inputs) {
  using Result = std::optional<TensorShape>;
  return unless_refused<Result>([&]() -> Result {
    const IKernel::Tensors hollow = runtime::HollowTensors(inputs, *context_->cpu);
    if (kernel.CheckInputs(hollow) != runtime::KERNEL_OK) return std::nullopt;
    const Shapes outputs = kernel.InferOutputShapes(inputs);
    if (outputs.size() != 1) return std::nullopt;
    return outputs[0];
  });
}

std::optional<std::vector<float>> Workshop::run(IKernel& kernel, const Shapes& inputs,
                                                const Numbers& numbers, const TensorShape& output) {
  using Result = std::optional<std::vector<float>>;
  return unless_refused<Result>([&]() -> Result {
    IKernel::Tensors in;
    for (size_t i = 0; i < inputs.size(); ++i) {
      in.push_back(context_->cpu->CreateTensor(inputs[i], numbers[i].data()));
    }
    IKernel::Tensors out;
    bool transient = true;
    kernel.PrepareForward(context_, in, transient, out);
    kernel.Forward(in, out, context_);
    if (out.size() != 1 || out[0] == nullptr || out[0]->shape.dims != output.dims) {
      return std::nullopt;
    }
    std::vector<float> made(runtime::ElementCount(output));
    if (!made.empty()) std::memcpy(made.data(), out[0]->handle.cpu, made.size() * sizeof(float));
    return made;
  });
}

std::vector<float> trial_numbers(size_t count, uint32_t seed, bool is_negative_possible) {
  constexpr uint32_t kFactor = 1664525;
  constexpr uint32_t kSummand = 1013904223;
  constexpr float kSmallest = 0.0625f;
  constexpr float kRange = 8.0f;
  // What a tensor of few elements must have, or a bound would not be noticed.
  constexpr float kFirst[] = {7.5f, -7.25f, 0.5f, -0.375f, 3.5f, -3.25f};
  std::vector<float> numbers(count);
  uint32_t state = seed * 2654435761u + 1;
  for (float& number : numbers) {
    state = state * kFactor + kSummand;
    const float part = static_cast<float>(state >> 9) / static_cast<float>(1u << 23);
    const float sign = is_negative_possible && (state & 0x100u) != 0 ? -1.0f : 1.0f;
    number = sign * (kSmallest + kRange * part);
  }
  for (size_t i = 0; i < std::min(count, std::size(kFirst)); ++i) {
    const float first = kFirst[(i + seed) % std::size(kFirst)];
    numbers[i] = is_negative_possible ? first : std::fabs(first);
  }
  return numbers;
}

std::vector<float> trial_numbers(const runtime::LayerInfo& layer, const TensorShape& shape,
                                 uint32_t seed, bool is_negative_possible) {
  const size_t count = runtime::ElementCount(shape);
  const auto* table = dynamic_cast<const runtime::EmbeddingInfo*>(&layer);
  if (table == nullptr) return trial_numbers(count, seed, is_negative_possible);
  std::vector<float> numbers(count);
  // Of zeros all bits are zeros, of whichever type they are taken for.
  if (shape.data_type != runtime::DataType::FLOAT32 || table->rows == 0) return numbers;
  for (size_t i = 0; i < count; ++i) numbers[i] = static_cast<float>((i + seed) % table->rows);
  return numbers;
}

std::vector<float> trial_numbers(const runtime::Net& net, uint32_t input,
                                 const TensorShape& shape) {
  const size_t count = runtime::ElementCount(shape);
  return chooses_rows(net, input) ? std::vector<float>(count) : trial_numbers(count, input + 1);
}

bool only_moves(const std::string& type_name) {
  using namespace runtime;
  static const std::set<std::string> moves = [] {
    std::set<std::string> names;
    for (const uint16_t type :
         {ConcatenateInfo().type, TensorReshapeInfo().type, TensorTransposeInfo().type,
          TensorSqueezeInfo().type, TensorUnSqueezeInfo().type, TensorSliceInfo().type,
          GatherInfo().type, BroadcastToInfo().type, StridedSliceInfo().type,
          ReshapeToInfo().type}) {
      names.insert(LayerTypeName(type));
    }
    return names;
  }();
  return moves.count(type_name) != 0;
}

bool chooses_rows(const runtime::Net& net, uint32_t input) {
  static const std::string table = runtime::LayerTypeName(runtime::EmbeddingInfo().type);
  std::vector<bool> chooses(net.layers.size());
  for (size_t place = net.layers.size(); place-- > input;) {
    for (const auto& [reader, position] : net.layers[place]->consumers) {
      const std::string& name = net.layers[reader]->name;
      if (name == table || (only_moves(name) && chooses[reader])) chooses[place] = true;
    }
  }
  return chooses.at(input);
}

double relative_difference(const std::vector<float>& reference, const std::vector<float>& found) {
  constexpr double kNone = std::numeric_limits<double>::infinity();
  if (reference.size() != found.size()) return kNone;
  double largest = 0;
  double difference = 0;
  for (size_t i = 0; i < reference.size(); ++i) {
    if (std::memcmp(&reference[i], &found[i], sizeof(float)) == 0) {
      if (std::isfinite(reference[i])) largest = std::max(largest, std::fabs(double{reference[i]}));
      continue;
    }
    if (!std::isfinite(reference[i]) || !std::isfinite(found[i])) return kNone;
    largest = std::max(largest, std::fabs(double{reference[i]}));
    difference = std::max(difference, std::fabs(double{reference[i]} - double{found[i]}));
  }
  if (difference == 0) return 0;
  return difference / std::max(largest, double{std::numeric_limits<float>::min()});
}

}  // namespace marlo::toolkit
