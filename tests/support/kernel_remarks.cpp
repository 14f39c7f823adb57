#include "tests/support/kernel_remarks.h"

#include "qrt_core/kernel/extension/kernels.h"

namespace marlo::test {

namespace {
// A maximum of negative numbers and padding is 0.
constexpr char kOfPaddedMaxima[] = "same bits where nothing is padded, or nothing is negative";
}  // namespace

namespace {

void add_transposed([[maybe_unused]] std::vector<KernelRemark>& remarks) {
#if QRT_WITH_EXTENSIONS
  for (const auto* row : kernel::block_transposed_rows) {
    remarks.push_back(
        {row->name, "paddings hold (kernel - 1) * dilation - p; weights are [in, out]", ""});
  }
#endif
}

// With S the sum over the input channels of the largest weight times the largest input.
void add_filtering([[maybe_unused]] std::vector<KernelRemark>& remarks) {
#if QRT_WITH_EXTENSIONS
  for (const auto* row : kernel::block_winograd_rows) {
    const bool is_of_four = std::string(row->name).find("Winograd4") != std::string::npos;
    remarks.push_back({row->name, is_of_four ? "tiles of 4x4" : "tiles of 6x6",
                       std::string("sums off by at most (C + 40) eps ") +
                           (is_of_four ? "564" : "4580") + " S, C input channels"});
  }
#endif
}

}  // namespace

const std::vector<KernelRemark>& kernel_remarks() {
  static const std::vector<KernelRemark> remarks = {
      {"Sigmoid_SSE_Float_M1", "fast exponential", "off by at most 4 % of the exponential"},
      {"Sigmoid_AVX_Float_M1", "polynomial exponential", "a few units in the last place"},
      {"TanH_SSE_Float_M1", "fast exponential", "off by at most 4 % of the exponential"},
      {"Leaky_SSE_Float_M1", "NaN becomes 0", ""},
      {"Leaky_AVX_Float_M1", "NaN becomes 0", ""},
      {"PReLU_SSE_Float_M1", "NaN becomes 0", ""},
      {"PReLU_AVX_Float_M1", "NaN becomes 0", ""},
      {"Input_Fallback_M1", "any location", ""},
      {"Straight_Through_Fallback_M1", "main memory only", ""},
      {"Elementwise_Fallback_Float_M1", "takes any two shapes in memory order", ""},
      {"Elementwise_Max_SSE_Float_M1", "no description configures it", ""},
      {"Elementwise_Min_SSE_Float_M1", "no description configures it", ""},
      {"Elementwise_Max_AVX_Float_M1", "no description configures it", ""},
      {"Elementwise_Min_AVX_Float_M1", "no description configures it", ""},
      {"BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1", "multiplies whatever the operator", ""},
      {"BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1", "multiplies whatever the operator", ""},
      {"TensorArithmetic_Fallback_M1", "configures although its check refuses", ""},
      {"Slice_Fallback_CHW_Float_M1", "configures although its check refuses", ""},
      {"Concatenate_MainMemory_Fallback", "the axis counts no batch", ""},
      {"Concatenate_C_Fallback_CnHWn_M1", "the axis counts a batch", ""},
      {"Reshape_Fallback_To_SC_M1", "the batch must be 1", ""},
      {"PixelShuffle_Downscale2_AVX_C8HW8_Float_M1", "refuses odd sizes", ""},
      {"PixelShuffle_Downscale2_SSE_C4HW4_Float_M1", "drops an odd last row or column", ""},
      {"Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1", "", kOfPaddedMaxima},
      {"Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1", "", kOfPaddedMaxima},
      {"Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1", "maxima below -999 become -999 in vectors",
       kOfPaddedMaxima},
      {"Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1", "", kOfPaddedMaxima},
      {"Pooling2D_Avg_Fallback_Float_M1", "heeds `count_include_pad`", ""},
      {"Pooling2D_Avg_Knxm_Snxm_AVX_C8HW8_Float_M1", "heeds `count_include_pad`", "same bits"},
      {"ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
       "paddings hold (kernel - 1) * dilation - p; weights are [in, out]", ""},
      {"FullConnection_SSE_C4HW4_Float_M1", "its method doesn't fit together, so it takes no layer",
       ""},
      {"FullConnection_AVX_C8HW8_Float_M1", "its method doesn't fit together, so it takes no layer",
       ""},
      {"ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1",
       "paddings are cut off; weights are [out, in]", ""},
      {"ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1",
       "paddings are cut off; weights are [out, in]", ""},
      {"ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1",
       "paddings are cut off; weights are [out, in]", ""},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1",
       "leaves an odd last row and column as they were", ""},
      {"FullConnection_SSE_BC_Float_M1", "computes row 0 alone", ""},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1", "separate products and sums", ""},
      {"Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1", "separate products and sums", ""},
      {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", "copies its input first", ""},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1", "", "a wider bound of its own"},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", "", "a wider bound of its own"},
      {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", "the bits of M1, faster",
       "a wider bound of its own"},
  };
  static const std::vector<KernelRemark> all = [] {
    std::vector<KernelRemark> list = remarks;
    add_filtering(list);
    add_transposed(list);
    return list;
  }();
  return all;
}

}  // namespace marlo::test
