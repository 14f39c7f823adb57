#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// When a model was made.
class QRT_API TimeInfo : public Serializable {
 public:
  TimeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t year = 0;  ///< such as 2026
  uint32_t moon = 0;  ///< month, 1 to 12
  uint32_t day = 0;   ///< day of the month
  uint32_t hour = 0;  ///< 0 to 23
  uint32_t min = 0;   ///< minute
  uint32_t sec = 0;   ///< second
};

/// The header of a network. The library keeps it and reads none of it.
class QRT_API NetExtraInfo : public Serializable {
 public:
  NetExtraInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint32_t version = 0;       ///< model version
  uint32_t app_type = 0;      ///< application kind
  uint32_t model_id = 0;      ///< model identifier
  uint32_t model_base_h = 0;  ///< base input height
  uint32_t model_base_w = 0;  ///< base input width
  uint64_t fmlas = 0;         ///< multiply-adds; 32 bits wide before version 20007
  TimeInfo time;              ///< when the model was made
  std::string device;         ///< device name
  std::string summary;        ///< free text; since version 20004
};

/// One network: its header and its layers in execution order. Copies share the layers.
class QRT_API QRModelInfo : public Serializable {
 public:
  QRModelInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  /// Ids of the layers whose type code is 0, in execution order.
  std::vector<std::string> GetInputIDs();

  /// Ids of the layers that no other layer reads, in the order of the table. Counts the readers of
  /// every layer into `read_count`.
  /// @throws std::runtime_error for a layer that reads one that isn't in the table, or for a null
  ///   pointer in it
  std::vector<std::string> GetOutputIDs();

  /// Takes the place of what the object held with a network from a file of the earlier generation.
  /// Layers are named "layer-12"; one with an activation of its own becomes two, "layer-12!" and
  /// "layer-12". Transposed convolutions keep the weights and paddings of those files, which are
  /// those that the SSE and AVX kernels read. A layer without a bias gets an empty one, although
  /// these files hold one for every layer.
  /// @throws std::runtime_error for a file that can't be read whole, one with more than 1000
  ///   unknown records, an id twice, an input that is no id or no numbers where there must be some,
  ///   and for layers that have no counterpart; the object is then as before
  void LoadFromQRModel1(const char* path);

  std::vector<std::string> squential_output_ids;  ///< layers whose results the network returns
  NetExtraInfo extra_info;                        ///< the header
  std::vector<std::string> squential_ids;         ///< layer ids in execution order
  std::vector<uint16_t> squential_types;          ///< layer type code of each id
  std::unordered_map<std::string, std::shared_ptr<LayerInfo>> layers;  ///< by id
};

/// The networks of a model file. Copies share them.
class QRT_API QRModelInfoArr : public Serializable {
 public:
  QRModelInfoArr();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<std::string> squential_ids;                     ///< network ids in file order
  std::map<std::string, std::shared_ptr<QRModelInfo>> infos;  ///< by id
};

class QRModelMultiBackendCfgsArr;

/// A model file: networks, and how to run them. Copies share both, so that reading into a copy
/// changes the original; one that was moved from has neither, and can only be assigned to.
class QRT_API QRTModel : public Serializable {
 public:
  QRTModel();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::string sdk_type;                       ///< kind of SDK that the file was made for
  uint16_t core_major_ver = 0;                ///< core version required
  uint16_t core_minor_ver = 0;                ///< its number behind the point
  uint16_t sdk_major_ver = 0;                 ///< SDK version required
  uint16_t sdk_minor_ver = 0;                 ///< its number behind the point
  std::shared_ptr<QRModelInfoArr> model_arr;  ///< the networks
  std::shared_ptr<QRModelMultiBackendCfgsArr> config_arr;  ///< their configurations, by network id
};

}  // namespace marlo::runtime
