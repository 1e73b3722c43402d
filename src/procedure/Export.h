#pragma once

/// Marks what the shared library offers to its host. Everything else stays hidden.
#define HIERFIT_EXPORT __attribute__((visibility("default")))
