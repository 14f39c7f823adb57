#pragma once

// Every kernel class.

#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/kernel/basic/adaptive_pooling.h"
#include "qrt_core/kernel/basic/grid_sample.h"
#include "qrt_core/kernel/basic/pass_through.h"
#include "qrt_core/kernel/basic/pooling.h"
#include "qrt_core/kernel/basic/softmax.h"
#include "qrt_core/kernel/basic/upsampling.h"
#include "qrt_core/kernel/conv/reference_convolution.h"
#include "qrt_core/kernel/layout/concatenate.h"
#include "qrt_core/kernel/layout/expand.h"
#include "qrt_core/kernel/layout/layout_transform.h"
#include "qrt_core/kernel/layout/permute.h"
#include "qrt_core/kernel/layout/pixel_shuffle.h"
#include "qrt_core/kernel/layout/placeholder.h"
#include "qrt_core/kernel/layout/ranked_reshape.h"
#include "qrt_core/kernel/layout/reshape.h"
#include "qrt_core/kernel/layout/slice.h"
#include "qrt_core/kernel/layout/unsqueeze.h"
