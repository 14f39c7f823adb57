#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/registration.h"

namespace marlo::runtime {

using namespace kernel;

void register_common_kernels(KernelRegistry& kernels) {
  add_kernel<Input_Fallback_M1>(kernels);
  add_kernel<Concatenate_MainMemory_Fallback>(kernels);
  add_kernel<Transform_MainMemory_Permute_Fallback>(kernels);
  add_kernel<Transform_MainMemory_Reshape_Fallback>(kernels);
  add_kernel<BroadcastOperator_Fallback_Float_M1>(kernels);
  add_kernel<HSigmoid_Fallback_Float_M1>(kernels);
  add_kernel<HSwish_Fallback_Float_M1>(kernels);
}

void register_portable_kernels(KernelRegistry& kernels) {
  add_kernel<Input_Fallback_M1>(kernels);
  add_kernel<Straight_Through_Fallback_M1>(kernels);
  add_kernel<LayerPlaceholder_Fallback_Float_M1>(kernels);
  add_kernel<Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1>(kernels);
  add_kernel<Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1>(kernels);
  add_kernel<ReLU_Fallback_Float_M1>(kernels);
  add_kernel<ReLU6_Fallback_Float_M1>(kernels);
  add_kernel<Sigmoid_Fallback_Float_M1>(kernels);
  add_kernel<TanH_Fallback_Float_M1>(kernels);
  add_kernel<HSigmoid_Fallback_Float_M1>(kernels);
  add_kernel<HSwish_Fallback_Float_M1>(kernels);
  add_kernel<Leaky_Fallback_Float_M1>(kernels);
  add_kernel<PReLU_Fallback_Float_M1>(kernels);
  add_kernel<Elementwise_Fallback_Float_M1>(kernels);
  add_kernel<BroadcastOperator_Fallback_Float_M1>(kernels);
  add_kernel<Pooling2D_Avg_Fallback_Float_M1>(kernels);
  add_kernel<AdaptivePooling2D_Avg_Fallback_CHW_Float_M1>(kernels);
  add_kernel<Pooling2D_Max_Fallback_Float_M1>(kernels);
  add_kernel<Transform_MainMemory_Reshape_Fallback>(kernels);
  add_kernel<Reshape_Fallback_CnHWn_To_C_M1>(kernels);
  add_kernel<Reshape_Fallback_CnHWn_To_CL_M1>(kernels);
  add_kernel<Reshape_Fallback_CL_To_CHW_M1>(kernels);
  add_kernel<Reshape_Fallback_To_CHW_M1>(kernels);
  add_kernel<Reshape_Fallback_To_SC_M1>(kernels);
  add_kernel<Reshape_Fallback_To_C_M1>(kernels);
  add_kernel<Softmax_Fallback_Float_M1>(kernels);
  add_kernel<Concatenate_MainMemory_Fallback>(kernels);
  add_kernel<Concatenate_C_Fallback_CnHWn_M1>(kernels);
  // This group lists it twice; the first entry stays.
  add_kernel<BroadcastOperator_Fallback_Float_M1>(kernels);
  add_kernel<Upsampling2D_Fallback_CHW_Float_M1>(kernels);
  add_kernel<Pixelshuffle_Fallback_CHW_Float_M1>(kernels);
  add_kernel<ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1>(kernels);
  add_kernel<Expand_Fallback_CHW_Float_M1>(kernels);
  add_kernel<GridSample_Fallback_CHW_Float_M1>(kernels);
  add_kernel<TensorArithmetic_Fallback_M1>(kernels);
  add_kernel<Linear_Fallback_Float_M1>(kernels);
  add_kernel<UnSqueeze_Fallback_M1>(kernels);
  add_kernel<Slice_Fallback_CHW_Float_M1>(kernels);
  add_kernel<FullConnection_Fallback_C_Float_M1>(kernels);
  add_kernel<RNNCell_Fallback_C_F32_M1>(kernels);
  add_kernel<RNN_Fallback_SC_F32_M1>(kernels);
  add_kernel<LSTMCell_Fallback_C_F32_M1>(kernels);
  add_kernel<LSTM_Fallback_SC_F32_M1>(kernels);
  add_kernel<GRUCell_Fallback_C_F32_M1>(kernels);
  add_kernel<GRU_Fallback_SC_F32_M1>(kernels);
}

}  // namespace marlo::runtime
