#pragma once

/// Visibility of what an extension module offers to others.

#define TARN_EXPORT __attribute__((visibility("default")))
