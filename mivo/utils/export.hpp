// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what the shared library shows to its users. The library is compiled with hidden
/// visibility, so that a class or function without this mark is private to it.
#define MIVO_API __attribute__((visibility("default")))
