#include "qrt_core/kernel/layout/ranked_reshape.h"

#include <gtest/gtest.h>

#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/shape_info.h"
#include "tests/kernel/layout/moves.h"
#include "tests/support/kernels.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorReshapeInfo;
using runtime::TensorShape;

using Dims = std::vector<uint32_t>;
using Entries = std::vector<int16_t>;

constexpr const char* kToC = "Reshape_Fallback_CnHWn_To_C_M1";
constexpr const char* kToCL = "Reshape_Fallback_CnHWn_To_CL_M1";
constexpr const char* kToCHW = "Reshape_Fallback_CL_To_CHW_M1";

std::shared_ptr<TensorReshapeInfo> description(Entries new_shape) {
  auto info = std::make_shared<TensorReshapeInfo>();
  info->new_shape = std::move(new_shape);
  return info;
}

class RankedReshapeTest : public testing::Test {
 protected:
  static int config(const char* name, Entries new_shape) {
    return make_kernel(name)->CheckConfig(description(std::move(new_shape)), nullptr);
  }

  std::shared_ptr<IKernel> configured(const char* name, Entries new_shape) {
    auto kernel = make_kernel(name);
    EXPECT_TRUE(kernel->Config(description(std::move(new_shape)), nullptr, context_));
    return kernel;
  }

  std::shared_ptr<runtime::TensorCPU> tensor(Dims dims, LayoutType layout,
                                             DataType type = DataType::FLOAT32) {
    return counting_tensor(context_, TensorShape(std::move(dims), type, layout));
  }

  int on_input(IKernel& kernel, Dims dims, LayoutType layout, DataType type = DataType::FLOAT32) {
    return kernel.CheckInputs({blank(context_, std::move(dims), layout, type)});
  }

  int on_output(IKernel& kernel, LayoutType layout, DataType type = DataType::FLOAT32) {
    return kernel.CheckOutputs({blank(context_, {6}, layout, type)});
  }

  /// The elements of blocks in the order of planes.
  static std::vector<unsigned char> in_plane_order(const runtime::Tensor& blocks) {
    const Dims& dims = blocks.shape.dims;
    const size_t size = runtime::ElementSize(blocks.shape.data_type);
    const BlockedDims from{dims[0] * dims[3], dims[1], dims[2], dims[3]};
    const BlockedDims to{dims[0] * dims[3], dims[1], dims[2], 1};
    const std::vector<unsigned char> before = bytes_of(blocks);
    std::vector<unsigned char> after(before.size());
    for (uint32_t c = 0; c < from.channels; ++c) {
      for (uint32_t h = 0; h < dims[1]; ++h) {
        for (uint32_t w = 0; w < dims[2]; ++w) {
          for (size_t byte = 0; byte < size; ++byte) {
            after[to.place(c, h, w) * size + byte] = before[from.place(c, h, w) * size + byte];
          }
        }
      }
    }
    return after;
  }

  TestContext context_;
};

TEST_F(RankedReshapeTest, TakesReshapeDescriptionsOnly) {
  const auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  for (const auto* row : kernel::ranked_reshape_rows) {
    const auto kernel = make_kernel(row->name);
    Entries good(row->rank + 1, 1);
    EXPECT_EQ(kernel->CheckConfig(description(good), nullptr), 0);
    EXPECT_EQ(kernel->CheckConfig(description(good), param), -1);
    EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
    EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::TensorExpandInfo>(), nullptr), -1);
    EXPECT_FALSE(kernel->Config(description({}), nullptr, context_));
    good.push_back(1);
    EXPECT_EQ(kernel->CheckConfig(description(good), nullptr), -1);
  }
}

