#include "qrt_toolkit/assign/costs.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/form.h"

namespace marlo::toolkit {
namespace {

using runtime::TensorShape;

/// Multiply-adds in a microsecond, by the set of the kernel.
constexpr std::array<double, kKernelSets> kRates = {1500, 12000, 22000, 33000, 33000, 45000};

/// Bytes in a microsecond that a kernel reads and writes, likewise.
constexpr std::array<double, kKernelSets> kBandwidths = {4000, 12000, 16000, 16000, 16000, 18000};

/// What each kernel takes beside its work, in microseconds.
constexpr double kStart = 0.3;

/// How a kind of kernels differs from what its instructions promise.
struct Kind {
  std::string_view part;  ///< of the kernel's name
  double factor;          ///< on the rate
};

// In blocks the channels of a pixel fill a vector; over planes borders and strides disturb. General
// kernels copy windows first, depthwise ones wait for memory.
constexpr Kind kKinds[] = {
    {"_CHW_FLOAT", 0.75}, {"_CHW_Float", 0.7},     {"Knxm_Snxm", 0.85}, {"Depthwise_", 0.4},
    {"_C4HW4_", 0.9},     {"_FLOAT_M3", 1.03},     {"Winograd", 1.3},   {"Strassen", 0.65},
    {"_SGEMM_", 2.2},     {"FullConnection", 0.5}, {"3In_CHW", 0.8},    {"Winograd4", 1.75},
    {"Winograd6", 1.85},
};

// Tiles of Winograd's kernels hang over the edges of small pictures, and their products are short.
constexpr uint32_t kSmallestForTiles = 10;
constexpr double kTooSmallForTiles = 0.4;

/// Kernels that evaluate a function for each number, and how many bytes' worth of time that takes.
constexpr Kind kFunctions[] = {
    {"Sigmoid_Fallback", 60}, {"TanH_Fallback", 80}, {"Sigmoid_", 8}, {"TanH_", 8}, {"Softmax", 60},
};

/// The same for those that kernels apply to their results, on vectors and in the first cache.
constexpr Kind kEpilogues[] = {
    {"Sigmoid", 1.5}, {"SiLU", 1.5}, {"Tanh", 1.5}, {"HSwish", 0.2}, {"HSigmoid", 0.2}};

double rate_of(const Work& work) {
  double rate = kRates.at(static_cast<size_t>(work.set));
  if (work.set == KernelSet::portable) return rate;
  for (const Kind& kind : kKinds) {
    if (work.kernel.find(kind.part) != std::string::npos) rate *= kind.factor;
  }
  const bool has_tiles = work.kernel.find("Winograd") != std::string::npos;
  const bool is_small = work.output.dims.size() > 2 && work.output.dims[1] < kSmallestForTiles;
  return has_tiles && is_small ? rate * kTooSmallForTiles : rate;
}

double bytes_of(const Work& work) {
  double bytes = static_cast<double>(work.weights) * sizeof(float);
  if (hands_on(work.use, work.kernel)) return bytes;
  for (const TensorShape& shape : work.inputs) bytes += runtime::ByteSize(shape);
  // A new tensor's lines are read before they are written.
  const double written = runtime::ByteSize(work.output);
  bytes += work.use == runtime::InputUse::overwrites ? written * 0.5 : written * 2;
  for (const Kind& function : kEpilogues) {
    if (work.epilogue == function.part) bytes += function.factor * written;
  }
  for (const Kind& function : kFunctions) {
    if (work.kernel.rfind(function.part, 0) != 0) continue;
    return bytes + function.factor * written;
  }
  return bytes;
}

}  // namespace

bool hands_on(runtime::InputUse use, const std::string& kernel) {
  if (use == runtime::InputUse::passes_on) return true;
  return use == runtime::InputUse::overwrites && kernel.rfind("Reshape", 0) == 0;
}

std::string Work::key() const {
  std::string text = kernel;
  text += '|';
  if (info != nullptr) text += key_of(*info);
  for (const TensorShape& shape : inputs) text += '|' + runtime::ShapeText(shape);
  return text + '>' + runtime::ShapeText(output);
}

Costs::~Costs() = default;

void Costs::compare(const std::vector<Work>& rivals) { static_cast<void>(rivals); }

double EstimatedCosts::of(const Work& work) {
  const double computing = static_cast<double>(work.multiply_adds) / rate_of(work);
  const double moving = bytes_of(work) / kBandwidths.at(static_cast<size_t>(work.set));
  // A convolution's memory traffic hides behind its arithmetic but for a part.
  const double both = computing > moving ? computing + moving * 0.3 : moving + computing * 0.3;
  constexpr double kMicrosecondsPerMillisecond = 1000;
  return (kStart + both) / kMicrosecondsPerMillisecond;
}

RecordedCosts::RecordedCosts(std::map<std::string, double> milliseconds, Costs& otherwise)
    : milliseconds_(std::move(milliseconds)), otherwise_(otherwise) {}

double RecordedCosts::of(const Work& work) {
  const auto found = milliseconds_.find(work.key());
  return found != milliseconds_.end() ? found->second : otherwise_.of(work);
}

uint64_t multiply_adds_of(const runtime::LayerInfo& info, uint64_t weights,
                          const TensorShape& input, const TensorShape& output) {
  const bool spreads = dynamic_cast<const runtime::ConvTranspose2dInfo*>(&info) != nullptr;
  const TensorShape walked = as_planes(spreads ? input : output);
  uint64_t places = 1;
  switch (walked.layout) {
    case runtime::LayoutType::CHW:
    case runtime::LayoutType::CL:
      for (size_t i = 1; i < walked.dims.size(); ++i) places *= walked.dims[i];
      break;
    case runtime::LayoutType::C:
      break;
    default:  // rows of vectors
      for (size_t i = 0; i + 1 < walked.dims.size(); ++i) places *= walked.dims[i];
  }
  return weights * places;
}

}  // namespace marlo::toolkit
