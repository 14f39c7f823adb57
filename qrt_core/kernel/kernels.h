#pragma once

// Every kernel class.

#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/kernel/basic/pass_through.h"
#include "qrt_core/kernel/conv/reference_convolution.h"
#include "qrt_core/kernel/layout/layout_transform.h"
