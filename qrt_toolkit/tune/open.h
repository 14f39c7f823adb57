#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/utility/export.h"
#include "qrt_core/utility/model.h"
#include "qrt_toolkit/assign/kernel_set.h"

namespace marlo::toolkit {

/// Opens a model of one network and one input with the kernels that are likely to be the fastest on
/// this processor, whichever the file names; a model that was tuned for this processor keeps its own.
/// The file stays as it is. It takes some milliseconds more, since every kernel that is new has to
/// agree with that of the file on a trial.
///
/// @param path a model, JSON or .qrtmodel
/// @param sizes of the input, in its plain layout, for which the kernels are chosen; where sizes are
///   free, others run as well
/// @param set kernels to choose from; those that the processor lacks end the program
/// @throws utility::Error as `Model`, and for a model of several networks or inputs
QRT_API utility::Model open_with_kernels(const std::string& path,
                                         const std::vector<uint32_t>& sizes,
                                         KernelSet set = processor_kernels());

}  // namespace marlo::toolkit
