#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qrt_core/utility/log.h"

namespace marlo::runtime {

/// A table from class names to factories.
///
/// Fill it first and read it afterwards: reading is safe from several threads as long as nobody
/// registers.
///
/// @code
/// KernelRegistry kernels;  // ClassRegistry<std::shared_ptr<IKernel>>
/// kernels.Register("Mine", [] { return std::make_shared<Mine>(); }, KernelRegistry::kKeep);
/// std::shared_ptr<IKernel> kernel = kernels.Create("Mine");
/// @endcode
///
/// @tparam T what a factory makes; a default-constructed `T` stands for nothing
template <typename T>
class ClassRegistry {
 public:
  /// @name What `Register` does with a key that is there
  /// @{
  static constexpr bool kKeep = false;    ///< leaves it as it is
  static constexpr bool kReplace = true;  ///< puts the new factory in its place
  /// @}

  /// Makes one object.
  using Factory = std::function<T()>;

  /// Enters a factory.
  /// @param key the name under which `Create` finds it
  /// @param factory what makes an object
  /// @param overwrite `kReplace` or `kKeep`: whether an existing key is replaced
  /// @return whether the factory was entered
  /// @throws std::runtime_error for a factory that holds no function
  bool Register(const std::string& key, Factory factory, bool overwrite) {
    utility::Assert(factory != nullptr, "Register: the factory of %s is empty", key.c_str());
    if (!overwrite && factories_.count(key) != 0) return false;
    factories_[key] = std::move(factory);
    return true;
  }

  /// What the factory of `key` makes, or an empty `T` for an unknown key. Keys compare exactly.
  T Create(const std::string& key) const {
    const auto found = factories_.find(key);
    return found == factories_.end() ? T() : found->second();
  }

  /// All keys, in no particular order.
  std::vector<std::string> Keys() const {
    std::vector<std::string> keys;
    keys.reserve(factories_.size());
    for (const auto& [key, factory] : factories_) keys.push_back(key);
    return keys;
  }

 private:
  std::unordered_map<std::string, Factory> factories_;
};

}  // namespace marlo::runtime
