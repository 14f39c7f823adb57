#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {

std::string tool_path() { return QRT_TOOL_PATH; }

}  // namespace qrt_tool_test
