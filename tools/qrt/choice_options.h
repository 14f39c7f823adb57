#pragma once

#include <map>
#include <string>
#include <vector>

#include "qrt_toolkit/assign/kernel_set.h"
#include "tools/qrt/network.h"

// What commands that measure kernels take from the command line and from the user's surroundings.

namespace qrt_tool {

/// Lets an interrupt end the measurements instead of the tool, while it lives; a second one ends the
/// tool. There is one at a time.
class Interrupts {
 public:
  Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;
  ~Interrupts();

  /// Whether there was one.
  static bool came();

 private:
  void (*before_)(int);
};

/// The kernels of `--isa`; without a word those of this processor.
/// @throws ToolError (kUsageError) for another word, or a set that this processor can't run
marlo::toolkit::KernelSet kernel_set_option(const std::string& word);

/// The file of wisdom in the user's folder for caches; empty where there is no such folder.
std::string default_wisdom();

/// The shapes of the network's inputs by id, checked by all of its layers.
/// @param path the model's, for messages
/// @param inputs the values of `--input`
/// @throws ToolError where they aren't known, or don't fit
std::map<std::string, marlo::runtime::TensorShape> shapes_by_id(
    LoadedNetwork& network, const std::string& path, const std::vector<std::string>& inputs,
    bool keep_batch, const Library& library);

/// The same for several sizes: as many values for each of them as the network has inputs.
/// @param inputs the values of `--input`, those of the first size first; empty for what the model says
/// @return at least one
std::vector<std::map<std::string, marlo::runtime::TensorShape>> shapes_of_sizes(
    LoadedNetwork& network, const std::string& path, const std::vector<std::string>& inputs,
    bool keep_batch, const Library& library);

}  // namespace qrt_tool
