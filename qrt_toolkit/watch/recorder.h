#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qrt_toolkit/watch/kernel_wrapper.h"

namespace marlo::toolkit {

/// The numbers of a shape in memory as doubles.
std::vector<double> numbers_of(const runtime::TensorShape& shape, const void* memory);

/// One output of a layer, as it was when the layer had run.
struct LayerRecord {
  uint32_t layer = 0;
  uint32_t position = 0;  ///< among the layer's outputs
  runtime::TensorShape shape;
  std::string bytes;

  std::vector<double> values() const { return numbers_of(shape, bytes.data()); }
};

/// Copies what each layer makes, after its converters, before a later layer can write over it.
class Recorder {
 public:
  explicit Recorder(runtime::Net& net);
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder();

  /// The outputs of the last pass, in the order of the layers, blocks of channels as planes.
  std::vector<LayerRecord> take_records();

 private:
  class RecordedKernel;
  using Records = std::map<std::pair<uint32_t, uint32_t>, LayerRecord>;

  Records records_;  // by layer and position
  KernelsTaken kernels_;
};

/// A record with blocks of channels, C4HW4 or C8HW8, as planes, CHW; any other as it is.
LayerRecord in_planes(LayerRecord record);

}  // namespace marlo::toolkit
