#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/model/weight_places_internal.h"

// A model in memory, in either of its forms.

namespace marlo::utility {

/// The bytes of a file.
/// @throws Error for a file that can't be opened or read whole
std::string read_bytes(const std::string& path);

/// Whether bytes are the JSON form: they begin, after white space, with a brace. The binary form
/// begins with a number below 2^15.
bool is_json(const char* bytes, size_t size);

/// Reads a model from either form into an empty tree. What was read up to a fault stays in it.
/// @throws Error for bytes that aren't a model
void read_model(runtime::QRTModel& model, const char* bytes, size_t size);

/// A model that is being loaded: its tree without weights, which stay where they are until their layers are
/// made. Bytes in memory are needed as long as it lives.
class ModelSource {
 public:
  /// @throws Error as `read_bytes` and `read_model` do
  explicit ModelSource(const std::string& path);
  /// @throws Error as `read_model` does
  ModelSource(const char* bytes, size_t size);

  runtime::QRTModel& model() { return *model_; }  ///< its tree
  /// Where the weights are; null where the tree holds them.
  const runtime::WeightPlaces* weights() const { return places_.get(); }
  /// Bytes of the file.
  size_t size() const { return size_; }
  /// The JSON text but for long strings; null where `weights` is, and for the binary form.
  const std::string* text() const { return text_.empty() ? nullptr : &text_; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  void read(bool is_text);
  void read_bytes(const char* bytes, size_t size);

  std::unique_ptr<runtime::QRTModel> model_ = std::make_unique<runtime::QRTModel>();
  std::string bytes_;  // of what can't be read twice
  std::unique_ptr<std::FILE, Closer> file_;
  std::unique_ptr<runtime::WeightPlaces> places_;
  std::string text_;
  size_t size_ = 0;
};

}  // namespace marlo::utility
