#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/utility/build_options.h"

#if QRT_WITH_SSE

namespace marlo::runtime {

using namespace kernel;

void register_sse_kernels(KernelRegistry& kernels) {
  add_kernel<Elementwise_Add_SSE_Float_M1>(kernels);
  add_kernel<Elementwise_Sub_SSE_Float_M1>(kernels);
  add_kernel<Elementwise_Mul_SSE_Float_M1>(kernels);
  add_kernel<Elementwise_Div_SSE_Float_M1>(kernels);
  add_kernel<Elementwise_Max_SSE_Float_M1>(kernels);
  add_kernel<Elementwise_Min_SSE_Float_M1>(kernels);
  add_kernel<ReLU_SSE_Float_M1>(kernels);
  add_kernel<ReLU6_SSE_Float_M1>(kernels);
  add_kernel<Sigmoid_SSE_Float_M1>(kernels);
  add_kernel<HSigmoid_SSE_Float_M1>(kernels);
  add_kernel<HSwish_SSE_Float_M1>(kernels);
  add_kernel<TanH_SSE_Float_M1>(kernels);
  add_kernel<Leaky_SSE_Float_M1>(kernels);
  add_kernel<PReLU_SSE_Float_M1>(kernels);
  add_kernel<HSigmoid_Inplace_SSE_Float_M1>(kernels);
  add_kernel<ReLU_Inplace_SSE_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1>(kernels);
  add_kernel<Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2>(kernels);
  add_kernel<LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2>(kernels);
  add_kernel<LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1>(kernels);
  add_kernel<PixelShuffle_Downscale2_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<PixelShuffle_Upscale2_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<Upsampling2D_Nearest_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_SSE_C4HW4_Float_M2>(kernels);
  add_kernel<Upsampling2D_Bilinear_SSE_C4HW4_Float_M3>(kernels);
  add_kernel<Upsampling2D_Bilinear_SSE_CHW_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_SSE_CHW_Float_M2>(kernels);
  add_kernel<Upsampling2D_Bilinear_SSE_CHW_Float_M3>(kernels);
  add_kernel<Expand_SSE_CHW_Float_M1>(kernels);
  add_kernel<Expand_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1>(kernels);
  add_kernel<ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2>(kernels);
  add_kernel<FullConnection_SSE_C_Float_M1>(kernels);
  add_kernel<FullConnection_SSE_C44_Float_M1>(kernels);
  add_kernel<FullConnection_SSE_BC_Float_M1>(kernels);
  add_kernel<FullConnection_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<RNNCell_SSE_C_F32_M1>(kernels);
  add_kernel<RNN_SSE_SC_F32_M1>(kernels);
  add_kernel<LSTMCell_SSE_C_F32_M1>(kernels);
  add_kernel<LSTM_SSE_SC_F32_M1>(kernels);
  add_kernel<GRUCell_SSE_C_F32_M1>(kernels);
  add_kernel<GRU_SSE_SC_F32_M1>(kernels);
#if QRT_WITH_SGEMM
  add_kernel<GRUCell_SSE_SGEMM_C_F32_M2>(kernels);
  add_kernel<GRU_SSE_SGEMM_SC_F32_M2>(kernels);
#endif
  add_kernel<Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1>(kernels);
  add_kernel<Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1>(kernels);
  add_kernel<Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1>(kernels);
}

}  // namespace marlo::runtime

#endif
