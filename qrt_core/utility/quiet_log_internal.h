#pragma once

#include "qrt_core/utility/export.h"

namespace marlo::utility {

/// Keeps `Log` and `Assert` of this thread from the log's callback while it lives, for code that
/// tells what it finds by other means. Exceptions keep their texts.
class QRT_API QuietLog {
 public:
  QuietLog();
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;
  ~QuietLog();
};

}  // namespace marlo::utility
