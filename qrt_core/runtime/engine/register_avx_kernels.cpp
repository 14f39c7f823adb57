#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/utility/build_options.h"

#if QRT_WITH_AVX

namespace marlo::runtime {

using namespace kernel;

void register_avx_kernels(KernelRegistry& kernels) {
  add_kernel<ReLU_AVX_Float_M1>(kernels);
  add_kernel<ReLU6_AVX_Float_M1>(kernels);
  add_kernel<Sigmoid_AVX_Float_M1>(kernels);
  add_kernel<HSwish_AVX_Float_M1>(kernels);
  add_kernel<Leaky_AVX_Float_M1>(kernels);
  add_kernel<PReLU_AVX_Float_M1>(kernels);
  add_kernel<BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1>(kernels);
  add_kernel<BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1>(kernels);
  add_kernel<Elementwise_Add_AVX_Float_M1>(kernels);
  add_kernel<Elementwise_Sub_AVX_Float_M1>(kernels);
  add_kernel<Elementwise_Mul_AVX_Float_M1>(kernels);
  add_kernel<Elementwise_Div_AVX_Float_M1>(kernels);
  add_kernel<Elementwise_Max_AVX_Float_M1>(kernels);
  add_kernel<Elementwise_Min_AVX_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_AVX_C8HW8_Float_M2>(kernels);
  add_kernel<Upsampling2D_Bilinear_AVX_C8HW8_Float_M3>(kernels);
  add_kernel<Upsampling2D_Nearest_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_AVX_CHW_Float_M1>(kernels);
  add_kernel<Upsampling2D_Bilinear_AVX_CHW_Float_M2>(kernels);
  add_kernel<Upsampling2D_Bilinear_AVX_CHW_Float_M3>(kernels);
  add_kernel<LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2>(kernels);
  add_kernel<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1>(kernels);
  add_kernel<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2>(kernels);
  add_kernel<PixelShuffle_Downscale2_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<PixelShuffle_Upscale2_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Expand_AVX_CHW_Float_M1>(kernels);
  add_kernel<Expand_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1>(kernels);
  add_kernel<ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1>(kernels);
  add_kernel<Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1>(kernels);
  add_kernel<FullConnection_AVX_C_Float_M1>(kernels);
  add_kernel<FullConnection_AVX_C_Float_M2>(kernels);
  add_kernel<FullConnection_AVX_C_Float_M3>(kernels);
  add_kernel<FullConnection_AVX_C88_Float_M1>(kernels);
  add_kernel<FullConnection_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1>(kernels);
}

}  // namespace marlo::runtime

#endif
