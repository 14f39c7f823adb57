#pragma once

/// Marks a function or class that the shared library exports.
/// Everything else in the library is built with hidden visibility.
#define QRT_API __attribute__((visibility("default")))
