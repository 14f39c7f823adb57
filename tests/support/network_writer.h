#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/plane_math.h"

namespace marlo::test {

/// The kernels of one way to run a network. An empty name stands for the portable kernel over
/// planes.
struct Form {
  std::string name;
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< between the layers
  std::string to_layout;    ///< converter from planes; empty for planes
  std::string from_layout;  ///< converter to planes
  std::string relu;
  std::string add;
  std::string max2;
  std::string mean4;
  std::string upsample;
  std::string shuffle;
  /// Convolutions that stay in the layout, by the layer that they run, such as "3x3", "3x3 by 2" or
  /// "depthwise 3x3": kernels over blocks of the layout, and over planes for "first" layers.
  std::map<std::string, std::string> convolutions;
};

inline void PrintTo(const Form& form, std::ostream* out) { *out << form.name; }

/// Portable kernels, vector kernels over planes, and over blocks of 4 and of 8.
std::vector<Form> all_forms();

/// The same with convolutions of their own, for networks that stay in a layout from end to end.
std::vector<Form> convolution_forms();

/// The first kernel of a form that this processor or build can't run, with the reason; else empty.
std::string why_not_here(const Form& form);

/// Writes a network in one form and computes it in double precision at the same time.
///
/// Weights are halves, so that the binary form of the model holds the same numbers. A layer whose
/// kernel is a portable one over planes gets converters on its borders.
class NetworkWriter {
 public:
  NetworkWriter(Form form, const Planes& input);

  /// @name Layers
  /// Each takes the ids of its sources and gives its own.
  /// @{
  std::string conv(const std::string& source, uint32_t outs, uint32_t kernel, uint32_t stride = 1);
  std::string first_conv(const std::string& source, uint32_t outs, uint32_t kernel,
                         uint32_t stride = 1);  ///< over planes, whose result enters the layout
  std::string depthwise(const std::string& source, uint32_t kernel, uint32_t stride = 1);
  std::string relu(const std::string& source);
  std::string add(const std::string& a, const std::string& b);
  std::string max2(const std::string& source);
  std::string mean4(const std::string& source);
  std::string concatenate(const std::string& a, const std::string& b);
  std::string upsample(const std::string& source);
  std::string shuffle(const std::string& source);
  std::string sigmoid(const std::string& source);
  std::string flat(const std::string& source);  ///< a vector, outside of the layout
  std::string full_connection(const std::string& source, uint32_t outs);
  std::string softmax(const std::string& source);
  /// @}

  /// Names the output, which leaves the network as planes or as a vector.
  void output(const std::string& source);

  ModelBuilder& model() { return model_; }
  const Planes& expected() const { return values_.at(output_); }
  /// The largest magnitude that occurs anywhere.
  double magnitude() const { return magnitude_; }
  /// The products that meet in an output, over all layers behind one another.
  size_t terms() const { return terms_; }

 private:
  std::string add_layer(const std::string& kind, const std::vector<std::string>& sources,
                        std::shared_ptr<runtime::LayerInfo> info, const std::string& blocked,
                        const std::string& portable, Planes value);
  std::string add_convolution(const std::string& source, const PlaneFilter& sizes,
                              const std::string& layer);
  bool is_planar(const std::string& id) const { return planar_.at(id); }
  std::vector<float> halves(size_t count, float scale);

  Form form_;
  Random random_{7};
  ModelBuilder model_;
  std::map<std::string, Planes> values_;
  std::map<std::string, bool> planar_;  // whether a layer's result is planes or a vector
  std::string output_;
  double magnitude_ = 0;
  size_t terms_ = 0;
};

}  // namespace marlo::test