TEST_F(RankedReshapeTest, ToCAcceptsABatchOfMinusOneAndAPositiveOrInferredSize) {
  EXPECT_EQ(config(kToC, {1, 72}), 0);
  EXPECT_EQ(config(kToC, {1, -1}), 0);
  EXPECT_EQ(config(kToC, {-1, 72}), 0);
  EXPECT_EQ(config(kToC, {-1, -1}), 0);
  EXPECT_EQ(config(kToC, {2, 72}), -1);
  EXPECT_EQ(config(kToC, {0, 72}), -1);
  EXPECT_EQ(config(kToC, {1, 0}), -1);
  EXPECT_EQ(config(kToC, {1, -2}), -1);
  EXPECT_EQ(config(kToC, {1}), -1);
  EXPECT_EQ(config(kToC, {1, 8, 9}), -1);
}

TEST_F(RankedReshapeTest, ToCLAcceptsOneInferredSizeBehindABatchOfOne) {
  EXPECT_EQ(config(kToCL, {1, 8, 3}), 0);
  EXPECT_EQ(config(kToCL, {1, 8, -1}), 0);
  EXPECT_EQ(config(kToCL, {1, -1, 3}), 0);
  EXPECT_EQ(config(kToCL, {1, -1, -1}), -1);
  EXPECT_EQ(config(kToCL, {-1, 8, 3}), -1);
  EXPECT_EQ(config(kToCL, {1, 0, 3}), -1);
  EXPECT_EQ(config(kToCL, {1, 8, -2}), -1);
  EXPECT_EQ(config(kToCL, {1, 24}), -1);
}

TEST_F(RankedReshapeTest, ToCHWAcceptsOneInferredSizeBehindABatchOfOne) {
  EXPECT_EQ(config(kToCHW, {1, 2, 3, 4}), 0);
  EXPECT_EQ(config(kToCHW, {1, -1, 3, 4}), 0);
  EXPECT_EQ(config(kToCHW, {1, 2, -1, 4}), 0);
  EXPECT_EQ(config(kToCHW, {1, 2, 3, -1}), 0);
  EXPECT_EQ(config(kToCHW, {1, -1, -1, 4}), -1);
  EXPECT_EQ(config(kToCHW, {-1, 2, 3, 4}), -1);
  EXPECT_EQ(config(kToCHW, {1, 2, 0, 4}), -1);
  EXPECT_EQ(config(kToCHW, {1, 2, 12}), -1);
}

TEST_F(RankedReshapeTest, C4HW4OfSeventyTwoElementsBecomesAVectorInPlaneOrder) {
  const auto input = context_.floats({2, 3, 3, 4}, LayoutType::C4HW4, distinct_floats(72));
  const auto output = output_of(*configured(kToC, {1, -1}), input, context_);
  EXPECT_EQ(output->shape, TensorShape({72}, DataType::FLOAT32, LayoutType::C));
  EXPECT_EQ(bits_of(values_of(*output)[9]),
            bits_of(*static_cast<const float*>(input->Locate4D(0, 0, 0, 1))));
  EXPECT_EQ(bytes_of(*output), in_plane_order(*input));
}

TEST_F(RankedReshapeTest, AMinusOneInFrontIsReadAsOneAndTheDescriptionStays) {
  const auto info = description({-1, 72});
  const auto kernel = make_kernel(kToC);
  ASSERT_TRUE(kernel->Config(info, nullptr, context_));
  EXPECT_EQ(info->new_shape, (Entries{-1, 72}));
  EXPECT_EQ(on_input(*kernel, {2, 3, 3, 4}, LayoutType::C4HW4), 0);
  const auto output = output_of(*kernel, tensor({8, 3, 3}, LayoutType::CHW), context_);
  EXPECT_EQ(output->shape.dims, (Dims{72}));
}

TEST_F(RankedReshapeTest, EightByMinusOneOnTwentyFourElementsGivesEightByThree) {
  const auto kernel = configured(kToCL, {1, 8, -1});
  EXPECT_EQ(on_input(*kernel, {2, 3, 4}, LayoutType::CHW), 0);
  const auto output = output_of(*kernel, tensor({2, 3, 4}, LayoutType::CHW), context_);
  EXPECT_EQ(output->shape, TensorShape({8, 3}, DataType::FLOAT32, LayoutType::CL));
}

