#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/sampling.h"

// Layers that move numbers, and those that reduce or resample axes.

namespace marlo::toolkit {
namespace {

void lower_reshape(Lowering& lowering) {
  lowering.result(lowering.reshaped(lowering.input(0), lowering.output_sizes()));
}

size_t permuted(Lowering& lowering, size_t layer, const std::vector<size_t>& axes) {
  auto info = std::make_shared<runtime::TensorTransposeInfo>();
  for (const size_t axis : axes) info->axes.push_back(static_cast<uint16_t>(axis));
  return lowering.plan().add(std::move(info), "Transform_MainMemory_Permute_Fallback", {layer});
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
  if (std::is_sorted(axes.begin(), axes.end())) return lowering.result(lowering.input(0));
  lowering.result(permuted(lowering, lowering.input(0), axes));
}

void lower_concat(Lowering& lowering) {
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", 0));
  std::vector<size_t> inputs;
  for (size_t i = 0; i < lowering.node().inputs.size(); ++i) {
    inputs.push_back(lowering.reshaped(lowering.input(i), lowering.input_sizes(i)));
  }
  if (inputs.size() == 1) return lowering.result(inputs[0]);
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = narrow_u16(static_cast<int64_t>(axis), "axis");
  lowering.result(lowering.plan().add(std::move(info), "Concatenate_MainMemory_Fallback", inputs));
}

/// What is taken of one axis.
struct Part {
  int64_t first = 0;
  int64_t count = 0;
  int64_t step = 1;
};

/// Parts of up to three axes, as many as the input has without its batch.
size_t sliced(Lowering& lowering, const std::vector<Part>& parts) {
  if (parts.size() > 3) {
    throw NodeFault{"input 0", "a part of a tensor with more than three axes has no kernel"};
  }
  std::vector<Part> planes = parts;
  while (planes.size() < 3) planes.insert(planes.begin() + 1, Part{0, 1, 1});
  auto info = std::make_shared<runtime::TensorSliceInfo>();
  for (const Part& part : planes) {
    if (part.count < 1) throw NodeFault{"", "a part without elements has no kernel"};
    info->slice_dims.push_back(narrow_i16(part.first, "starts"));
    info->slice_dims.push_back(narrow_i16(part.first + part.count * part.step, "ends"));
    info->slice_dims.push_back(narrow_i16(part.step, "steps"));
  }
  return lowering.plan().add(std::move(info), "Slice_Fallback_CHW_Float_M1", {lowering.planes(0)});
}

std::vector<Part> whole(const Extents& sizes) {
  std::vector<Part> parts;
  for (const int64_t size : sizes) parts.push_back({0, size, 1});
  return parts;
}

void lower_slice(Lowering& lowering) {
  const auto starts = lowering.required_constant(1)->integers();
  const Extents in = lowering.input_sizes(0);
  const Extents out = lowering.output_sizes();
  Numbers::Integers axes(starts.size());
  std::iota(axes.begin(), axes.end(), int64_t{0});
  if (lowering.node().has_input(3)) axes = lowering.required_constant(3)->integers();
  Numbers::Integers steps(starts.size(), 1);
  if (lowering.node().has_input(4)) steps = lowering.required_constant(4)->integers();
  std::vector<Part> parts = whole(in);
  for (size_t i = 0; i < starts.size(); ++i) {
    const auto batch = lowering.batch_of_input(0);
    if (batch && axis_from_front(axes[i], lowering.input_rank(0)) == *batch) continue;
    const size_t axis = lowering.axis_of_input(0, axes[i]);
    if (steps[i] < 1) throw NodeFault{"steps", "steps backwards have no kernel"};
    const int64_t size = in[axis];
    const int64_t start = starts[i] < 0 ? starts[i] + size : starts[i];
    parts[axis] = {std::clamp<int64_t>(start, 0, size), out[axis], steps[i]};
  }
  lowering.result(sliced(lowering, parts));
}

void lower_split(Lowering& lowering) {
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", 0));
  int64_t first = 0;
  for (size_t i = 0; i < lowering.node().outputs.size(); ++i) {
    std::vector<Part> parts = whole(lowering.input_sizes(0));
    if (!lowering.node().has_output(i)) {
      throw NodeFault{"outputs", "a part that isn't named has no size"};
    }
    parts[axis] = {first, lowering.output_sizes(i)[axis], 1};
    first += parts[axis].count;
    lowering.result(sliced(lowering, parts), i);
  }
}

// One element, or elements that follow one another, are a part of the axis.
void lower_gather(Lowering& lowering) {
  const SharedNumbers indices = lowering.required_constant(1);
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", 0));
  const Numbers::Integers& list = indices->integers();
  std::vector<Part> parts = whole(lowering.input_sizes(0));
  const int64_t size = parts[axis].count;
  for (size_t i = 1; i < list.size(); ++i) {
    if (list[i] != list[0] + static_cast<int64_t>(i)) {
      throw NodeFault{"input 1", "elements that don't follow one another have no kernel"};
    }
  }
  if (list.empty()) throw NodeFault{"input 1", "it names no element"};
  parts[axis] = {list[0] < 0 ? list[0] + size : list[0], static_cast<int64_t>(list.size()), 1};
  lowering.result(sliced(lowering, parts));
}

/// Zeros around planes are the padding of a convolution that changes nothing.
void lower_pad(Lowering& lowering) {
  if (lowering.node().text("mode", "constant") != "constant") {
    throw NodeFault{"mode", "only constant padding has layers"};
  }
  if (lowering.node().has_input(2) && lowering.required_constant(2)->real(0) != 0) {
    throw NodeFault{"input 2", "only padding with zeros has layers"};
  }
  if (lowering.node().has_input(3)) throw NodeFault{"input 3", "given axes have no layers yet"};
  const auto pads = lowering.required_constant(1)->integers();
  const size_t rank = lowering.input_rank(0);
  if (rank != 4 || pads.size() != 8 || pads[0] != 0 || pads[1] != 0 || pads[4] != 0 ||
      pads[5] != 0 || lowering.batch_of_input(0) != size_t{0}) {
    throw NodeFault{"pads", "only rows and columns of pictures can be padded"};
  }
  const size_t in = lowering.planes(0);
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = narrow_u16(lowering.plan().shape(in).dims[0], "channels");
  info->out_channels = info->groups = info->in_channels;
  info->kernel_x = info->kernel_y = 1;
  info->padding_t = narrow_u16(pads[2], "pads");
  info->padding_l = narrow_u16(pads[3], "pads");
  info->padding_b = narrow_u16(pads[6], "pads");
  info->padding_r = narrow_u16(pads[7], "pads");
  const std::vector<float> ones(info->in_channels, 1.0f);
  info->weight = runtime::MakeWeightBlob(ones.data(), ones.size());
  lowering.result(
      lowering.plan().add(info, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {in}));
}

/// Both ways: a box of five axes whose two block axes move to where they belong.
template <bool to_space>
void lower_blocks(Lowering& lowering) {
  const int64_t b = lowering.node().integer("blocksize", 1);
  const Extents in = lowering.input_sizes(0);
  if (in.size() != 3) throw NodeFault{"input 0", "expected a picture with channels"};
  const size_t x = lowering.input(0);
  size_t moved = 0;
  if (!to_space) {
    moved = permuted(lowering, lowering.reshaped(x, {in[0], in[1] / b, b, in[2] / b, b}),
                     {2, 4, 0, 1, 3});
  } else if (lowering.node().text("mode", "DCR") == "DCR") {
    moved = permuted(lowering, lowering.reshaped(x, {b, b, in[0] / (b * b), in[1], in[2]}),
                     {2, 3, 0, 4, 1});
  } else {
    moved = permuted(lowering, lowering.reshaped(x, {in[0] / (b * b), b, b, in[1], in[2]}),
                     {0, 3, 1, 4, 2});
  }
  lowering.result(moved);
}

void lower_softmax(Lowering& lowering) {
  const int64_t axis = lowering.node().integer("axis", -1);
  const bool to_end = lowering.node().integer("to_end", 0) != 0;
  const Extents sizes = lowering.input_sizes(0);
  size_t layer = lowering.input(0);
  size_t at = lowering.axis_of_input(0, axis);
  if (to_end && at + 1 < sizes.size()) {
    const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(at);
    layer = lowering.reshaped(
        layer, {std::accumulate(sizes.begin(), middle, int64_t{1}, std::multiplies<>()),
                std::accumulate(middle, sizes.end(), int64_t{1}, std::multiplies<>())});
    at = 1;
  }
  auto info = std::make_shared<runtime::SoftmaxInfo>();
  info->dim = static_cast<uint16_t>(at + 1);
  lowering.result(lowering.plan().add(std::move(info), "Softmax_Fallback_Float_M1", {layer}));
}

template <uint16_t operation>
void lower_reduction(Lowering& lowering) {
  const size_t rank = lowering.input_rank(0);
  Numbers::Integers axes;
  if (lowering.node().has_input(1)) axes = lowering.required_constant(1)->integers();
  if (axes.empty()) {
    if (lowering.node().integer("noop_with_empty_axes", 0) != 0) {
      return lowering.result(lowering.input(0));
    }
    axes.resize(rank);
    std::iota(axes.begin(), axes.end(), int64_t{0});
  }
  auto info = std::make_shared<runtime::TensorArithmeticInfo>();
  info->arith_type = operation;
  for (const int64_t axis : axes) {
    // The batch is one: nothing is left to reduce there.
    if (lowering.batch_of_input(0) == axis_from_front(axis, rank, "axes")) continue;
    info->dim.push_back(static_cast<int16_t>(lowering.axis_of_input(0, axis) + 1));
  }
  if (info->dim.empty()) return lowering.result(lowering.input(0));
  lowering.result(
      lowering.plan().add(std::move(info), "TensorArithmetic_Fallback_M1", {lowering.input(0)}));
}

/// One axis of a resize.
struct ResizedAxis {
  int64_t in;
  int64_t out;
  double scale;
};

std::vector<ResizedAxis> resized_axes(Lowering& lowering) {
  const Extents in = lowering.input_sizes(0);
  const Extents out = lowering.output_sizes();
  if (in.size() != 3 || in[0] != out[0]) {
    throw NodeFault{"input 0", "only rows and columns of pictures can be resized"};
  }
  std::vector<ResizedAxis> axes;
  for (size_t i = 1; i <= 2; ++i) {
    axes.push_back({in[i], out[i], static_cast<double>(out[i]) / static_cast<double>(in[i])});
  }
  if (!lowering.node().has_input(2)) return axes;
  const SharedNumbers scales = lowering.required_constant(2);
  for (size_t i = 0; i < 2 && scales->count() == 4; ++i) {
    axes[i].scale = scales->real(i + 2);
    // Where scales leave fractions, the kernels round sizes otherwise.
    if (axes[i].scale * static_cast<double>(axes[i].in) != static_cast<double>(axes[i].out)) {
      throw NodeFault{"scales", "a size that isn't whole has no kernel"};
    }
  }
  return axes;
}

/// Whether the kernels, which take element floor(place / scale), take the same as the node.
bool takes_same_elements(const Node& node, const ResizedAxis& axis) {
  const auto scale = static_cast<float>(axis.scale);
  for (int64_t place = 0; place < axis.out; ++place) {
    const auto taken = static_cast<int64_t>(std::floor(static_cast<float>(place) / scale));
    if (taken != nearest_source(node, axis.in, axis.out, axis.scale, place)) return false;
  }
  return true;
}

/// Whether a linear resize aligns corners; throws NodeFault for places that no kernel computes.
bool aligns_corners(const Node& node, const std::vector<ResizedAxis>& axes) {
  const std::string places = node.text("coordinate_transformation_mode", "half_pixel");
  if (places == "align_corners") return true;
  const bool one = axes[0].out == 1 || axes[1].out == 1;
  if (places == "half_pixel" || (places == "pytorch_half_pixel" && !one)) return false;
  throw NodeFault{"coordinate_transformation_mode", "linear with " + places + " has no kernel"};
}

void lower_resize(Lowering& lowering) {
  const Node& node = lowering.node();
  const std::string mode = node.text("mode", "nearest");
  const auto axes = resized_axes(lowering);
  if (node.integer("antialias", 0) != 0) throw NodeFault{"antialias", "it has no kernel"};
  if (mode == "cubic") throw NodeFault{"mode", "\"cubic\" has no kernel"};
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->scale_factor_y = static_cast<float>(axes[0].scale);
  info->scale_factor_x = static_cast<float>(axes[1].scale);
  if (mode == "nearest") {
    for (const ResizedAxis& axis : axes) {
      if (takes_same_elements(node, axis)) continue;
      throw NodeFault{"coordinate_transformation_mode", "from " + std::to_string(axis.in) + " to " +
                                                            std::to_string(axis.out) +
                                                            " the kernels take other elements"};
    }
  } else {
    info->unsample_type = 1;
    info->align_corner = aligns_corners(node, axes);
  }
  lowering.result(lowering.plan().add(std::move(info), "Upsampling2D_Fallback_CHW_Float_M1",
                                      {lowering.planes(0)}));
}

void lower_grid_sample(Lowering& lowering) {
  const Node& node = lowering.node();
  const std::string mode = node.text("mode", "linear");
  const std::string padding = node.text("padding_mode", "zeros");
  if (mode != "linear") throw NodeFault{"mode", "\"" + mode + "\" has no kernel that rounds alike"};
  if (padding == "reflection") throw NodeFault{"padding_mode", "reflection has no kernel"};
  auto info = std::make_shared<runtime::GridSampleInfo>();
  info->mode = 1;
  info->padding_mode = padding == "zeros" ? 0 : 1;
  info->align_corners = node.integer("align_corners", 0) != 0;
  lowering.result(lowering.plan().add(std::move(info), "GridSample_Fallback_CHW_Float_M1",
                                      {lowering.planes(0), lowering.planes(1)}));
}

constexpr LoweringRow kRows[] = {
    {"Concat", lower_concat, "tensors that aren't constant"},
    {"DepthToSpace", lower_blocks<true>},
    {"Flatten", lower_reshape},
    {"Gather", lower_gather, "constant elements that follow one another, up to three axes"},
    {"GridSample", lower_grid_sample, "linear; zeros and border"},
    {"Pad", lower_pad, "zeros around pictures"},
    {"ReduceMean", lower_reduction<1>},
    {"ReduceSum", lower_reduction<0>},
    {"Reshape", lower_reshape},
    {"Resize", lower_resize,
     "pictures; linear at half_pixel and align_corners, nearest where floor takes the same"},
    {"Slice", lower_slice, "forwards, up to three axes"},
    {"Softmax", lower_softmax},
    {"SpaceToDepth", lower_blocks<false>},
    {"Split", lower_split, "up to three axes"},
    {"Squeeze", lower_reshape},
    {"Transpose", lower_transpose},
    {"Unsqueeze", lower_reshape},
};

}  // namespace

std::span<const LoweringRow> movement_lowerings() { return kRows; }

}  // namespace marlo::toolkit
