#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/utility/export.h"

/// Visits a member under a key of the same spelling.
#define QRT_VISIT(visitor, member) (visitor)->Visit(&(member), #member)

namespace marlo::runtime {

/// What one layer of a network is: base of all descriptions.
///
/// Members are spelled as their keys. Numbers are those of the model files.
class QRT_API LayerInfo : public Serializable {
 public:
  /// A description of no layer type yet.
  LayerInfo();

  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t type = 65535;               ///< layer type code
  std::string id = " ";                ///< unique name inside the network
  std::vector<std::string> input_ids;  ///< the layers that feed this one, in argument order
  uint16_t read_count = 0;  ///< layers that read the output; see QRModelInfo::GetOutputIDs

 protected:
  /// A description of the layer type `code`, persisted under the name of its class.
  LayerInfo(uint16_t code, const char* class_name);
};

/// The input of a network.
class QRT_API InputInfo : public LayerInfo {
 public:
  InputInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t location = 0;  ///< where the input tensor lives
};

/// A layer that stands in for an operation this library doesn't have.
class QRT_API LayerPlaceholderInfo : public LayerInfo {
 public:
  LayerPlaceholderInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<std::vector<uint16_t>> input_shapes;  ///< declared shapes of the inputs
  std::vector<uint16_t> output_shape;               ///< declared shape of the output
  std::string desc;                                 ///< free text
};

}  // namespace marlo::runtime