TEST_F(RankedReshapeTest, AHalfTensorKeepsItsDataType) {
  const auto input = tensor({2, 3, 3, 4}, LayoutType::C4HW4, DataType::FLOAT16);
  const auto output = output_of(*configured(kToC, {1, -1}), input, context_);
  EXPECT_EQ(output->shape, TensorShape({72}, DataType::FLOAT16, LayoutType::C));
  EXPECT_EQ(bytes_of(*output), in_plane_order(*input));
}

TEST_F(RankedReshapeTest, GathersBlocksOfEverySizeAndType) {
  for (const uint32_t block : {4u, 8u}) {
    const LayoutType layout = block == 4 ? LayoutType::C4HW4 : LayoutType::C8HW8;
    for (const DataType type : {DataType::FLOAT32, DataType::FLOAT16, DataType::INT16}) {
      for (const Dims& dims : {Dims{1, 1, 1, block},
                               {3, 1, 1, block},
                               {1, 2, 3, block},
                               {5, 7, 1, block},
                               {0, 2, 2, block},
                               {2, 0, 3, block}}) {
        const auto input = tensor(dims, layout, type);
        const auto vector = output_of(*configured(kToC, {1, -1}), input, context_);
        EXPECT_EQ(bytes_of(*vector), in_plane_order(*input));
        const auto lines = output_of(*configured(kToCL, {1, -1, 1}), input, context_);
        EXPECT_EQ(bytes_of(*lines), in_plane_order(*input));
        EXPECT_EQ(lines->shape.layout, LayoutType::CL);
      }
    }
  }
}

TEST_F(RankedReshapeTest, PlanesAreCopiedWhateverTheirType) {
  for (const DataType type : {DataType::FLOAT32, DataType::INT16, DataType::UINT8}) {
    const auto input = tensor({2, 3, 4}, LayoutType::CHW, type);
    EXPECT_EQ(bytes_of(*output_of(*configured(kToC, {1, 24}), input, context_)), bytes_of(*input));
    EXPECT_EQ(bytes_of(*output_of(*configured(kToCL, {1, 6, 4}), input, context_)),
              bytes_of(*input));
  }
}

TEST_F(RankedReshapeTest, ToCLTellsFlexibleTensorsByTheirDims) {
  const auto kernel = configured(kToCL, {1, -1, 1});
  const auto planes = tensor({2, 3, 4}, LayoutType::FLEXIABLE);
  EXPECT_EQ(bytes_of(*output_of(*kernel, planes, context_)), bytes_of(*planes));
  for (const uint32_t block : {4u, 8u}) {
    const auto blocks = tensor({2, 3, 5, block}, LayoutType::FLEXIABLE);
    EXPECT_EQ(bytes_of(*output_of(*kernel, blocks, context_)), in_plane_order(*blocks));
  }
  IKernel::Tensors outputs;
  for (const Dims& dims : {Dims{24}, {4, 6}, {2, 2, 3, 2}, {1, 1, 2, 3, 4}}) {
    const auto input = tensor(dims, LayoutType::FLEXIABLE);
    const std::string text = failure_of([&] { kernel->Forward({input}, outputs, context_); });
    EXPECT_NE(text.find("Invalid input tensor layout"), std::string::npos) << text;
  }
  const auto input = tensor({2, 3, 4}, LayoutType::FLEXIABLE);
  EXPECT_NE(failure_of([&] {
              configured(kToC, {1, -1})->Forward({input}, outputs, context_);
            }).find("Invalid input tensor layout"),
            std::string::npos);
}

