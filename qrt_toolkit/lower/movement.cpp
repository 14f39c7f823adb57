#include <algorithm>
#include <array>
#include <numeric>
#include <optional>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/indexing.h"
#include "qrt_toolkit/operators/strided.h"
#include "qrt_toolkit/shapes/tie.h"

// Layers that move numbers.

namespace marlo::toolkit {
namespace {

/// Elements of one axis in another order.
struct Shuffle {
  size_t layer;
  size_t axis;
  std::vector<int64_t> elements;
};

/// What a tensor is whose axis is split into several, these are transposed, and made one again, as
/// channels are shuffled; nothing for another reshape of another transposition.
/// @param made the transposition
/// @param sizes what it is reshaped to
std::optional<Shuffle> shuffle_of(Lowering& lowering, size_t made, const Extents& sizes) {
  const Plan& plan = lowering.plan();
  const auto* transposition =
      dynamic_cast<const runtime::TensorTransposeInfo*>(plan.layer(made).info.get());
  if (transposition == nullptr || !plan.has("Gather_Fallback_Float_M1")) return std::nullopt;
  const size_t split = plan.layer(made).inputs[0];
  if (dynamic_cast<const runtime::TensorReshapeInfo*>(plan.layer(split).info.get()) == nullptr) {
    return std::nullopt;
  }
  const size_t source = plan.layer(split).inputs[0];
  const Extents box = lowering.sizes_of_layer(split);
  const auto& axes = transposition->axes;
  if (lowering.sizes_of_layer(source) != sizes || box.size() <= sizes.size()) return std::nullopt;
  const size_t parts = box.size() - sizes.size() + 1;
  size_t axis = 0;
  while (axis < sizes.size() && sizes[axis] == box[axis] && axes[axis] == axis) ++axis;
  if (axis == sizes.size()) return std::nullopt;
  for (size_t i = axis + parts; i < axes.size(); ++i) {
    if (axes[i] != i || box[i] != sizes[i - parts + 1]) return std::nullopt;
  }
  constexpr int64_t kMost = 4096;  // all are listed
  if (sizes[axis] > kMost) return std::nullopt;
  const auto first = box.begin() + static_cast<std::ptrdiff_t>(axis);
  const Extents split_axis(first, first + static_cast<std::ptrdiff_t>(parts));
  if (count_of(split_axis) != sizes[axis]) return std::nullopt;
  const Extents strides = strides_of(split_axis);
  Shuffle shuffle{source, axis, {0}};
  for (size_t i = axis; i < axis + parts; ++i) {
    const size_t from = axes[i] - axis;
    std::vector<int64_t> more;
    more.reserve(shuffle.elements.size() * static_cast<size_t>(split_axis[from]));
    for (const int64_t begin : shuffle.elements) {
      for (int64_t k = 0; k < split_axis[from]; ++k) more.push_back(begin + k * strides[from]);
    }
    shuffle.elements = std::move(more);
  }
  return shuffle;
}

void lower_reshape(Lowering& lowering) {
  const size_t made = lowering.input(0);
  if (const auto shuffle = shuffle_of(lowering, made, lowering.output_sizes())) {
    return lowering.result(lowering.taken(shuffle->layer, shuffle->axis, shuffle->elements));
  }
  lowering.result(lowering.reshaped(made, lowering.output_sizes()));
}

// Without the batch, the axes behind it move up.
void lower_transpose(Lowering& lowering) {
  const size_t rank = lowering.input_rank(0);
  const auto batch = lowering.batch_of_input(0);
  std::vector<int64_t> perm(rank);
  std::iota(perm.rbegin(), perm.rend(), int64_t{0});
  perm = lowering.node().integers("perm", perm);
  std::vector<size_t> axes;
  for (const int64_t axis : perm) {
    const size_t from = axis_from_front(axis, rank, "perm");
    if (batch == from) continue;
    axes.push_back(batch && from > *batch ? from - 1 : from);
  }
  lowering.result(lowering.permuted(lowering.input(0), axes));
}

void lower_concat(Lowering& lowering) {
  size_t tensor = 0;
  while (!lowering.is_tensor(tensor)) ++tensor;
  const size_t axis = lowering.axis_of_input(tensor, lowering.node().integer("axis", 0));
  std::vector<size_t> inputs;
  for (size_t i = 0; i < lowering.node().inputs.size(); ++i) {
    const Extents sizes = lowering.input_sizes(i);
    // An empty part adds nothing.
    if (count_of(sizes) == 0) continue;
    inputs.push_back(lowering.reshaped(lowering.input(i), sizes));
  }
  lowering.result(lowering.joined(inputs, axis));
}

std::vector<AxisPart> whole(const Extents& sizes) {
  std::vector<AxisPart> parts;
  for (const int64_t size : sizes) parts.push_back({0, size, 1});
  return parts;
}

/// Parts of any number of axes, which may run backwards.
size_t parts_of(Lowering& lowering, const std::vector<AxisPart>& parts) {
  const Extents sizes = lowering.input_sizes(0);
  size_t layer = lowering.input(0);
  const bool forwards =
      std::all_of(parts.begin(), parts.end(), [](const AxisPart& part) { return part.step > 0; });
  if (forwards && (parts.size() <= 3 || lowering.slices_anywhere())) {
    const bool all =
        std::equal(parts.begin(), parts.end(), sizes.begin(),
                   [](const AxisPart& part, int64_t size) { return part.count == size; });
    return all ? layer : lowering.sliced(layer, parts);
  }
  for (size_t axis = 0; axis < parts.size(); ++axis) {
    const AxisPart& part = parts[axis];
    if (part.step > 0) {
      layer = lowering.part_of(layer, axis, part);
      continue;
    }
    std::vector<int64_t> elements;
    for (int64_t i = 0; i < part.count; ++i) elements.push_back(part.first + i * part.step);
    layer = lowering.taken(layer, axis, elements);
  }
  return layer;
}

void lower_slice(Lowering& lowering) {
  if (lowering.is_tensor(tied_input(lowering.node()))) {
    runtime::ResizeLikeInfo info;
    info.only_cuts = true;
    return lowering.result(lowering.sized_like_another(std::move(info)));
  }
  const auto starts = lowering.required_constant(1)->integers();
  const auto ends = lowering.required_constant(2)->integers();
  const Extents in = lowering.input_sizes(0);
  const Extents out = lowering.output_sizes();
  Numbers::Integers axes(starts.size());
  std::iota(axes.begin(), axes.end(), int64_t{0});
  if (lowering.node().has_input(3)) axes = lowering.required_constant(3)->integers();
  Numbers::Integers steps(starts.size(), 1);
  if (lowering.node().has_input(4)) steps = lowering.required_constant(4)->integers();
  std::vector<AxisPart> parts = whole(in);
  for (size_t i = 0; i < starts.size(); ++i) {
    const auto batch = lowering.batch_of_input(0);
    if (batch && axis_from_front(axes[i], lowering.input_rank(0)) == *batch) continue;
    const size_t axis = lowering.axis_of_input(0, axes[i]);
    const int64_t size = in[axis];
    const int64_t start = starts[i] < 0 ? starts[i] + size : starts[i];
    const int64_t last = steps[i] < 0 ? size - 1 : size;
    parts[axis] = {std::clamp<int64_t>(start, 0, last), out[axis], steps[i], starts[i] < 0,
                   ends[i] < 0};
  }
  lowering.result(parts_of(lowering, parts));
}

void lower_split(Lowering& lowering) {
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", 0));
  const Node& node = lowering.node();
  const Numbers::Integers asked =
      node.has_input(1) ? lowering.required_constant(1)->integers() : Numbers::Integers();
  const auto lengths = split_parts(node, lowering.input_sizes(0)[axis], node.outputs.size(), asked);
  int64_t first = 0;
  for (size_t i = 0; i < lengths.size(); ++i) {
    std::vector<AxisPart> parts = whole(lowering.input_sizes(0));
    const int64_t begin = std::exchange(first, first + lengths[i]);
    parts[axis] = {.first = begin, .count = lengths[i]};
    if (node.has_output(i)) lowering.result(parts_of(lowering, parts), i);
  }
}

/// A table is a weight, which binary files round to halves. Rounded reals are near, a rounded number
/// of something is another one.
void refuse_rounded(const Numbers& table) {
  if (is_real(table.type)) return;
  for (const int64_t number : table.integers()) {
    if (is_half(static_cast<double>(number))) continue;
    throw NodeFault{"input 0",
                    "whole numbers such as " + std::to_string(number) +
                        " have no half, which a binary file rounds to",
                    "gather from a table of reals"};
  }
}

/// Rows of a constant table by the numbers that a layer makes.
void lower_embedding(Lowering& lowering) {
  if (lowering.is_tensor(0)) {
    throw NodeFault{"inputs", "elements that aren't known are taken from up to 65536 real numbers"};
  }
  const Numbers table = *lowering.required_constant(0);
  if (axis_from_front(lowering.node().integer("axis", 0), table.shape.size()) != 0) {
    throw NodeFault{"axis", "numbers that aren't known take along the first axis alone"};
  }
  refuse_rounded(table);
  auto info = std::make_shared<runtime::EmbeddingInfo>();
  info->rows = static_cast<uint32_t>(table.shape[0]);
  info->width = static_cast<uint32_t>(table.count() / std::max<int64_t>(1, table.shape[0]));
  const std::vector<float> numbers = floats_of(table);
  info->weight = runtime::MakeWeightBlob(numbers.data(), numbers.size());
  lowering.result(
      lowering.plan().add(std::move(info), "Embedding_Fallback_Float_M1", {lowering.input(1)}));
}

void lower_gather(Lowering& lowering) {
  if (lowering.is_tensor(1)) return lower_embedding(lowering);
  Numbers::Integers list = lowering.required_constant(1)->integers();
  const int64_t given = lowering.node().integer("axis", 0);
  const auto batch = lowering.batch_of_input(0);
  if (batch && axis_from_front(given, lowering.input_rank(0)) == *batch) {
    if (list.size() != 1) throw NodeFault{"axis", "the batch of one can't become several"};
    index_from_front(list[0], 1);
    return lowering.result(lowering.input(0));
  }
  const size_t axis = lowering.axis_of_input(0, given);
  const int64_t size = lowering.input_sizes(0)[axis];
  for (int64_t& index : list) index = index_from_front(index, size);
  lowering.result(lowering.taken(lowering.input(0), axis, list));
}

void lower_expand(Lowering& lowering) {
  lowering.result(lowering.expanded(lowering.input(0), lowering.output_sizes()));
}

// A new axis of one in front of each, repeated and joined with it.
void lower_tile(Lowering& lowering) {
  const auto times = lowering.required_constant(1)->integers();
  Extents sizes = lowering.input_sizes(0);
  size_t layer = lowering.input(0);
  for (size_t i = 0; i < times.size(); ++i) {
    if (times[i] == 1) continue;
    if (times[i] < 1) throw NodeFault{"input 1", "a tensor without elements has no kernel"};
    const size_t axis = lowering.axis_of_input(0, static_cast<int64_t>(i));
    Extents split = sizes;
    split.insert(split.begin() + static_cast<std::ptrdiff_t>(axis), 1);
    sizes[axis] *= times[i];
    layer = lowering.repeated(lowering.reshaped(layer, split), axis, times[i]);
    layer = lowering.reshaped(layer, sizes);
  }
  lowering.result(layer);
}

/// Zeros around planes are the padding of a convolution that changes nothing.
size_t padded_planes(Lowering& lowering, size_t in, const std::array<int64_t, 4>& pads) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = narrow_u16(lowering.sizes_of_layer(in)[0], "channels");
  info->out_channels = info->groups = info->in_channels;
  info->kernel_x = info->kernel_y = 1;
  info->padding_t = narrow_u16(pads[0], "pads");
  info->padding_b = narrow_u16(pads[1], "pads");
  info->padding_l = narrow_u16(pads[2], "pads");
  info->padding_r = narrow_u16(pads[3], "pads");
  const std::vector<float> ones(info->in_channels, 1.0f);
  info->weight = runtime::MakeWeightBlob(ones.data(), ones.size());
  return lowering.plan().add(info, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {in});
}

/// Which element stands at each place of a padded axis; negative ones for the constant.
std::vector<int64_t> padded_elements(const std::string& mode, int64_t size, int64_t begin,
                                     int64_t end) {
  std::vector<int64_t> elements;
  const int64_t period = mode == "reflect" ? std::max<int64_t>(1, 2 * (size - 1)) : size;
  for (int64_t i = -begin; i < size + end; ++i) {
    if (i >= 0 && i < size) {
      elements.push_back(i);
    } else if (mode == "constant") {
      elements.push_back(-1);
    } else if (mode == "edge") {
      elements.push_back(std::clamp<int64_t>(i, 0, size - 1));
    } else {
      const int64_t place = ((i % period) + period) % period;
      elements.push_back(mode == "reflect" && place >= size ? period - place : place);
    }
  }
  return elements;
}

struct PaddedAxis {
  size_t axis;
  int64_t begin;
  int64_t end;
};

/// Any kind of padding of any axes by a kernel of the second set.
size_t padded_axes(Lowering& lowering, const std::string& mode, double value,
                   const std::vector<PaddedAxis>& padded) {
  using runtime::PadMode;
  const size_t layer = lowering.input(0);
  auto info = std::make_shared<runtime::PadInfo>();
  const PadMode kind = mode == "reflect" ? PadMode::Reflect
                       : mode == "edge"  ? PadMode::Edge
                       : mode == "wrap"  ? PadMode::Wrap
                                         : PadMode::Constant;
  info->mode = static_cast<uint32_t>(kind);
  info->value = as_float(value);
  info->before.assign(lowering.sizes_of_layer(layer).size(), 0);
  info->after = info->before;
  for (const PaddedAxis& one : padded) {
    info->before[one.axis] = static_cast<int32_t>(one.begin);
    info->after[one.axis] = static_cast<int32_t>(one.end);
  }
  return lowering.plan().add(std::move(info), "Pad_Fallback_Float_M1", {layer});
}

void lower_pad(Lowering& lowering) {
  const Node& node = lowering.node();
  const std::string mode = node.text("mode", "constant");
  if (mode != "constant" && mode != "edge" && mode != "reflect" && mode != "wrap") {
    throw NodeFault{"mode", "\"" + mode + "\" isn't known"};
  }
  const double value = node.has_input(2) ? lowering.required_number(2) : 0;
  const auto pads = lowering.required_constant(1)->integers();
  Numbers::Integers axes(pads.size() / 2);
  std::iota(axes.begin(), axes.end(), int64_t{0});
  if (node.has_input(3)) axes = lowering.required_constant(3)->integers();
  if (pads.size() != 2 * axes.size()) throw NodeFault{"pads", "expected two for each axis"};
  std::vector<PaddedAxis> changed;
  for (size_t i = 0; i < axes.size(); ++i) {
    const int64_t begin = pads[i];
    const int64_t end = pads[i + axes.size()];
    if (begin == 0 && end == 0) continue;
    // Each by itself first, as their sum may be beyond all numbers.
    for (const int64_t one : {begin, end})
      check_axis_size(std::max<int64_t>(1, one < 0 ? -(one + 1) : one));
    const int64_t size = lowering.input_sizes(0)[lowering.axis_of_input(0, axes[i])];
    check_axis_size(begin + size + end);
    changed.push_back({lowering.axis_of_input(0, axes[i]), begin, end});
  }
  const bool planes = mode == "constant" && value == 0 && lowering.input_sizes(0).size() == 3 &&
                      std::all_of(changed.begin(), changed.end(), [](const PaddedAxis& one) {
                        return one.axis != 0 && one.begin >= 0 && one.end >= 0;
                      });
  size_t layer = lowering.input(0);
  if (planes && !changed.empty()) {
    std::array<int64_t, 4> around{};
    for (const PaddedAxis& one : changed) {
      around[2 * (one.axis - 1)] = one.begin;
      around[2 * (one.axis - 1) + 1] = one.end;
    }
    return lowering.result(padded_planes(lowering, lowering.planes(0), around));
  }
  if (!changed.empty() && lowering.plan().has("Pad_Fallback_Float_M1")) {
    return lowering.result(padded_axes(lowering, mode, value, changed));
  }
  for (const auto& [axis, begin, end] : changed) {
    const int64_t size = lowering.sizes_of_layer(layer)[axis];
    layer = lowering.taken(layer, axis, padded_elements(mode, size, begin, end), value);
  }
  lowering.result(layer);
}

/// Channels that lie block by block, in the order in which pixels are shuffled; or back.
std::vector<int64_t> by_channels(int64_t channels, int64_t squares, bool back) {
  std::vector<int64_t> elements;
  elements.reserve(static_cast<size_t>(channels * squares));
  const int64_t inner = back ? channels : squares;
  for (int64_t i = 0; i < channels * squares; ++i) {
    elements.push_back(i % inner * (back ? squares : channels) + i / inner);
  }
  return elements;
}

/// Squares of pixels from channels, or channels from squares.
template <bool to_space>
size_t shuffled_pixels(Lowering& lowering, int64_t block) {
  const bool by_blocks = lowering.node().text("mode", "DCR") == "DCR";
  const int64_t channels = lowering.input_sizes(0)[0] / (to_space ? block * block : 1);
  auto info = std::make_shared<runtime::PixelShuffleInfo>();
  info->upscale_factor = to_space ? static_cast<float>(block) : 1.0f / static_cast<float>(block);
  const auto ordered = [&](size_t layer) {
    return channels == 1 || !by_blocks
               ? layer
               : lowering.taken(layer, 0, by_channels(channels, block * block, !to_space));
  };
  const size_t x = lowering.planes(0);
  const size_t shuffled =
      lowering.plan().add(info, "Pixelshuffle_Fallback_CHW_Float_M1", {to_space ? ordered(x) : x});
  return to_space ? shuffled : ordered(shuffled);
}

/// Both ways: pixels are shuffled; where that isn't exact, in a box of five axes whose two block axes
/// move to where they belong.
template <bool to_space>
void lower_blocks(Lowering& lowering) {
  const int64_t b = lowering.node().integer("blocksize", 1);
  const Extents in = lowering.input_sizes(0);
  if (in.size() != 3) throw NodeFault{"input 0", "expected a picture with channels"};
  const bool is_exact = is_half(to_space ? static_cast<double>(b) : 1.0 / static_cast<double>(b)) &&
                        (to_space || (b & (b - 1)) == 0);
  if (is_exact && b > 1 && lowering.plan().has("Gather_Fallback_Float_M1")) {
    return lowering.result(shuffled_pixels<to_space>(lowering, b));
  }
  const size_t x = lowering.input(0);
  size_t moved = 0;
  if (!to_space) {
    moved = lowering.permuted(lowering.reshaped(x, {in[0], in[1] / b, b, in[2] / b, b}),
                              {2, 4, 0, 1, 3});
  } else if (lowering.node().text("mode", "DCR") == "DCR") {
    moved = lowering.permuted(lowering.reshaped(x, {b, b, in[0] / (b * b), in[1], in[2]}),
                              {2, 3, 0, 4, 1});
  } else {
    moved = lowering.permuted(lowering.reshaped(x, {in[0] / (b * b), b, b, in[1], in[2]}),
                              {0, 3, 1, 4, 2});
  }
  lowering.result(moved);
}

// Operators that simplification puts others in the place of; what it leaves of them has no kernel.

void refuse_einsum(Lowering&) {
  throw NodeFault{"equation", "diagonals, and a letter for axes of several sizes, have no kernel"};
}

void refuse_one_hot(Lowering&) {
  throw NodeFault{"inputs",
                  "only a constant depth of up to 65536 and constant values have a kernel",
                  "set them, or fold them into the model"};
}

void refuse_top_k(Lowering&) {
  throw NodeFault{"input 1", "a constant number of up to 64, of up to 65536 numbers, has kernels",
                  "end the network before it with --output"};
}

void refuse_trilu(Lowering&) {
  throw NodeFault{"input 1", "only a constant distance from the diagonal has a kernel",
                  "set it, or fold it into the model"};
}

}  // namespace

std::span<const LoweringRow> movement_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"Concat", lower_concat},
      {"DepthToSpace", lower_blocks<true>},
      {"Einsum", refuse_einsum, "without diagonals"},
      {"Expand", lower_expand, "a constant shape"},
      {"Flatten", lower_reshape},
      {"Gather", lower_gather,
       "constant elements, rows of a constant from 0 on, or elements of up to 65536"},
      {"OneHot", refuse_one_hot, "a constant depth, constant values"},
      {"Pad", lower_pad, "constant sizes"},
      {"Reshape", lower_reshape},
      {"Slice", lower_slice, "constant parts"},
      {"SpaceToDepth", lower_blocks<false>},
      {"Split", lower_split, "constant sizes"},
      {"Squeeze", lower_reshape},
      {"Tile", lower_tile, "constant numbers"},
      {"TopK", refuse_top_k, "up to the first 64 of all"},
      {"Transpose", lower_transpose},
      {"Trilu", refuse_trilu, "a constant distance"},
      {"Unsqueeze", lower_reshape},
  };
  return kRows;
}

}  // namespace marlo::toolkit
