#pragma once

#include <cstdint>

namespace marlo::runtime {

/// Element type of a tensor.
enum class DataType : uint32_t {
  FLOAT32 = 0,
  FLOAT16 = 1,
  INT32 = 2,
  INT16 = 3,
  INT8 = 4,
  UINT32 = 5,
  UINT16 = 6,
  UINT8 = 7,
};

/// Memory order of a tensor. Dimensions stand in the order of the name; blocked forms have the
/// block as an explicit last dimension. The codes are part of the model files.
enum class LayoutType : uint32_t {
  CHW = 0,           ///< [C, H, W], planar
  HWC = 1,           ///< [H, W, C], interleaved, as in pictures
  C4HW4 = 2,         ///< [C/4, H, W, 4]
  C8HW8 = 3,         ///< [C/8, H, W, 8]
  NCHW = 8,          ///< name only
  N4C4HW4n4c = 9,    ///< name only
  N8C8HW8n8c = 10,   ///< name only
  GNCHW = 11,        ///< [G, N, C, H, W]: convolution weights as they come from a model
  GN4C4HW4n4c = 12,  ///< [G, N/4, C/4, H, W, 4, 4]: packed convolution weights
  GN8C8HW8n8c = 16,  ///< name only
  G4NCHWg4 = 17,     ///< [G/4, N, C, H, W, 4]: packed weights of a depthwise convolution
  G8NCHWg8 = 18,     ///< [G/8, N, C, H, W, 8]: the same in blocks of 8
  GN4CHWn4 = 19,     ///< [G, N/4, C, H, W, 4] or [G, N, C/4, H, W, 4]: packed weights
  GN8CHWn8 = 20,     ///< [G, N/8, C, H, W, 8] or [G, N, C/8, H, W, 8]: packed weights
  GN = 21,           ///< [G, N]: bias of a convolution
  NHWC = 22,         ///< name only
  FLEXIABLE = 23,    ///< no layout meaning
  C = 24,            ///< [C]
  BC = 25,           ///< [B, C]: batch of vectors
  SC = 30,           ///< [S, C]: sequence of vectors
  GNCL = 32,         ///< [G, N, C, L]: weights of a one-dimensional convolution
  CL = 33,           ///< [C, L]: channels by length
  NC = 34,           ///< [N, C]: weights of a full connection
  N8C8c8n8 = 35,     ///< [N/8, C/8, 8, 8]: packed weights of a full connection
  GN8C8HWc8n8 = 36,  ///< [G, N/8, C/8, H, W, 8, 8]: packed weights, output channels innermost
  GN4C8HWn4c8 = 37,  ///< [G, N/4, C/8, H, W, 4, 8]: packed weights, input channels innermost
  GN8C4HWn8c4 = 38,  ///< [G, N/8, C/4, H, W, 8, 4]: packed weights, input channels innermost
};

/// Where the bytes of a tensor are. Only `MainMemory` is allocated by this library.
enum class LocationType : uint32_t {
  CPUObject = 0x10000,
  MainMemory = 0x10001,
  OpenGLObject = 0x20000,
  OpenGLSSBO = 0x20001,
  OpenGLUBO = 0x20002,
  OpenGLImage = 0x20004,
  MetalObject = 0x40000,
  MetalBuffer = 0x41001,
  MetalNoCopyBuffer = 0x41002,
  MetalTempBuffer = 0x41004,
  MetalImage = 0x42001,
  MetalTempImage = 0x42002,
};

/// Bytes per element; 0 for an unknown code.
constexpr uint32_t ElementSize(DataType type) {
  switch (type) {
    case DataType::FLOAT32:
    case DataType::INT32:
    case DataType::UINT32:
      return 4;
    case DataType::FLOAT16:
    case DataType::INT16:
    case DataType::UINT16:
      return 2;
    case DataType::INT8:
    case DataType::UINT8:
      return 1;
  }
  return 0;
}

/// Channels of a pixel that lie side by side in an activation tensor of this layout: 4 or 8 for the
/// blocked forms, 1 for planes.
constexpr uint32_t BlockSize(LayoutType layout) {
  if (layout == LayoutType::C4HW4) return 4;
  return layout == LayoutType::C8HW8 ? 8 : 1;
}

/// Printed name of a data type; null for a code without one.
constexpr const char* PrintedName(DataType type) {
  switch (type) {
    case DataType::FLOAT32:
      return "FLOAT32";
    case DataType::FLOAT16:
      return "FLOAT16";
    case DataType::INT32:
      return "INT32";
    case DataType::INT16:
      return "INT16";
    case DataType::INT8:
      return "INT8";
    case DataType::UINT32:
      return "UINT32";
    case DataType::UINT16:
      return "UINT16";
    case DataType::UINT8:
      return "UINT8";
  }
  return nullptr;
}

/// Printed name of a layout; null for a code without one.
constexpr const char* PrintedName(LayoutType layout) {
  switch (layout) {
    case LayoutType::CHW:
      return "CHW";
    case LayoutType::HWC:
      return "HWC";
    case LayoutType::C4HW4:
      return "C4HW4";
    case LayoutType::C8HW8:
      return "C8HW8";
    case LayoutType::NCHW:
      return "NCHW";
    case LayoutType::N4C4HW4n4c:
      return "N4C4HW4n4c";
    case LayoutType::N8C8HW8n8c:
      return "N8C8HW8n8c";
    case LayoutType::GNCHW:
      return "GNCHW";
    case LayoutType::GN4C4HW4n4c:
      return "GN4C4HW4n4c";
    case LayoutType::GN8C8HW8n8c:
      return "GN8C8HW8n8c";
    case LayoutType::NHWC:
      return "NHWC";
    case LayoutType::FLEXIABLE:
      return "FLEXIABLE";
    default:
      return nullptr;
  }
}

/// Printed name of a location; null for a code without one.
constexpr const char* PrintedName(LocationType location) {
  switch (location) {
    case LocationType::CPUObject:
      return "CPUObject";
    case LocationType::MainMemory:
      return "MainMemory";
    case LocationType::OpenGLObject:
      return "OpenGLObject";
    case LocationType::OpenGLSSBO:
      return "OpenGLSSBO";
    case LocationType::OpenGLUBO:
      return "OpenGLUBO";
    case LocationType::OpenGLImage:
      return "OpenGLImage";
    case LocationType::MetalObject:
      return "MetalObject";
    case LocationType::MetalBuffer:
      return "MetalBuffer";
    case LocationType::MetalNoCopyBuffer:
      return "MetalNoCopyBuffer";
    case LocationType::MetalTempBuffer:
      return "MetalTempBuffer";
    case LocationType::MetalImage:
      return "MetalImage";
    case LocationType::MetalTempImage:
      return "MetalTempImage";
  }
  return nullptr;
}

}  // namespace marlo::runtime
