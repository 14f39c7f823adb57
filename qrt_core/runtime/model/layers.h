#pragma once

// Every layer description.

#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/normalization_info.h"
#include "qrt_core/runtime/model/pooling_info.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "qrt_core/runtime/model/recurrent_states_info.h"
#include "qrt_core/runtime/model/shape_info.h"
