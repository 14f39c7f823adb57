#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/utility/build_options.h"

#if QRT_WITH_SGEMM

namespace marlo::runtime {

using namespace kernel;

void register_sgemm_kernels(KernelRegistry& kernels) {
  add_kernel<RNNCell_SGEMM_C_F32_M1>(kernels);
  add_kernel<RNN_SGEMM_SC_F32_M1>(kernels);
  add_kernel<LSTMCell_SGEMM_C_F32_M1>(kernels);
  add_kernel<LSTM_SGEMM_SC_F32_M1>(kernels);
  add_kernel<GRUCell_SGEMM_C_F32_M1>(kernels);
  add_kernel<GRU_SGEMM_SC_F32_M1>(kernels);
  add_kernel<FullConnection_SGEMM_C_Float_M1>(kernels);
  add_kernel<Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1>(kernels);
}

}  // namespace marlo::runtime

#endif