TEST_F(RankedReshapeTest, OtherLayoutsAndBlockedTypesThrow) {
  IKernel::Tensors outputs;
  const auto failure = [&](const char* name, Entries entries, Dims dims, LayoutType layout,
                           DataType type) {
    const auto input = tensor(std::move(dims), layout, type);
    const auto kernel = configured(name, std::move(entries));
    return failure_of([&] { kernel->Forward({input}, outputs, context_); });
  };
  const std::string layout = "Invalid input tensor layout";
  const std::string type = "Invalid input data type";
  EXPECT_NE(failure(kToC, {1, -1}, {2, 3, 4}, LayoutType::HWC, DataType::FLOAT32).find(layout),
            std::string::npos);
  EXPECT_NE(failure(kToCL, {1, 4, -1}, {2, 3, 4}, LayoutType::C, DataType::FLOAT32).find(layout),
            std::string::npos);
  EXPECT_NE(failure(kToC, {1, -1}, {6, 4}, LayoutType::C4HW4, DataType::FLOAT32).find(layout),
            std::string::npos);
  EXPECT_NE(failure(kToC, {1, -1}, {2, 3, 1, 4}, LayoutType::C4HW4, DataType::INT32).find(type),
            std::string::npos);
  EXPECT_NE(failure(kToCL, {1, 4, -1}, {1, 3, 1, 8}, LayoutType::C8HW8, DataType::UINT8).find(type),
            std::string::npos);
  EXPECT_TRUE(outputs.empty());
}

TEST_F(RankedReshapeTest, LinesBecomePlanes) {
  const auto input = tensor({6, 10}, LayoutType::CL);
  for (const auto& [entries, dims] : {std::pair<Entries, Dims>{{1, 6, 2, 5}, {6, 2, 5}},
                                      {{1, -1, 5, 2}, {6, 5, 2}},
                                      {{1, 3, -1, 5}, {3, 4, 5}},
                                      {{1, 3, 4, -1}, {3, 4, 5}}}) {
    const auto output = output_of(*configured(kToCHW, entries), input, context_);
    EXPECT_EQ(output->shape, TensorShape(dims, DataType::FLOAT32, LayoutType::CHW));
    EXPECT_EQ(bytes_of(*output), bytes_of(*input));
  }
}

TEST_F(RankedReshapeTest, KeepsTypeLocationAndExtra) {
  const TensorShape shape({2, 3, 4}, DataType::INT16, LayoutType::CHW, LocationType::MetalBuffer,
                          TensorShape::Extra(12));
  const auto inferred = [&](const char* name, Entries entries) {
    return configured(name, std::move(entries))->InferOutputShapes({shape})[0];
  };
  const auto expected = [&](Dims dims, LayoutType layout) {
    return TensorShape(std::move(dims), DataType::INT16, layout, LocationType::MetalBuffer,
                       TensorShape::Extra(12));
  };
  EXPECT_EQ(inferred(kToC, {1, -1}), expected({24}, LayoutType::C));
  EXPECT_EQ(inferred(kToC, {1, 5}), expected({24}, LayoutType::C));
  EXPECT_EQ(inferred(kToCL, {1, -1, 8}), expected({3, 8}, LayoutType::CL));
  EXPECT_EQ(inferred(kToCHW, {1, 4, -1, 3}), expected({4, 2, 3}, LayoutType::CHW));
}

TEST_F(RankedReshapeTest, ASmallerShapeTakesTheFirstElementsInPlaneOrder) {
  const auto input = tensor({2, 3, 1, 4}, LayoutType::C4HW4);
  const auto output = output_of(*configured(kToCL, {1, 5, 2}), input, context_);
  std::vector<unsigned char> expected = in_plane_order(*input);
  expected.resize(40);
  EXPECT_EQ(bytes_of(*output), expected);
}

