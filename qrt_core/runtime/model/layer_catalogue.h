#pragma once

#include <cstdint>
#include <memory>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Layer type code of network inputs.
constexpr uint16_t kInputLayerType = 0;

/// A default description of the class for a layer type code.
/// @throws std::runtime_error for a code without a class
QRT_API std::shared_ptr<LayerInfo> MakeLayerInfo(uint16_t code);

/// Whether a description is of the class for a layer type code, or of one derived from that.
QRT_API bool IsLayerOfType(const LayerInfo& layer, uint16_t code);

/// The printed name of a layer type code, "UnKnown" for a code without one.
///
/// Narrower than the catalogue of classes: later codes were never named.
QRT_API const char* LayerTypeName(uint16_t code);

/// The word for "op_type" of elementwise and broadcast operators.
/// @throws std::runtime_error for a number without a word; so do the functions below
QRT_API const char* ElementWiseWord(uint16_t op_type);

/// The word for "unsample_type" of an upsampling.
QRT_API const char* UpsampleWord(uint16_t unsample_type);

/// The word for "mode" of a grid sampling.
QRT_API const char* GridSampleWord(uint16_t mode);

/// The word for "padding_mode" of a grid sampling.
QRT_API const char* GridSamplePaddingWord(uint16_t padding_mode);

/// The word for "arith_type" of a reduction.
QRT_API const char* ArithmeticWord(uint16_t arith_type);

}  // namespace marlo::runtime
