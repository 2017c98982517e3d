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

#define MIVO_INSTANCE(T)                           \
  template class ParRestrictionerT<T, long, int>;  \
  template class ParProlongationerT<T, long, int>; \
  template class ParLevelTransferT<T, long, int>;  \
  template class ParStrengtherT<T, long, int>;     \
  template class ParSplitterT<T, long, int>;       \
  template class ParInterpolatorT<T, long, int>;   \
  template class ParAggregatorT<T, long, int>;     \
  template class ParAggrInterpolatorT<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
