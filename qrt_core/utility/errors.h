#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "qrt_core/utility/export.h"

// What the library throws. Programs compare some of its texts, so `what()` stays what it has always
// been, and that is nothing at all where a kernel refuses its layer. What else is known travels
// beside the text, as fields, and `story` tells all of it.

namespace marlo::utility {

/// One point in which something is not what it should be. Plain data: any number of threads may read
/// it while none changes it.
struct Misfit {
  /// What is at fault: members of the description by their keys ("stride_x, stride_y"), or
  /// "input 0" and the like.
  std::string member;
  std::string expected;  ///< what is taken, in words: "1 x 1"
  std::string found;     ///< what is there, in the same words: "2 x 2"
};

/// "stride_x, stride_y: expected 1 x 1, found 2 x 2"
QRT_API std::string misfit_text(const Misfit& misfit);

/// The place in a network where something failed. Plain data: any number of threads may read it while
/// none changes it.
struct LayerFault {
  uint32_t layer = 0;           ///< index of the layer
  std::string id;               ///< its id in the model; empty in a network made by hand
  std::string kind;             ///< printed name of its type, such as "Conv2d"
  std::string role;             ///< "input converter 0" or the like; empty for the layer's kernel
  std::string kernel;           ///< class name of the kernel at fault; empty if there is none
  std::vector<Misfit> misfits;  ///< why, as far as the kernel says; may be empty
};

/// `layer 4 "block0" (Conv2d), input converter 0, kernel LayoutTransform_...`
QRT_API std::string place_text(const LayerFault& fault);

/// What the library throws where something can't be done.
///
/// @code
/// try {
///   if (load_model(path, nets, context, kernels, params, "qrt", 1, 0) != 0) return;
/// } catch (const marlo::utility::Error& error) {
///   std::cerr << error.story() << '\n';
/// }
/// @endcode
///
/// Copies share their fields. One object belongs to one thread at a time, as do its copies.
class QRT_API Error : public std::runtime_error {
 public:
  /// @param text what `what()` returns
  /// @param message_begin where in it the message begins, behind the tag of the log
  explicit Error(const std::string& text, size_t message_begin = 0);
  Error(const Error&) noexcept;             ///< shares the fields
  Error& operator=(const Error&) noexcept;  ///< shares the fields
  ~Error() override;

  /// The text without the log's tag and line end. Empty where the text is only the tag.
  std::string message() const;

  /// What the text leaves out; empty where it leaves nothing out.
  std::string detail() const;

  /// The network's id in its file; empty where it isn't known.
  std::string network() const;

  /// Where in the network; null where no layer is concerned. Valid as long as the object and
  /// unchanged.
  const LayerFault* layer() const noexcept;

  /// Everything that is known, in one line and one more for each misfit, without a tag:
  ///
  ///     network "resnet", layer 4 "block0" (Conv2d), kernel Conv2d_K3x3_...: refuses the layer
  ///       stride_x, stride_y: expected 2 x 2, found 1 x 1
  std::string story() const;

  /// @name For those who throw or pass on
  /// @{

  /// Adds what the text leaves out.
  void explain(std::string detail);
  /// Adds the network, unless there is one.
  void in_network(const std::string& network);
  /// Adds the layer, unless there is one.
  void in_layer(LayerFault fault);
  /// @}

 private:
  struct Facts;
  Facts& facts();

  size_t message_begin_;
  std::shared_ptr<Facts> facts_;
};

/// `Error::story` of an `Error`, and `what()` of any other exception.
QRT_API std::string story(const std::exception& failure);

}  // namespace marlo::utility
