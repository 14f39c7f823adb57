#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/layers.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"

namespace marlo::test {

/// Adds to a network that has a layer `source` of planes [2, 7, 9] a layer of each kind that moves,
/// combines, pools or samples. @return the ends
class MovingLayers {
 public:
  MovingLayers(ModelBuilder& model, std::string source)
      : model_(model), source_(std::move(source)) {}

  std::vector<std::string> add() {
    add_moves();
    add_shuffles();
    add_operators();
    add_pools();
    add_samplers();
    return ends_;
  }

 private:
  template <typename Info>
  static std::shared_ptr<Info> info() {
    return std::make_shared<Info>();
  }

  // A layer that nothing else reads.
  template <typename Info>
  void end(const std::string& id, const std::vector<std::string>& sources,
           std::shared_ptr<Info> description, const std::string& kernel) {
    layer(id, sources, std::move(description), kernel);
    ends_.push_back(id);
  }

  template <typename Info>
  void layer(const std::string& id, const std::vector<std::string>& sources,
             std::shared_ptr<Info> description, const std::string& kernel) {
    model_.layer(id, sources, std::move(description), kernel);
  }

  static bool runs(const std::string& kernel) {
    return all_kernels().Create(kernel) != nullptr && why_not_here(kernel).empty();
  }

  void add_moves() {
    auto join = info<runtime::ConcatenateInfo>();
    join->dim = 1;
    layer("join", {source_, source_}, join, "Concatenate_C_Fallback_CnHWn_M1");
    auto rows = info<runtime::ConcatenateInfo>();
    rows->dim = 2;
    end("join rows", {source_, source_}, rows, "Concatenate_MainMemory_Fallback");
    auto slice = info<runtime::TensorSliceInfo>();
    slice->slice_dims = {0, 4, 1, 0, 6, 1, 0, 8, 1};
    layer("slice", {"join"}, slice, "Slice_Fallback_CHW_Float_M1");
    auto flat = info<runtime::TensorReshapeInfo>();
    flat->new_shape = {1, -1};
    end("flat", {"slice"}, flat, "Reshape_Fallback_CnHWn_To_C_M1");
    auto axes = info<runtime::TensorTransposeInfo>();
    axes->axes = {1, 2, 0};
    end("permute", {source_}, axes, "Transform_MainMemory_Permute_Fallback");
    auto axis = info<runtime::TensorUnSqueezeInfo>();
    axis->type = 16;
    axis->dim = 1;
    end("unsqueeze", {source_}, axis, "UnSqueeze_Fallback_M1");
    auto placeholder = info<runtime::LayerPlaceholderInfo>();
    placeholder->input_shapes = {{2, 7, 9}};
    placeholder->output_shape = {3, 4, 2};
    layer("placeholder", {source_}, placeholder, "LayerPlaceholder_Fallback_Float_M1");
  }

  void add_shuffles() {
    auto down = info<runtime::PixelShuffleInfo>();
    down->upscale_factor = 0.5f;
    layer("down", {"slice"}, down, "Pixelshuffle_Fallback_CHW_Float_M1");
    auto up = info<runtime::PixelShuffleInfo>();
    up->upscale_factor = 2;
    const std::string kernel = "PixelShuffle_Upscale2_SSE_C4HW4_Float_M1";
    const bool blocked = runs(kernel);
    end("up", {"down"}, up, blocked ? kernel : "Pixelshuffle_Fallback_CHW_Float_M1");
    if (!blocked) return;
    model_.input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1");
    model_.output_converter("0", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1");
  }

  void add_operators() {
    for (const char* width : {"Fallback", "Add_SSE", "Add_AVX"}) {
      const std::string kernel = std::string("Elementwise_") + width + "_Float_M1";
      if (runs(kernel)) {
        end(kernel, {source_, source_}, info<runtime::ElementWiseOperatorInfo>(), kernel);
      }
    }
    auto sum = info<runtime::TensorArithmeticInfo>();
    sum->dim = {2, 3};
    layer("sum", {source_}, sum, "TensorArithmetic_Fallback_M1");
    auto times = info<runtime::BroadcastOperatorInfo>();
    times->op_type = 2;
    end("broadcast", {source_, source_}, times, "BroadcastOperator_Fallback_Float_M1");
    ends_.push_back("sum");
    auto softmax = info<runtime::SoftmaxInfo>();
    softmax->dim = 1;
    end("softmax", {source_}, softmax, "Softmax_Fallback_Float_M1");
  }

  void add_pools() {
    auto max = info<runtime::MaxPool2dInfo>();
    max->kernel_x = max->kernel_y = max->stride_x = max->stride_y = 2;
    max->dilation_x = max->dilation_y = 1;
    end("max", {source_}, max, "Pooling2D_Max_Fallback_Float_M1");
    auto mean = info<runtime::AvgPool2dInfo>();
    mean->kernel_x = mean->kernel_y = 3;
    mean->stride_x = mean->stride_y = 2;
    mean->padding_l = mean->padding_t = mean->padding_r = mean->padding_b = 1;
    const std::string kernel = "Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1";
    end("mean", {source_}, mean, runs(kernel) ? kernel : "Pooling2D_Avg_Fallback_Float_M1");
    auto adaptive = info<runtime::AdaptiveAvgPool2dInfo>();
    adaptive->output_size = {2, 3};
    end("adaptive", {source_}, adaptive, "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1");
  }

  void add_samplers() {
    auto larger = info<runtime::Upsample2dInfo>();
    larger->scale_factor_x = larger->scale_factor_y = 2;
    larger->unsample_type = 1;
    const std::string kernel = "Upsampling2D_Bilinear_SSE_CHW_Float_M3";
    end("larger", {source_}, larger, runs(kernel) ? kernel : "Upsampling2D_Fallback_CHW_Float_M1");
    auto sample = info<runtime::GridSampleInfo>();
    sample->mode = 1;
    end("sample", {source_, "placeholder"}, sample, "GridSample_Fallback_CHW_Float_M1");
  }

  ModelBuilder& model_;
  std::string source_;
  std::vector<std::string> ends_;
};

}  // namespace marlo::test
