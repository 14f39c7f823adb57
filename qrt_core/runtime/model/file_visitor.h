#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

class WeightPlaces;

/// Reads attributes from a binary stream: values in walk order, little-endian, without tags.
///
/// A count or length beyond what is left of a file fails like a short read, before any memory is
/// taken for it. Every failure throws std::runtime_error.
class QRT_API FILEReader final : public Visitor {
 public:
  /// @param stream open for reading, not owned
  /// @param version protocol version of the data; 0 reads it from the stream
  FILEReader(std::FILE* stream, uint32_t version);
  ~FILEReader() override;

  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_DECLARE_VISIT)

  /// Fails like a short read of a value of type `T` unless `count` items of `bytes` each can still
  /// follow in the file. A stream whose size isn't known passes.
  template <typename T>
  void Require(uint64_t count, uint64_t bytes) const;

  /// Bytes behind what has been read; 0 for a stream whose size isn't known.
  uint64_t BytesLeft() const;

  /// Reads `count` halves that stand back to back, without a count of their own. Weights are most
  /// of a model, and one call per number would be most of the time to load it.
  void ReadHalves(half_float::half* values, uint64_t count);

  /// Lets weights stay where they are.
  /// @param places takes their places; it outlives the walk
  void LeaveWeights(WeightPlaces& places) { places_ = &places; }
  /// What takes the places of weights; null where they are read.
  WeightPlaces* places() const { return places_; }
  /// Passes over halves. @return the place of the first one
  uint64_t SkipHalves(uint64_t count);

 private:
  explicit FILEReader(const FILEReader& parent);

  template <typename T>
  void read(T* value);
  template <typename T>
  void read_vector(std::vector<T>* values);
  uint64_t read_count();
  bool fits(uint64_t count, uint64_t bytes) const;

  std::FILE* stream_;
  bool borrowed_ = true;
  int64_t size_ = -1;  // of the whole file, or negative where it has none
  WeightPlaces* places_ = nullptr;
};

/// Writes attributes to a binary stream. Every failure throws std::runtime_error.
class QRT_API FILEWriter final : public Visitor {
 public:
  /// @param stream open for writing, not owned
  /// @param write_header whether the protocol version is written at once
  /// @throws std::runtime_error for a null stream
  FILEWriter(std::FILE* stream, bool write_header);
  ~FILEWriter() override;

  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_DECLARE_VISIT)

 private:
  template <typename T>
  void write(const T& value);
  template <typename T>
  void write_vector(const std::vector<T>& values);
  void write_count(uint64_t count);

  std::FILE* stream_;
  bool borrowed_ = true;
};

}  // namespace marlo::runtime
