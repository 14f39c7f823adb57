#!/bin/sh
# Starts a test program, by the program that QRT_TEST_LAUNCHER names where it is set (an emulator, say).
exec ${QRT_TEST_LAUNCHER:-} "$@"
