#include "qrt_core/utility/log.h"

#include <string>
#include <string_view>
#include <utility>

#include "python/src/bind.h"

// Lines of the library's log become records of the logger "qrt_core".

namespace qrt_python {
namespace {

// Of `logging`, by what stands behind the tag. Errors have nothing there.
int level_of(std::string_view line) {
  constexpr std::pair<std::string_view, int> kLevels[] = {
      {"] (Verbose): ", 10}, {"] (Info): ", 20}, {"] (Warnning): ", 30}};
  for (const auto& [prefix, level] : kLevels) {
    if (line.find(prefix) != std::string_view::npos) return level;
  }
  return 40;
}

int write(const char* line) {
  // Threads of the library's callers may still run when the interpreter has ended.
  if (line == nullptr || Py_IsInitialized() == 0 || _Py_IsFinalizing() != 0) return 0;
  const py::gil_scoped_acquire held;
  // A pass that has failed may be on its way out.
  const py::error_scope pending;
  try {
    std::string_view text = line;
    while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    const int level = level_of(text.substr(0, 80));
    const size_t message = text.find(": ");
    if (message != std::string_view::npos) text.remove_prefix(message + 2);
    py::module_::import("logging")
        .attr("getLogger")("qrt_core")
        .attr("log")(level, "%s",
                     py::bytes(text.data(), text.size()).attr("decode")("utf-8", "replace"));
  } catch (py::error_already_set&) {
    // A handler that fails must not end a pass.
    PyErr_Clear();
  }
  return 0;
}

}  // namespace

void bind_log(py::module_& module) {
  (void)module;
  marlo::utility::SetLogCallback(&write);
}

}  // namespace qrt_python
