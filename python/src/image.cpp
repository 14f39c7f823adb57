#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "python/src/bind.h"
#include "python/src/errors.h"
#include "qrt_core/kernel/image/color_functions.h"
#include "qrt_core/kernel/image/geometry_functions.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/resize_functions.h"
#include "qrt_core/runtime/tensor/device_cpu.h"

// What qrt_core/image.py calls. Its arrays are C-contiguous, of the right type, and made there.

namespace qrt_python {

namespace functional = marlo::kernel::functional;
using functional::ImageTensor;
using marlo::kernel::ImageProcessFallback;
using marlo::kernel::ImageProcessSSE;
using marlo::runtime::DataType;
using marlo::runtime::LayoutType;
using marlo::utility::Error;

namespace {

// Makes tensors on the arrays' memory, which needs no pool and changes nothing in it.
marlo::runtime::DeviceCPU& device() {
  static const auto* const made = new std::shared_ptr<marlo::runtime::DeviceCPU>(
      marlo::runtime::CreateDeviceCPU({}, nullptr, nullptr, nullptr));
  return **made;
}

LayoutType layout_of(const std::string& name) {
  if (name == "hwc") return LayoutType::HWC;
  if (name == "chw") return LayoutType::CHW;
  return LayoutType::FLEXIABLE;
}

ImageTensor tensor_on(const py::array& array, const std::string& layout) {
  std::vector<uint32_t> dims;
  for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
    dims.push_back(static_cast<uint32_t>(array.shape(axis)));
  }
  const DataType type = array.itemsize() == 4 ? DataType::FLOAT32 : DataType::UINT8;
  return device().CreateTensorExternal({std::move(dims), type, layout_of(layout)},
                                       const_cast<void*>(array.data()));
}

// Runs `call` without the interpreter's lock.
template <typename Call>
void without_lock(Call call) {
  try {
    const py::gil_scoped_release released;
    call();
  } catch (const Error& failure) {
    raise("InputError", failure);
  }
}

void convert(const py::array& input, const std::string& input_layout, const py::array& output,
             const std::string& output_layout, int code) {
  const ImageTensor from = tensor_on(input, input_layout);
  const ImageTensor to = tensor_on(output, output_layout);
  without_lock([&] { ImageProcessFallback().ConvertPixel(from, to, code, nullptr); });
}

void zoom(const py::array& input, const py::array& output, std::array<float, 4> corners, int code) {
  const ImageTensor from = tensor_on(input, "");
  const ImageTensor to = tensor_on(output, "");
  without_lock([&] {
    ImageProcessFallback().ConvertPixel(from, to, corners[0], corners[1], corners[2], corners[3],
                                        code, nullptr);
  });
}

void warp(const py::array& input, const py::array& output, std::array<float, 6> matrix, int code) {
  constexpr int kNormalizedWarp = 55;
  const ImageTensor from = tensor_on(input, "chw");
  const ImageTensor to = tensor_on(output, "chw");
  without_lock([&] {
    if (code == kNormalizedWarp) {
      ImageProcessSSE().ConvertPixel(from, to, matrix.data(), code, nullptr);
    } else {
      ImageProcessFallback().ConvertPixel(from, to, matrix.data(), code, nullptr);
    }
  });
}

void resize(const py::array& input, const py::array& output, bool is_nearest) {
  using Function = void (*)(const ImageTensor&, ImageTensor&);
  static constexpr Function kFunctions[2][4] = {{&functional::F_Resize_Bilinear_HWC_U8_C1_Fallback,
                                                 &functional::F_Resize_Bilinear_HWC_U8_C2_Fallback,
                                                 &functional::F_Resize_Bilinear_HWC_U8_C3_Fallback,
                                                 &functional::F_Resize_Bilinear_HWC_U8_C4_Fallback},
                                                {&functional::F_Resize_Nearest_HWC_U8_C1_Fallback,
                                                 &functional::F_Resize_Nearest_HWC_U8_C2_Fallback,
                                                 &functional::F_Resize_Nearest_HWC_U8_C3_Fallback,
                                                 &functional::F_Resize_Nearest_HWC_U8_C4_Fallback}};
  const auto channels = static_cast<size_t>(input.shape(2));
  if (channels < 1 || channels > 4) throw py::value_error("a picture has 1 to 4 channels");
  const ImageTensor from = tensor_on(input, "hwc");
  ImageTensor to = tensor_on(output, "hwc");
  without_lock([&] { kFunctions[is_nearest ? 1 : 0][channels - 1](from, to); });
}

void crop(const py::array& input, const std::string& layout, const py::array& output, int top,
          int left, uint8_t fill) {
  const ImageTensor from = tensor_on(input, layout);
  ImageTensor to = tensor_on(output, layout);
  const auto& dims = to->shape.dims;
  const bool is_planes = layout == "chw";
  const uint32_t height = dims[is_planes ? 1 : 0];
  const uint32_t width = dims[is_planes ? 2 : 1];
  without_lock([&] {
    if (is_planes) {
      functional::F_Crop_CHW_Memcpy(from, static_cast<unsigned int>(top),
                                    static_cast<unsigned int>(left), height, width, to);
    } else if (from->shape.data_type == DataType::UINT8) {
      functional::F_Crop_U8_HWC_Memcpy(from, top, left, static_cast<int>(height),
                                       static_cast<int>(width), fill, to);
    } else {
      functional::F_Crop_HWC_Memcpy(from, static_cast<unsigned int>(top),
                                    static_cast<unsigned int>(left), height, width, to);
    }
  });
}

void normalize(const py::array& planes, const py::array& output, const py::array& mean,
               const py::array& scale) {
  ImageTensor from = tensor_on(planes, "chw");
  ImageTensor to = tensor_on(output, "chw");
  const auto vector_on = [](const py::array& array) {
    const ImageTensor tensor = tensor_on(array, "");
    tensor->shape.layout = LayoutType::C;
    return tensor;
  };
  const ImageTensor sub = vector_on(mean);
  const ImageTensor mul = vector_on(scale);
  without_lock([&] {
    if (from->shape.data_type == DataType::UINT8) {
      functional::F_Normalize_CHW_U8_To_CHW_F32_Fallback(from, sub, mul, to);
    } else {
      functional::Normalize_CHW_Float_SSE(from, to, static_cast<const float*>(mul->handle.cpu),
                                          static_cast<const float*>(sub->handle.cpu));
    }
  });
}

}  // namespace

void bind_image(py::module_& module) {
  module.def("_image_convert", &convert);
  module.def("_image_zoom", &zoom);
  module.def("_image_warp", &warp);
  module.def("_image_resize", &resize);
  module.def("_image_crop", &crop);
  module.def("_image_normalize", &normalize);
}

}  // namespace qrt_python
