// SPDX-License-Identifier: Apache-2.0
// The interfaces of the coarsening strategies have no code but their factories, so one unit serves
// all.
#include "mivo/operators/ParAggrInterpolator.hpp"
#include "mivo/operators/ParAggregator.hpp"
#include "mivo/operators/ParInterpolator.hpp"
#include "mivo/operators/ParLevelTransfer.hpp"
#include "mivo/operators/ParProlongationer.hpp"
#include "mivo/operators/ParRestrictioner.hpp"
#include "mivo/operators/ParSplitter.hpp"
#include "mivo/operators/ParStrengther.hpp"
#include "mivo/utils/Factory.hpp"

namespace mivo {

#define MIVO_FAMILY(CLASS, KEY)                           \
  template <class T, class G, class L>                    \
  CLASS<T, G, L>::~CLASS() = default;                     \
  template <class T, class G, class L>                    \
  Factory<CLASS<T, G, L>>& CLASS<T, G, L>::getFactory() { \
    static Factory<CLASS> factory(KEY);                   \
    return factory;                                       \
  }

MIVO_FAMILY(ParRestrictionerT, "restrictioner_type")
MIVO_FAMILY(ParProlongationerT, "prolongationer_type")
MIVO_FAMILY(ParLevelTransferT, "level_transfer_type")
MIVO_FAMILY(ParStrengtherT, "strengther_type")
MIVO_FAMILY(ParSplitterT, "splitter_type")
MIVO_FAMILY(ParInterpolatorT, "interpolator_type")
MIVO_FAMILY(ParAggregatorT, "aggregator_type")
MIVO_FAMILY(ParAggrInterpolatorT, "aggr_interpolator_type")
#undef MIVO_FAMILY

MIVO_INSTANCE_SCALARS(ParRestrictionerT, long, int)
MIVO_INSTANCE_SCALARS(ParProlongationerT, long, int)
MIVO_INSTANCE_SCALARS(ParLevelTransferT, long, int)
MIVO_INSTANCE_SCALARS(ParStrengtherT, long, int)
MIVO_INSTANCE_SCALARS(ParSplitterT, long, int)
MIVO_INSTANCE_SCALARS(ParInterpolatorT, long, int)
MIVO_INSTANCE_SCALARS(ParAggregatorT, long, int)
MIVO_INSTANCE_SCALARS(ParAggrInterpolatorT, long, int)

}  // namespace mivo
