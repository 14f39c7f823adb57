#pragma once

namespace marlo::utility {

/// Result of the logging functions.
enum QR_STATUS : int {
  QR_STATUS_OK = 0,        ///< success
  QR_STATUS_REFUSED = -1,  ///< an argument was refused; nothing changed
};

/// Result of the entry functions of an application.
enum _QRT_Result : int {
  QRT_RESULT_OK = 0,       ///< success
  QRT_RESULT_FAILED = -2,  ///< failure; the reason was logged
};

}  // namespace marlo::utility