TEST_F(RankedReshapeTest, ALargerShapeThrows) {
  IKernel::Tensors outputs;
  const auto blocks = tensor({2, 3, 1, 4}, LayoutType::C4HW4);
  const auto planes = tensor({2, 3, 4}, LayoutType::CHW);
  for (const auto& input : {blocks, planes}) {
    const auto kernel = configured(kToCL, {1, 5, 5});
    EXPECT_NE(failure_of([&] { kernel->Forward({input}, outputs, context_); }).find(kToCL),
              std::string::npos);
  }
  const auto kernel = configured(kToCHW, {1, 32767, 32767, 32767});
  EXPECT_NE(failure_of([&] { kernel->Forward({planes}, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { make_kernel(kToCL)->Forward({planes}, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { configured(kToC, {1, -1})->Forward({}, outputs, context_); }), "");
}

TEST_F(RankedReshapeTest, ChecksInputsOfTheGatheringForms) {
  const auto to_c = configured(kToC, {1, 24});
  const auto to_cl = configured(kToCL, {1, 8, 3});
  for (const auto& kernel : {to_c, to_cl}) {
    const bool by_rank = kernel == to_cl;
    for (const DataType type : {DataType::FLOAT32, DataType::FLOAT16, DataType::INT16}) {
      EXPECT_EQ(on_input(*kernel, {2, 3, 4}, LayoutType::CHW, type), 0);
    }
    EXPECT_EQ(on_input(*kernel, {2, 3, 4}, LayoutType::CHW, DataType::INT32), -2);
    EXPECT_EQ(on_input(*kernel, {2, 3, 1, 4}, LayoutType::C4HW4), 0);
    EXPECT_EQ(on_input(*kernel, {1, 3, 1, 8}, LayoutType::C8HW8), 0);
    EXPECT_EQ(on_input(*kernel, {2, 3, 4}, LayoutType::HWC), -2);
    EXPECT_EQ(on_input(*kernel, {2, 3, 5}, LayoutType::CHW), -2);
    EXPECT_EQ(on_input(*kernel, {4, 3, 4}, LayoutType::CHW), -2);
    EXPECT_EQ(on_input(*kernel, {2, 3, 4}, LayoutType::FLEXIABLE), by_rank ? 0 : -2);
    EXPECT_EQ(on_input(*kernel, {2, 3, 1, 4}, LayoutType::FLEXIABLE), by_rank ? 0 : -2);
    EXPECT_EQ(on_input(*kernel, {6, 4}, LayoutType::FLEXIABLE), -2);
    EXPECT_EQ(kernel->CheckInputs({}), -2);
    const auto elsewhere =
        blank(context_, {2, 3, 4}, LayoutType::CHW, DataType::FLOAT32, LocationType::OpenGLSSBO);
    EXPECT_EQ(kernel->CheckInputs({elsewhere}), -2);
  }
  EXPECT_EQ(on_input(*configured(kToC, {1, -1}), {7}, LayoutType::CHW), 0);
  EXPECT_EQ(on_input(*configured(kToCL, {1, 8, -1}), {2, 3, 3}, LayoutType::CHW), -2);
  EXPECT_EQ(on_input(*make_kernel(kToCL), {2, 3, 4}, LayoutType::CHW), -2);
}

TEST_F(RankedReshapeTest, ChecksInputsOfTheFormForLines) {
  const auto known = configured(kToCHW, {1, 2, 3, 4});
  EXPECT_EQ(on_input(*known, {6, 4}, LayoutType::CL), 0);
  EXPECT_EQ(on_input(*known, {24}, LayoutType::HWC, DataType::INT16), 0);
  EXPECT_EQ(on_input(*known, {6, 4}, LayoutType::CL, DataType::FLOAT16), -2);
  EXPECT_EQ(on_input(*known, {6, 5}, LayoutType::CL), -2);
  const auto inferred = configured(kToCHW, {1, -1, 3, 4});
  EXPECT_EQ(on_input(*inferred, {9, 4}, LayoutType::CL), 0);
  EXPECT_EQ(on_input(*inferred, {5, 5}, LayoutType::CL), -2);
}

TEST_F(RankedReshapeTest, ChecksOutputs) {
  for (const auto* row : kernel::ranked_reshape_rows) {
    const auto kernel = configured(row->name, Entries(row->rank + 1, 1));
    EXPECT_EQ(on_output(*kernel, row->layout), 0);
    EXPECT_EQ(on_output(*kernel, row->layout, DataType::INT16), 0);
    EXPECT_EQ(on_output(*kernel, row->layout, DataType::FLOAT16), row->takes_half ? 0 : -2);
    EXPECT_EQ(on_output(*kernel, row->layout, DataType::UINT8), -2);
    EXPECT_EQ(on_output(*kernel, LayoutType::HWC), -2);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);
  }
}

}  // namespace
}  // namespace marlo::test
