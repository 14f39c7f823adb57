"""The tests run on the package in PYTHONPATH: that of the build, or an installed one."""

import faulthandler

import pytest

faulthandler.enable()


def pytest_addoption(parser):
    parser.addoption(
        "--calls", type=int, default=100_000, help="how many calls are watched for memory that is kept (100000)"
    )


@pytest.fixture
def calls(request):
    return request.config.getoption("--calls")
