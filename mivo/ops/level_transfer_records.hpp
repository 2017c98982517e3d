// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/kernel_arguments.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

// Steps, records and arguments of the kernels that coarsen a level.

/// Step of the distributed aggregation.
enum AggregateStep : int {
  AGGREGATE_STEP_INIT = 0,       ///< which nodes have strong connections
  AGGREGATE_STEP_AGGREGATE = 1,  ///< one round over the nodes that are undone
  AGGREGATE_STEP_APPLY = 2,      ///< take over what other ranks decided
};

/// A node that has joined an aggregate of another rank, on its way to its owner. Sent as it lies in
/// memory.
template <class T>
struct MIVO_API AggregateData {
  T part;       ///< rank that owns the node
  T local;      ///< the node's row there
  T aggregate;  ///< number of the aggregate on the rank that made it
};

/// Step of the coarsening by parallel modified independent sets.
enum CoarsenPMISStep : int {
  COARSEN_PMIS_STEP_MEASURE = 0,          ///< dependants of each point
  COARSEN_PMIS_STEP_INDEPENDENT_SET = 1,  ///< candidates for C points
  COARSEN_PMIS_STEP_MARK = 2,             ///< new C and F points
  COARSEN_PMIS_STEP_UPDATE_GRAPH = 3,     ///< points that are still undecided
  COARSEN_PMIS_STEP_INITIAL = 10,         ///< initial marks and random weights
};

/// The nodes of a rank in a distributed aggregation, and what it sees of others: the states of
/// ghost columns are the values received through the halo exchange plan of S S, one state for S and
/// S S. States: -1 undone, -2 without strong connections, else the number of an aggregate.
template <class L>
struct MIVO_API AggregateNodes : KernelArguments {
  int rank = 0;
  L rows = 0;
  L nblocks = 0;  ///< S
  const COT_SpMVCSRRawMat<int, L>* blocks = nullptr;
  L nblocks2 = 0;  ///< S S
  const COT_SpMVCSRRawMat<int, L>* blocks2 = nullptr;
  L nghosts = 0;
  const COT_RawCommPattern<int, L>* ghosts = nullptr;
  int* state = nullptr;
  int* owner = nullptr;
  int* undone = nullptr;  ///< number of undone nodes
  int* next = nullptr;    ///< number of the next aggregate
  L* stack = nullptr;     ///< scratch of one element per row

  template <class F>
  void visitMembers(const F& f) const {
    f(nblocks, blocks, nblocks2, blocks2, nghosts, ghosts, state, owner, undone, next, stack);
  }
};

/// The rows of a distributed matrix whose strong entries are sought.
template <class T, class L>
struct MIVO_API StrengthRows : KernelArguments {
  int rank = 0;
  L rows = 0;
  L nblocks = 0;
  const COT_SpMVCSRRawMat<T, L>* a = nullptr;
  const COT_SpMVCSRRawMat<int, L>* s = nullptr;  ///< of the pattern of A
  const T* diagonal = nullptr;
  int* dof = nullptr;  ///< function of each own point, null when there is one
  L nviews = 0;
  const COT_RawCommPattern<int, L>* dof_ghosts = nullptr;

  template <class F>
  void visitMembers(const F& f) const {
    f(nblocks, a, s, diagonal, dof, nviews, dof_ghosts);
  }
};

/// The graph on which C points are chosen: this rank's points and its ghosts, whose values come
/// through the halo exchange plans of marks, measures and membership.
template <class L>
struct MIVO_API PMISGraph : KernelArguments {
  int rank = 0;
  L rows = 0;
  L nblocks = 0;
  const COT_SpMVCSRRawMat<int, L>* blocks = nullptr;  ///< nonzero values are strong
  L nviews = 0;
  const COT_RawCommPattern<int, L>* cf_ghosts = nullptr;
  const COT_RawCommPattern<double, L>* measure_ghosts = nullptr;
  const COT_RawCommPattern<int, L>* graph_ghosts = nullptr;
  int* cf = nullptr;
  double* measure = nullptr;
  int* graph = nullptr;  ///< 1 for points that are undecided

