#include "tools/qrt/app.h"

int main(int argc, char** argv) { return qrt_tool::run_app(argc, argv); }
