#pragma once

/// @file
/// Everything that an application needs: load a model, fill its input tensors, run it.
///
/// @code
/// std::shared_ptr<marlo::runtime::Context> context;
/// marlo::utility::create_context(context, 64);
/// marlo::runtime::KernelRegistry kernels;
/// marlo::runtime::InferenceParamRegistry params;
/// marlo::utility::init_register_operators(kernels, params);
///
/// std::map<std::string, std::shared_ptr<marlo::utility::_NetworkPackage>> nets;
/// if (marlo::utility::load_model("digits.qrtmodel", nets, context, kernels, params, "qrt", 1, 0) != 0) {
///   throw std::runtime_error("the log says why");
/// }
/// auto& package = *nets.at("digits");
/// package.input_tensors[0] = context->cpu->CreateF32CHWMainMem({1, 28, 28}, pixels);
/// auto outputs = marlo::utility::run(package);
/// @endcode

#include "qrt_core/kernel/basic/elementwise_functions.h"
#include "qrt_core/kernel/basic/sigmoid.h"
#include "qrt_core/kernel/image/color_functions.h"
#include "qrt_core/kernel/image/geometry_functions.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/resize_functions.h"
#include "qrt_core/kernel/image/yuv_image.h"
#include "qrt_core/kernel/layout/layout_functions.h"
#include "qrt_core/kernel/layout/padding.h"
#include "qrt_core/kernel/matrix/sgemm.h"
#include "qrt_core/runtime/engine/class_registry.h"
#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/runtime/engine/kernel_copy.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/half_rounding.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/runtime/tensor/aligned_pool.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/elements.h"
#include "qrt_core/runtime/tensor/hollow_tensors.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/runtime/tensor/weight_pool.h"
#include "qrt_core/utility/application.h"
#include "qrt_core/utility/check_model.h"
#include "qrt_core/utility/check_shapes.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/log.h"
#include "qrt_core/utility/model.h"
#include "qrt_core/utility/model_summary.h"
#include "qrt_core/utility/time_metrics.h"