  template <class F>
  void visitMembers(const F& f) const {
    f(nblocks, blocks, nviews, cf_ghosts, measure_ghosts, graph_ghosts, cf, measure, graph);
  }
};

/// What direct interpolation needs beside its rows.
template <class T, class L>
struct DirectInterpolation : KernelArguments {
  L rows = 0;
  int* cf = nullptr;
  int cmark = 0;  ///< mark of C points
  bool do_trunc = false;
  RealType<T> eps_trunc{};
  int* cidx = nullptr;            ///< numbers of C points
  int* ncoarse = nullptr;         ///< their number
  RealType<T>* bounds = nullptr;  ///< of truncation, two a row, kept between the passes
  COT_CSRRawMat<T, L> p;

  template <class F>
  void visitMembers(const F& f) const {
    f(cf, cidx, ncoarse, bounds, p);
  }
};

/// With the rows of a local matrix and its strength, which has the same pattern.
template <class T, class L>
struct MIVO_API DirectRows : DirectInterpolation<T, L> {
  COT_CSRRawMat<T, L> a;
  COT_CSRRawMat<int, L> s;

  template <class F>
  void visitMembers(const F& f) const {
    DirectInterpolation<T, L>::visitMembers(f);
    f(a, s);
  }
};

/// With the rows of a distributed matrix. S has blocks and entries in the order of A, and may lack
/// some of both: an entry is strong where S has a nonzero in its column.
template <class T, class L>
struct MIVO_API DirectBlocks : DirectInterpolation<T, L> {
  int rank = 0;
  L nblocks = 0;
  const COT_SpMVCSRRawMat<T, L>* a = nullptr;
  L nstrong = 0;
  const COT_SpMVCSRRawMat<int, L>* s = nullptr;
  L nviews = 0;
  const COT_RawCommPattern<int, L>* cf_ghosts = nullptr;
  const COT_RawCommPattern<int, L>* cidx_ghosts = nullptr;

  template <class F>
  void visitMembers(const F& f) const {
    DirectInterpolation<T, L>::visitMembers(f);
    f(nblocks, a, nstrong, s, nviews, cf_ghosts, cidx_ghosts);
  }
};

/// A matrix and its splitting, with the neighbourhood that the interpolation of this rank's rows
/// needs: rows and columns have the same numbers, ascending like the global ones, of which this
/// rank's own are [first, first + rows). Rows that are not needed are empty.
template <class T, class L>
struct MIVO_API ExtendedInterpolation : KernelArguments {
  COT_CSRRawMat<T, L> a;
  COT_CSRRawMat<int, L> s;  ///< nonzero values are strong
  L first = 0;
  L rows = 0;
  const int* cf = nullptr;  ///< C points at least 0, -3 without strong entries, F points otherwise
  const T* diagonal = nullptr;  ///< of A
  const int* dof = nullptr;     ///< function of each point, null when there is one
  int* coarse = nullptr;        ///< numbers of C points, of all columns for the second pass
  L* c_ptr = nullptr;           ///< rows of `c_col`, one more than there are rows
  L* c_col = nullptr;           ///< strong C neighbours of each F point, and room for one more
  /// Entries of F points, in C columns, that may take shares of others; behind them is room for one
  /// more row.
  COT_CSRRawMat<T, L> d;
  L* marker = nullptr;      ///< scratch of one element per column
  COT_CSRRawMat<T, L> row;  ///< scratch for one entry per column
  RealType<T> trunc_factor{};
  int max_elmts = 0;  ///< entries kept of a row, all when below 1
  COT_CSRRawMat<T, L> p;

  template <class F>
  void visitMembers(const F& f) const {
    f(a, s, cf, diagonal, dof, coarse, c_ptr, c_col, d, marker, row, p);
  }
};

}  // namespace mivo
