// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace mivo {

/// What `setValue` of an assembly does with an entry that its rank has set before. Contributions of
/// different ranks to one entry are always summed.
enum class SetValueMode : int { Set = 0, Add = 1 };

}  // namespace mivo
