#!/bin/sh
# Starts a test program, by the program that QRT_TEST_LAUNCHER names where it is set (an emulator, say).
# The processor that an emulator shows may lack what a chosen core of the BLAS needs.
if [ -n "${QRT_TEST_LAUNCHER:-}" ]; then
  unset OPENBLAS_CORETYPE
fi
exec ${QRT_TEST_LAUNCHER:-} "$@"
