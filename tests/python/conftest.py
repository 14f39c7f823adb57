"""The tests run on the package in PYTHONPATH: that of the build, or an installed one."""

import faulthandler

faulthandler.enable()
