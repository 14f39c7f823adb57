#include "tests/support/log_capture.h"

#include <cstdio>

#include "qrt_core/utility/log.h"

namespace marlo::test {

namespace {

constexpr unsigned int kDefaultMask = 30;

int print_line(const char* line) {
  std::puts(line);
  return 0;
}

}  // namespace

LogCapture* LogCapture::current_ = nullptr;

LogCapture::LogCapture() {
  current_ = this;
  utility::SetLogCallback(receive);
}

LogCapture::~LogCapture() {
  utility::SetLogCallback(print_line);
  utility::SetLogLevel(kDefaultMask);
  utility::SetLogTag("QRT");
  current_ = nullptr;
}

int LogCapture::receive(const char* line) {
  current_->lines_.emplace_back(line);
  return 0;
}

}  // namespace marlo::test
