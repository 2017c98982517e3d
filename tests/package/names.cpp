// SPDX-License-Identifier: Apache-2.0

// The public names and signatures in the forms in which a reader of the documents writes them,
// layer by layer: the program compiles and links against the installed package. What is cheap on
// one rank runs too; the rest stands behind `never`.

#include <mivo/utils/Utils.hpp>

namespace {

/// False, unknown to the compiler.
volatile bool never = false;

// Text helpers and timers come with this header alone.
bool utilities() {
  using namespace mivo;
  int level = Utils::getVerboseLevel();
  bool strict = Utils::isStrictMatrixMarket(), some = Utils::isWaitSome();
  if (never) Utils::loadPlugin("libplugin.so");
  TickMeter meter;
  meter.start(), meter.stop(), meter.stop();
  std::uint64_t ticks = getTickCount();
  std::vector<std::string> pieces = stringSplit("a b", " "), path = stringSplitExt("a.b.mtx");
  return level >= 0 && !strict && some && ticks > 0 && getTickFrequency() == 1e9 &&
         pieces.size() == 2 && path[1] == "mtx" && string_printf("level_%d", 3) == "level_3";
}

}  // namespace

#include <mivo/utils/TestCase.hpp>

using TestCaseHeaderBrings = mivo::TestCaseT<double, long, int>;

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mivo/mivo.hpp>
#include <mutex>
#include <sstream>
#include <type_traits>
#include <unordered_map>

#include "kernel_calls.hpp"

// The message layer exports the standard names; communicators and types are handles of MPICH.
extern "C" {
int MPI_Comm_rank(int, int*);
int MPI_Comm_size(int, int*);
int MPI_Initialized(int*);
int MPI_Init(int*, char***);
int MPI_Finalize();
int MPI_Type_extent(int, long*);
int MPI_Allgather(const void*, int, int, void*, int, int, int);
int MPI_Allgatherv(const void*, int, int, void*, const int*, const int*, int, int);
int MPI_Alltoall(const void*, int, int, void*, int, int, int);
int MPI_Alltoallv(const void*, const int*, const int*, int, void*, const int*, const int*, int,
                  int);
int MPI_Scatterv(const void*, const int*, const int*, int, void*, int, int, int, int);
int MPI_Allreduce(const void*, void*, int, int, int, int);
int MPI_Iallreduce(const void*, void*, int, int, int, int, int*);
int MPI_Bcast(void*, int, int, int, int);
int MPI_Irecv(void*, int, int, int, int, int, int*);
int MPI_Wait(int*, void*);
int MPI_Waitall(int, int*, void*);
int MPI_Send(const void*, int, int, int, int, int);
int MPI_Recv(void*, int, int, int, int, int, void*);
double MPI_Wtime();
double MPI_Wtick();
}

// A user's own type takes part in messages by free functions of its namespace.
namespace user {

struct Particle {
  int cell = 0;
  double mass = 0;
};
std::size_t getStreamSize(const Particle&) { return sizeof(int) + sizeof(double); }
void packStream(comu::Stream& stream, const Particle& p) {
  stream.pushBack(&p.cell, sizeof(int));
  stream.pushBack(&p.mass, sizeof(double));
}
void unpackStream(comu::Stream& stream, Particle& p) {
  stream.popFront(&p.cell, sizeof(int));
  stream.popFront(&p.mass, sizeof(double));
}

}  // namespace user

namespace {

using namespace mivo;

int failures = 0;

void expectAt(bool ok, int line) {
  if (ok) return;
  std::printf("names.cpp:%d does not hold\n", line);
  ++failures;
}
#define EXPECT(condition) expectAt(condition, __LINE__)

// --- Devices, log lines, the world --------------------------------------------------------------

Device noDevice() { return {}; }

void devices() {
  Device::initialize();
  const Device d(0, 0), gpu = {1, 0}, text("cuda:1"), literal = "cpu", named = std::string("hip");
  static_assert(!std::is_convertible_v<int, Device>, "a number alone is no device");
  EXPECT(noDevice() == d && text.type == 1 && text.id == 1 && text.name == "cuda" && literal == d);
  EXPECT(Device::type_map["cuda"] == 1 && Device::type_map.size() == 3 && named.type == 2);
  EXPECT(text.getString() == "cuda:1" && d.getDeviceContext() == -1 && d < gpu && d != gpu);
  const Device::DeviceInfo info = d.getDeviceInfo();
  EXPECT(info.space != nullptr && info.stream == nullptr);
  d.setDeviceContext();
  void* const p = d.rawMalloc(8);
  void* const q = d.rawRealloc(p, 8);
  d.rawCopyTo(std::size_t(8), p, Device(0, 0), q);
  d.rawFree(p), d.rawFree(q);
  std::map<Device, Device::DeviceInfo>& registry = Device::getDeviceInfoMap();
  const std::vector<Device> all = Device::getAllDevices();
  EXPECT(registry.size() == all.size() && all[0] == d);
  if (never) {
    char* argv[] = {nullptr};
    buildInfoMap(), spm::initialize(1, argv), spm::finalize();
  }
  EXPECT(spm::is_initialized());

  std::ostringstream log;
  LogMessage(false, 3, true, "dir/names.cpp", 1, &log).stream() << "text";
  EXPECT(log.str() == "I 0/1 names.cpp:1] text\n");
  NullBuffer buffer;
  NullStream silent;
  silent << "text", gs_null_stream << "text";
  EXPECT(buffer.overflow('c') == 'c');

  constexpr int world = 0x44000000;
  int rank = -1, size = -1, flag = 0, in = 3, out = 0, one[1] = {1}, zero[1] = {0}, request = 0;
  long extent = 0;
  MPI_Init(nullptr, nullptr), MPI_Comm_rank(world, &rank), MPI_Comm_size(0x44000001, &size);
  MPI_Initialized(&flag), MPI_Type_extent(0x4c000405, &extent);
  MPI_Allreduce(&in, &out, 1, 0x4c000405, 0x58000003, world);
  EXPECT(rank == 0 && size == 1 && flag == 1 && extent == 4 && out == 3 && MPI_Wtime() == 0.0);
  if (never) {
    MPI_Allgather(&in, 1, 0x4c000405, &out, 1, 0x4c000405, world);
    MPI_Allgatherv(&in, 1, 0x4c000405, &out, one, zero, 0x4c000405, world);
    MPI_Alltoall(&in, 1, 0x4c000405, &out, 1, 0x4c000405, world);
    MPI_Alltoallv(&in, one, zero, 0x4c000405, &out, one, zero, 0x4c000405, world);
    MPI_Scatterv(&in, one, zero, 0x4c000405, &out, 1, 0x4c000405, 0, world);
    MPI_Iallreduce(&in, &out, 1, 0x4c000405, 0x58000001, world, &request);
    MPI_Bcast(&in, 1, 0x4c000405, 0, world), MPI_Irecv(&in, 1, 0x4c000405, 0, 0, world, &request);
    MPI_Wait(&request, nullptr), MPI_Waitall(1, &request, nullptr), MPI_Wtick(), MPI_Finalize();
    MPI_Send(&in, 1, 0x4c000405, 0, 0, world), MPI_Recv(&in, 1, 0x4c000405, 0, 0, world, nullptr);
  }
}

// --- Environment, factories and JSON ------------------------------------------------------------

struct Nothing : ParSolverT<double, long, int> {
  void create(const json&) {}
  void setup(const ParMatrixFreeT<double, long, int>&) override {}
  void solve(ParPreconditionerT<double, long, int>&, ParMatrixFreeT<double, long, int>&,
             const ParMatrixT<double, long, int>&, ParMatrixT<double, long, int>&, int& iter,
             double& relres) override {
    iter = 0, relres = 0;
  }
};
const FactoryRegisterer<ParSolverT<double, long, int>, Nothing> registered("ParSolverT", "Nothing");

template <class... Family>
void familiesHaveKeys(std::initializer_list<const char*> keys) {
  const char* const* key = keys.begin();
  ((EXPECT(Family::getFactory().getKey() == *key), ++key), ...);
}

template <class T>
void families() {
  familiesHaveKeys<ParPreconditionerT<T, long, int>, ParMatrixFreeT<T, long, int>,
                   ParSolverT<T, long, int>, ParSmootherT<T, long, int>, ParOpBaseT<T, long, int>,
                   ParRestrictionerT<T, long, int>, ParProlongationerT<T, long, int>,
                   ParLevelTransferT<T, long, int>, ParStrengtherT<T, long, int>,
                   ParSplitterT<T, long, int>, ParInterpolatorT<T, long, int>,
                   ParAggregatorT<T, long, int>, ParAggrInterpolatorT<T, long, int>,
                   TestCaseT<T, long, int>, TestCaseT<T, int, int>>(
      {"preconditioner_type", "matrix_type", "solver_type", "smoother_type", "op_type",
       "restrictioner_type", "prolongationer_type", "level_transfer_type", "strengther_type",
       "splitter_type", "interpolator_type", "aggregator_type", "aggr_interpolator_type",
       "testcase_type", "testcase_type"});
}

void factories() {
  EnvVar<int> variable("MIVO_NO_SUCH_VARIABLE", 7);
  EXPECT(variable.get() == 7);
  families<float>(), families<double>(), families<Complex<float>>(), families<Complex<double>>();
  const json j =
      json::parse(R"({"solver_type": "SolverPCG", "tagName": "outer", "a": 1, "a_2": 2})");
  ParOperator parent;
  auto& factory = ParSolverT<double, long, int>::getFactory();
  std::shared_ptr<ParSolverT<double, long, int>> solver = factory.createInstance(j, &parent);
  EXPECT(solver->tagName == "outer" && factory.createInstance(j) != nullptr);
  EXPECT(getJsonByKey(j, "a", 2) == 2 && getJsonByKey(j, "a", -1) == 1);
  factory.insertToMap("ParSolverT", "Mine",
                      [](const json&) { return std::make_shared<Nothing>(); });
  const Factory<ParSolverT<double, long, int>>::AppInfo& info = factory.getMap().at("Mine");
  EXPECT(info.name == "Mine" && info.creator(json()) != nullptr);
}

// --- Exchange tools -----------------------------------------------------------------------------

/// The value that comes back from a message.
template <class E>
E sent(const E& e) {
  comu::Stream stream;
  stream.setCapacity(static_cast<int>(comu::getStreamSize(e)));
  comu::packStream<std::decay_t<decltype(e)>>(stream, e);
  E back{};
  comu::unpackStream(stream, back);
  return back;
}

template <class E>
void exchange() {
  std::vector<E> all(1), received;
  E mine;
  comu::sparse_send_recv_stream(kCommWorld, all, received);
  if constexpr (!std::is_same_v<E, std::vector<comu::TRDATA>>) {
    comu::stlmpi_scatter_stream(kCommWorld, all, mine, 0);
    comu::stlmpi_gather_stream(kCommWorld, mine, all, 0);
  }
}
template <class E>
void sendOnly() {
  std::vector<E> all(1), received;
  comu::sparse_send_recv_stream(kCommWorld, all, received);
}

template <class T>
void exchangeOf() {
  exchange<CSRMatrixT<T, int>>();
  sendOnly<std::map<int, CSRMatrixT<T, int>>>();
  sendOnly<std::vector<ReverseData<T, int>>>();
  MatrixT<T, int, MatrixLayoutRowMajor> m;
  std::vector<MatrixT<T, int, MatrixLayoutRowMajor>> all(1);
  comu::stlmpi_scatter_stream(kCommWorld, all, m, 0);
  comu::stlmpi_gather_stream(kCommWorld, m, all, 0);
}

int firstRank(int, void*) { return 0; }

void exchangeTools() {
  unsigned char bytes[8] = {1, 2};
  unsigned char two[2];
  comu::Stream stream;
  stream.setAllocactedBuffer(8, bytes);
  stream.pushBack(nullptr, 8), stream.popFront(two, 2), stream.popFront(nullptr, 2);
  EXPECT(two[1] == 2);

  EXPECT(sent(std::map<int, std::vector<int>>{{1, {2, 3}}}).at(1)[1] == 3);
  EXPECT(sent(std::unordered_map<long, double>{{5, 2.5}})[5] == 2.5);
  EXPECT(sent(user::Particle{3, 0.5}).mass == 0.5);
  EXPECT(sent(std::vector<user::Particle>{{3, 0.5}, {4, 1.5}})[1].mass == 1.5);
  EXPECT(sent(std::map<int, user::Particle>{{7, {4, 1.5}}})[7].cell == 4);
  comu::DATA data;
  data.id = data.rank = 0;
  comu::TRDATA record;
  record.id = record.rank = 1, record.neighbours = {4, 2};
  EXPECT(getStreamSize(record) == 20 && sent(record).neighbours.count(4) == 1);

  std::vector<std::vector<int>> out(1, {1}), in;
  std::vector<std::vector<comu::DATA>> dataOut(1), dataIn;
  comu::sparse_send_recv<int>(kCommWorld, out, in, false);
  comu::sparse_send_recv<comu::DATA>(kCommWorld, dataOut, dataIn, false);
  EXPECT(in[0][0] == 1);
  exchangeOf<int>(), exchangeOf<long>(), exchangeOf<float>(), exchangeOf<double>();
  exchangeOf<Complex<float>>(), exchangeOf<Complex<double>>();
  sendOnly<MatrixT<int, int, MatrixLayoutRowMajor>>();
  sendOnly<MatrixT<AggregateData<int>, int, MatrixLayoutRowMajor>>();
  sendOnly<std::vector<comu::TRDATA>>();

  const std::vector<int> ids = {4, 2};
  std::vector<int> owners;
  int answers[2] = {-1, -1};
  comu::get_owner_rank_ex(kCommWorld, 2, ids.data(), firstRank, nullptr, answers);
  comu::get_owner_rank(kCommWorld, 2, ids.data(), answers);
  comu::get_owner_rank(kCommWorld, ids, owners);
  EXPECT(owners.size() == 2 && owners[0] == 0 && answers[1] == 0);
  comu::map_reduce<int, int>(
      kCommWorld, 2ul, ids.data(), [](const int& key) { return key % 1; },
      [](int, int, const auto& requests, auto& replies) { replies = requests; }, answers);
  EXPECT(answers[0] == 4);

  const std::vector<int> rows, ptr = {0, 1, 2}, cols = {1, 0};
  std::vector<int> recvRows, sendRanks, ghostIds, ghostRanks, rowIds, ptrOut, colsOut;
  comu::get_sym_ghost_info(kCommWorld, rows, ptr, cols, recvRows, sendRanks, ghostIds, ghostRanks);
  comu::get_unsym_ghost_info(kCommWorld, rows, ptr, cols, recvRows, sendRanks, ghostIds,
                             ghostRanks);
  std::map<int, std::set<int>> graph, other;
  comu::transpose_matrix(kCommWorld, rows, ptr, cols, graph);
  comu::change_format(graph, rowIds, ptrOut, colsOut);
  comu::change_format2(graph, rowIds, ptrOut, colsOut);
  comu::merge_graph(graph, other);
  EXPECT(ptrOut.size() == 3 && other.empty());
}

// --- Kernel families ----------------------------------------------------------------------------

Complex<double> wide(Complex<double> z) { return z; }
Complex<float> narrow(Complex<float> z) { return z; }

void complexNumbers() {
  const Complex<double> z(3, 4), w = Complex<float>(1, 2);
  const Complex<float> s = z;
  EXPECT(wide(s) == z && narrow(w) == Complex<float>(1, 2) && abs(z) == 5.0);
  EXPECT(conj(z) != z && z / z == Complex<double>(1) && (z + w) - w == z && z * w != z);
}

template <class T>
void kernels() {
  const Device d(0, 0);
  EXPECT((vectorKernels<T, int, BlasOps<T, int>>(d)));
  EXPECT((vectorKernels<T, long, BlasOps<T, long>>(d)));
  EXPECT((denseKernels<T, int, MatOps<T, int, MatrixLayoutRowMajor>>(d)));
  EXPECT((denseKernels<T, int, MatOps<T, int, MatrixLayoutColMajor>>(d)));
  EXPECT((denseKernels<T, long, MatOps<T, long, MatrixLayoutRowMajor>>(d)));
  EXPECT((denseKernels<T, long, MatOps<T, long, MatrixLayoutColMajor>>(d)));
  EXPECT((sparseKernels<T, int, SpBlasOps<T, int>>(d) &&
          sparseKernels<T, long, SpBlasOps<T, long>>(d)));
}

template <class To, class From>
void mixed() {
  EXPECT((mixedKernels<To, From, int, MixedBlasOps<To, From, int>>(Device(0, 0))));
  EXPECT((mixedKernels<To, From, long, MixedBlasOps<To, From, long>>(Device(0, 0))));
}

void kernelFamilies() {
  complexNumbers();
  kernels<int>(), kernels<long>(), kernels<float>(), kernels<double>();
  kernels<Complex<float>>(), kernels<Complex<double>>();
  mixed<double, float>(), mixed<float, double>(), mixed<double, int>(), mixed<float, int>();
  mixed<int, double>(), mixed<int, float>(), mixed<Complex<double>, Complex<float>>();
  mixed<Complex<float>, Complex<double>>(), mixed<Complex<double>, int>(),
      mixed<Complex<float>, int>();
}

// --- Local matrices -----------------------------------------------------------------------------

template <class G, class L>
void partitioners() {
  PartitionerT<G, L> part, other;
  part.create(G(10), L(4)), other.create(G(10), std::vector<G>{0, 3, 6, 8, 10});
  G begin = 0, end = 0;
  part.getOwnerShipRangeForPart(L(1), &begin, &end);
  L owner = 0, local = 0;
  part.global2Local(G(7), owner, local);
  const MatrixT<L, L, MatrixLayoutRowMajor> offsets = part.getPartition();
  EXPECT(part == other && !(part != other) && begin == 3 && end == 6 && owner == 2 && local == 1);
  EXPECT(part.getLocalSizeForPart(L(0)) == 3 && part.getNumParts() == 4 &&
         part.getGlobalSize() == 10);
  EXPECT((PartitionerT<G, L>::firstGreaterOrEqual({0, 3, 10}, G(3)) == 1) &&
         offsets.getRows() == 5);
}

template <class T>
void denseMatrices() {
  static_assert(std::is_same_v<MatrixT<T>, MatrixT<T, int, MatrixLayoutRowMajor>>);
  static_assert(std::is_same_v<MatrixT<T, int, RowMajor>, MatrixT<T>>);
  using R = RealType<T>;
  MatrixT<T> m, n, out, none;
  m.create(3, 1, {0, 0}), n.resize(3, 1, Device(0, 0)), out.create(3, 1, "cpu"),
      none.create(0, 5, {});
  m.fill(T(1)), n.fill(T(2)), out.fill(T(0));
  bool ok = true;
  EXPECT(m.getElementValue(0, 0, &ok) == T(1) && ok && m.getElementValue(5, 0, nullptr) == T(0));
  MatrixT<T>::axpy(T(1), m, n), MatrixT<T>::axpby(T(1), m, T(1), n);
  MatrixT<T>::axpbypz(T(1), m, T(1), n, out), MatrixT<T>::axpbypcz(T(1), m, T(1), n, T(0), out);
  MatrixT<T>::axypbz(T(1), m, n, T(0), out), n += m;
  EXPECT(MatrixT<T>::dot(m, n) == T(15));
  m.deepCopy(out), out = m.toDevice({0, 0}), m.toDevice(Device(0, 0), out);
  const MatrixT<int> indices = MatrixT<int>::range(0, 3), stepped = MatrixT<int>::range(0, 4, 2);
  m.selectRows(indices, out), m.unselectRows(indices, out);
  PartitionerT<long, int> part;
  part.create(3, 2);
  std::vector<MatrixT<T>> parts;
  m.template splitRows<long, int>(part, parts);
  EXPECT((MatrixT<T>::template mergeRows<long, int>(part, parts).getRows() == 3));
  const MatrixT<int> nonzero = m.getNonZeroIndices();
  const MatrixT<R> re = MatrixT<R>::rand(3, 1), im;
  out.createComplex(re, im);
  std::stringstream text;
  m.saveToStream(text, -1), out.loadFromStream(text), m.saveToFile("names_dense.raw", 0);
  EXPECT(out.getRows() == 3 && nonzero.getSize() == 3 && stepped.getSize() == 2);
}

template <class T, class R, class C>
void assembled() {
  COOMatrixT<T, R, C> coo;
  const COOMatrixT<T, R, C>& constant = coo;
  coo.setShape(2, 2);
  std::shared_ptr<MapWithLockType<C, T>> row = constant.getRowEx(R(1));
  {
    const std::lock_guard<MapWithLockType<C, T>> guard(*row);
    (*row)[C(1)] += T(2);
  }
  PartitionerT<R, int> part;
  part.create(2, 1);
  COOMatrixT<T, int, C> out;
  out.setShape(2, 2);
  coo.template endAssemble<int>(kCommWorld, part, out);
  CSRMatrixT<T, int> csr;
  out.toCSR(csr);
  std::istringstream text("%%MatrixMarket matrix coordinate real general\n1 1 1\n1 1 2\n");
  coo.loadFromStream(text);
  EXPECT(csr.getNnz() == 1 && coo.getRows() == 1 && coo.getCols() == 1);
  comu::Stream stream;
  stream.setCapacity(static_cast<int>(comu::getStreamSize(*row)));
  comu::packStream(stream, *row);
  std::unordered_map<C, T> map;
  comu::unpackStream(stream, map);
  EXPECT(map.at(C(1)) == T(2));
}

template <class T>
void sparseMatrices() {
  using M = CSRMatrixT<T, int>;
  const Device d(0, 0);
  M A, B, C;
  A.create(2, 2, 2, {0, 0}), B.create(2, 2, 0, d), C.resize(2, 2, d);
  int *ptr = A.getRowPtr(), *col = A.getColIdx();
  T* const val = A.getValues();
  ptr[0] = 0, ptr[1] = 1, ptr[2] = 2, col[0] = 0, col[1] = 1, val[0] = T(2), val[1] = T(3);
  B.getRowPtr()[0] = B.getRowPtr()[1] = 0, B.getRowPtr()[2] = 1;
  B.resizeNnz(B.evaluateNnzs(), 0);
  B.getColIdx()[0] = 0, B.getValues()[0] = T(1);
  EXPECT(A.getDevice() == d && A.getRows() == 2 && A.getCols() == 2 && A.getNnz() == 2);
  A.deepCopy(C), C = A.toDevice(d);
  CSRMatrixT<int, int> S;
  A.template copyStructure<int>(S), A.sortRows(), M::scale(C, T(2));
  MatrixT<T> x, y, none;
  x.create(2, 1, d), x.fill(T(1));
  A.aAxpby(T(1), x, T(0), y), A.multiply(B, C), M::matadd(T(1), A, T(2), B, C);
  A.axpbyDiag(T(1), x, T(1), none, C), C = A.sparsify(T(0));
  const MatrixT<int> sel = MatrixT<int>::range(0, 2), ends = MatrixT<int>::range(1, 3);
  A.getSelectedRows(sel, C, false), A.getSelectedCols(0, 2, C, 0),
      A.getSelectedCols(sel, ends, C, 2);
  PartitionerT<long, int> part;
  part.create(2, 2);
  std::vector<M> blocks;
  A.template splitCols<long, int>(part, blocks);
  EXPECT((M::template mergeCols<long, int>(part, blocks) == A));
  const std::vector<M> twice(2, A);
  EXPECT((M::template mergeRows<long, int>(part, twice).getRows() == 4 && A != B));
  MatrixT<int> count;
  A.getColElementCount(count);
  bool found = false;
  EXPECT(A.getElementValue(1, 1, &found) == T(3) && found && !A.setElementValue(0, 1, T(1)));
  A.check(true);
  EXPECT(comu::getStreamSize(A) == static_cast<std::size_t>(A.getStreamSize()) && sent(A) == A);
  const COT_CSRRawMat<T, int> view = A.getRawMat();
  std::stringstream text;
  A.saveToStream(text, -1), C.loadFromStream(text), A.saveToFile("names_sparse.mtx", 0);
  EXPECT(view.nnz == 2 && C.getNnz() == 2 && count.getSize() == 2 && S.getNnz() == 2);

  CSRMatrixT<T, long> wideA;
  wideA.create(1, 1, 1, d);
  wideA.getRowPtr()[0] = 0, wideA.getRowPtr()[1] = 1, wideA.getColIdx()[0] = 0;
  wideA.getValues()[0] = T(1);
  EXPECT(wideA.setElementValue(0, 0, T(5)) && wideA.getElementValue(0, 0, &found) == T(5));
}

template <class T>
void localOf() {
  denseMatrices<T>(), assembled<T, int, int>(), assembled<T, int, long>(),
      assembled<T, long, long>();
  sparseMatrices<T>();
}

void localMatrices() {
  partitioners<int, int>(), partitioners<long, int>(), partitioners<long, long>();
  localOf<int>(), localOf<long>(), localOf<float>(), localOf<double>();
  localOf<Complex<float>>(), localOf<Complex<double>>();
  CrossData<int> scalar(Device(0, 0), 3);
  scalar.device.getData()[0] = 4, scalar.toHost();
  EXPECT(scalar.host.getData()[0] == 4);
  MatrixT<COT_RawCommPattern<double, int>> views;
  MatrixT<COT_SpMVCSRRawMat<double, int>> blocks;
}

// --- Distributed matrices -----------------------------------------------------------------------

template <class T, class G>
void vectors() {
  using V = ParMatrixT<T, G, int>;
  using R = RealType<T>;
  const Device d(0, 0);
  V x(G(3), d), y(G(3), G(1), d, kCommWorld), z, out;
  PartitionerT<G, int> rows, cols;
  rows.create(3, 1), cols.create(1, 1);
  z.create(G(3), d), z.create(G(3), G(1), {0, 0}), z.create(rows, d), z.create(rows, cols, {});
  z.resize(G(3), G(1), d, kCommWorld);
  MatrixT<T, int, MatrixLayoutRowMajor> local;
  local.create(3, 1, d), local.fill(T(1)), out.createSeq(local), out.createSeq(local, kCommSelf);
  G begin = 0, end = 0;
  x.getOwnerShipRange(&begin, &end), x.setLocalMatrix({local}), y.fill(T(2)), z.fill(T(0));
  EXPECT(x.getRows() == 3 && x.getCols() == 1 && x.getSize() == 3 && x.getComm() == kCommWorld);
  EXPECT(x.getDevice() == d && x.getRowPartitioner() == rows && x.getColPartitioner() == cols);
  bool ok = false;
  EXPECT(x.setElementValue(G(0), G(0), T(1)) && x.getElementValue(G(0), G(0), &ok) == T(1) && ok);
  EXPECT(end - begin == 3 && x.getLocalMatrix(-1).getRows() == 3);
  V::scale(T(1), y), V::reciprocal(T(1), z), V::pow(T(1), z), y *= T(1);
  V::axpy(T(1), x, z), V::axpby(T(1), x, T(0), z), V::axpbypz(T(1), x, T(1), y, z);
  V::axypbz(T(1), x, y, T(0), z), V::axpbypcz(T(1), x, T(1), y, T(0), z);
  x.deepCopy(out), out = x.deepCopy(), out = x.toDevice(Device(0, 0)), x.toDevice({0, 0}, out);
  ParMatrixT<R, G, int> re = x.getReal(), im = x.getImag();
  x.getReal(re), x.getImag(im), out.createComplex(re, im), x.copyStructure(z);
  T min, max, sum;
  x.min_max_sum(&min, &max, &sum);
  EXPECT(V::dot(x, y) == T(6) && V::absSum(x, R(1)) == R(3) && V::normL1(x) == R(3));
  EXPECT(V::normL2(x) > R(0) && V::absMax(x) == R(1) && sum == T(3));
  out.beginAssemble(), out.setValue(G(0), G(0), T(1), SetValueMode(0));
  out.setValue(G(1), T(1), SetValueMode(1)), out.endAssemble();
  MatrixT<T, G, RowMajor> given;
  given.create(3, 1, d), given.fill(T(1)), out.createByAssemble(given, kCommWorld);
  out.scatter(kCommWorld, 0, local);
  EXPECT(out.gather(0).getRows() == 3);
  std::stringstream text;
  x.saveToStream(text), out.loadFromStream(text, d, kCommWorld), x.saveToFile("names_vector.mtx");
  out.loadFromFile("names_vector.mtx", d, kCommWorld);
  EXPECT(out.getRows() == 3);
}

template <class T, class G>
void matrices() {
  using M = ParCSRMatrixT<T, G, int>;
  using V = ParMatrixT<T, G, int>;
  using R = RealType<T>;
  using Plan = SpMVCommPatternT<T, G, int>;
  const Device d(0, 0);
  M A, B, C;
  PartitionerT<G, int> part;
  part.create(2, 1);
  A.create(G(2), G(2), {0, 0}, kCommWorld), A.beginAssemble();
  A.setValue(G(0), G(0), T(2), SetValueMode(0)), A.setValue(G(1), G(1), T(2), SetValueMode(1));
  A.traversal([](G, G) { return true; }, [](G, G, T& value) { return value == T(2); });
  A.endAssemble();
  std::vector<CSRMatrixT<T, int>> blocks;
  A.getLocalMatrix(blocks), B.create(part, part, blocks, {}, kCommWorld), C.createSeq(blocks[0]);
  C.createSeq(A.getLocalMatrix(-1), kCommSelf), C.setLocalMatrix(blocks), C.prepareMatVec(true);
  CSRMatrixT<T, G> given;
  given.create(G(1), G(1), G(0), d), C.createByAssemble(given, kCommWorld);
  G begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end), A.getSpMVCommPattern();
  EXPECT(A.getRowPartitioner() == part && A.getColPartitioner() == part && A.getLocalRows() == 2);
  EXPECT(A.getRows() == 2 && A.getCols() == 2 && A.getNnzs() == 2 && A.getDevice() == d &&
         end == 2);
  C.setComm(A.getComm()), C.setDevice(d);
  bool found = false;
  EXPECT(A.getElementValue(G(1), G(1), &found) == T(2) && found &&
         !A.setElementValue(G(0), G(1), T(1)));
  A.deepCopy(B), B = A.deepCopy(), M::scale(B, T(1)), B.fill(T(2)), B.sortRows();

  V x(G(2), d), y(G(2), d);
  x.fill(T(1)), A.aAxpby(T(1), x, T(0), y, nullptr), A.matVec(x, y, nullptr), y = A.matVec(x);
  int blocksSeen = 0;
  const auto callback = [&](int procId, typename Plan::SpmvColBlock* block) {
    const typename M::LocalBlock* const linked = block->block;
    blocksSeen += procId == 0 && linked->matrix.getNnz() == 2 && linked->plan_block == block;
    blocksSeen += block->col_start == 0 && block->recv_x.getSize() == 2;
    (void)block->nzc_recv_indices, (void)block->recv_write_flag;
  };
  typename ParMatrixFreeT<T, G, int>::AsyncMatVecObject async;
  A.exchangeMatVec(
      x, callback, callback, [] {}, &async);
  EXPECT(blocksSeen == 2);
  if (never) async.wait(), A.sor(x, y, 1.0, true), A.jacobi(x, y, 1.0);
  V diag;
  A.getDiag(diag, 0), diag = A.getDiag(0), diag = A.getDiag();
  ParMatrixT<R, G, int> norms;
  A.rowNorm(norms, 2.0), norms = A.rowNorm(1.0);
  A.toDevice(d, B), B = A.toDevice({0, 0});
  typename ParCSRMatrixT<T, G, int>::Meta meta = A.computeMeta();
  A.computeMeta(meta);
  EXPECT(!meta.getTableHead().empty() && !meta.getString().empty() && meta.sparse == 0.5);
  EXPECT(meta.rows == 2 && meta.cols == 2 && meta.nnzs == 2 && A == B && !(A != B));

  A.multiply(B, C), C = A.multiply(B), A.transpose(C), C = A.transpose();
  M::matadd(T(1), A, T(1), B, C), M::axpbyDiag(T(1), diag, T(1), V(), A, C);
  B.matmul_aDA(T(1), diag, C), B.matmul_aAD(T(1), diag, C), C = A.sparsify(T(0)), C = A.rowTopK(1);
  const CSRMatrixT<T, int> whole = A.gather(0);
  C = M::scatter(kCommWorld, 0, whole);
  MatrixT<COT_SpMVCSRRawMat<T, int>> table;
  A.getRawMat(table), table = A.getRawMatOnDev();
  ParCSRMatrixT<int, G, int> S;
  A.template copyStructure<int>(S);
  std::stringstream text;
  whole.saveToStream(text, 0), C.loadFromStream(text, d, kCommWorld), A.saveToStream(text, 0);
  A.saveToFile("names_matrix.mtx", 0), C.loadFromFile("names_matrix.mtx", d, kCommWorld);
  EXPECT(C.getNnzs() == 2 && table.getSize() == 1 && S.getNnzs() == 2);

  Plan plan, copied;
  MatrixT<int> count;
  A.getLocalMatrix(0).getColElementCount(count);
  plan.create(kCommWorld, d, part, {count}), plan.template create<T>(A), plan.create(A);
  const typename Plan::BlockCallback idle = [](int, typename Plan::SpmvColBlock*) {};
  plan.exchange(x, idle, idle, nullptr, nullptr);
  plan.exchange(x.getLocalMatrix(-1), nullptr, nullptr, nullptr, nullptr);
  plan.sendTraversal([](int, typename Plan::SpmvSendMeta* meta_) {
    (void)meta_->nzc_send_indices, (void)meta_->send_x;
  });
  plan.recvTraversal([](int, typename Plan::SpmvColBlock*) {});
  plan.fill(T(0)), plan.initReverseExchange();
  ParMatrixT<int, G, int> mask;
  const auto take = [](const T&, const T& b) { return b; };
  plan.reverseExchange(x, mask, take, [](const int&, const int& b) { return b; });
  plan.reverseExchange(x, take);
  MatrixT<COT_RawCommPattern<T, int>> records;
  plan.getRawMat(records), records = plan.getRawMatOnDev();
  const CSRMatrixT<T, int> ghost = plan.template getGhostMatrix<T>(A);
  SpMVCommPatternT<int, G, int> ints;
  plan.template copyStructure<int>(ints, true), plan.saveToStream(text, 0);
  const int tag = Plan::getMessageTag();
  Plan::incMessageTag();
  EXPECT(Plan::getMessageTag() == tag + 1 && plan.getDevice() == d && plan.getComm() == kCommWorld);
  const ReverseData<T, int> back = {1, T(2)};
  const COT_RawCommPattern<T, int> record = records.getData()[0];
  EXPECT(back.index == 1 && back.value == T(2) && record.procId == 0 && record.col_start == 0);
  (void)record.recv_x, (void)record.nzc_recv_indices, (void)record.recv_write_flag;
}

template <class T>
void distributedOf() {
  static_assert(std::is_same_v<ParMatrixT<T>, ParMatrixT<T, long, int>>);
  vectors<T, int>(), vectors<T, long>(), matrices<T, int>(), matrices<T, long>();
}

void distributedMatrices() {
  distributedOf<int>(), distributedOf<long>(), distributedOf<float>(), distributedOf<double>();
  distributedOf<Complex<float>>(), distributedOf<Complex<double>>();
}

// --- Operators and solvers ----------------------------------------------------------------------

template <class T>
using Matrix = ParCSRMatrixT<T, long, int>;
template <class T>
using Vector = ParMatrixT<T, long, int>;

template <class T>
Matrix<T> tridiagonal(long n) {
  Matrix<T> A;
  A.create(n, n, Device(), kCommWorld);
  A.beginAssemble();
  for (long i = 0; i < n; ++i) {
    for (const long k : {i - 1, i, i + 1}) {
      if (k >= 0 && k < n) A.setValue(i, k, k == i ? T(2) : T(-1), SetValueMode::Add);
    }
  }
  A.endAssemble();
  return A;
}

void operatorTree() {
  auto root = std::make_shared<ParOperator>(), child = std::make_shared<ParOperator>();
  root->appendChild(child, "role");
  child->tagName = "tag";
  ParOperator::CallBackPlace place = CallBackPlace(1);
  int calls = 0;
  root->registerCallBack("tag", place, [&](std::shared_ptr<ParOperator>) { ++calls; });
  const std::function<void(std::shared_ptr<ParOperator>)> fn = root->getCallBack("tag", place);
  fn(nullptr), root->getCallBack("tag", 1)(nullptr);
  EXPECT(calls == 2 && !root->getCallBack("tag", 0) &&
         ParOperator::findOpByTagName(root, "tag") == child);
  std::ostringstream text;
  root->describe(text, 0);
  ParOperator copy(*root);
  copy = *root;
  EXPECT(text.str() == " \n  role[tag]  \n");
}

/// One solve by each class of solver that JSON names.
template <class T, class Solver>
void solver(const json& params) {
  using R = RealType<T>;
  Matrix<T> A = tridiagonal<T>(4);
  Vector<T> x(4, Device()), b(4, Device());
  x.fill(T(0)), b.fill(T(1));
  Solver s;
  s.create(params), s.setup(A);
  ParSolverT<T, long, int>& frame = s;
  int iter = 0;
  R relres = 1;
  if (frame.preconditioner != nullptr) {
    frame.preconditioner->setup(A), frame.solve(A, b, x, iter, relres);
  } else {
    ParOperatorIdentityT<T, long, int> P;
    frame.solve(P, A, b, x, iter, relres);
  }
  frame.setup(A);
  EXPECT((ParMatrixT<T, long, int>::residual(A, x, b) < R(1e-3)));
}

template <class T>
void frameOf() {
  using R = RealType<T>;
  Matrix<T> A = tridiagonal<T>(4);
  Vector<T> x(4, Device()), b(4, Device()), r;
  x.fill(T(0)), b.fill(T(1));
  Vector<T>::residual_vec(A, x, b, r);
  EXPECT(Vector<T>::residual(A, x, b, r) == Vector<T>::residual(A, x, b));
  ParOperatorIdentityT<T, long, int> identity;
  ParMatrixFreeT<T, long, int>& op = identity;
  op.aAxpby(T(2), b, T(0), x, nullptr), op.matVec(b, x, nullptr);
  EXPECT(op.getComm() == kCommWorld && op.getDevice() == Device() && op.getRows() == 0 &&
         op.getCols() == 0);
  identity.setup(A), identity.precondition(b, x), identity.smooth(b, x);

  SolverPCG_T<T, long, int, T> pcg;
  pcg.create(json::parse(R"({"verbose": 0, "rtol": 1e-5, "btol": 0, "atol": 0, "verb": 0})"));
  pcg.ParSolverT<T, long, int>::create(json::object(), "PCG");
  pcg.btol = pcg.atol = R(0), pcg.verb = 0;
  int iter = 0;
  R relres = R(1);
  ParPreconditionerT<T, long, int>& P = *pcg.preconditioner;
  pcg.beginSolve(P, A, b, x, iter, relres), pcg.logSolverStatus(P, 1, R(1), R(1), R(1));
  pcg.finishSolve(P, 1, iter, relres);
  EXPECT(pcg.name == "PCG" && pcg.verbose == 0 && pcg.max_its == 2000 && pcg.lastResB == R(1));
  EXPECT(pcg.commSize >= 0 && pcg.rank == 0 && pcg.rtol > R(0) && pcg.solveTime.getCount() == 1);
}

template <class T>
void solversOf() {
  frameOf<T>();
  SolverFLGMRES_R_T<T, long, int, T> gmres;
  SolverMINRES_T<T, long, int> minres;
  SolverAdamW_T<T, long, int> adamw;
  EXPECT(gmres.restart == 20 && gmres.augk == 2 && minres.algo == "qlp" && minres.radius == 0.0);
  EXPECT(minres.norm_type == 0 && minres.monitor == 0 && adamw.beta1 == 0.9 && adamw.beta2 == 0.99);
  const json tight = {{"rtol", 1e-5}};
  solver<T, SolverPCG_T<T, long, int, T>>(tight),
      solver<T, SolverBiCGSTAB_T<T, long, int, T>>(tight);
  solver<T, SolverFLGMRES_R_T<T, long, int, T>>(tight),
      solver<T, SolverMINRES_T<T, long, int>>(tight);
  solver<T, SolverSYMMLQ_T<T, long, int>>(tight);
  solver<T, SolverGaussElimination_T<T, long, int>>(tight);
  const json step = {{"learning_rate", 1e-2}, {"max_its", 1}};
  if (never)
    solver<T, SolverLGMRES_T<T, long, int>>(tight), solver<T, SolverAdamW_T<T, long, int>>(step);
  solver<T, ParSmootherJacobi_T<T, long, int>>({{"relax", 0.9}, {"nsweeps", 1}});
  solver<T, ParSmootherJacobiLp_T<T, long, int>>({{"order", 1.0}, {"initial_zero", true}});
  solver<T, ParSmootherSOR_T<T, long, int>>({{"forward", true}, {"rtol", 1e-5}});
  solver<T, ParSmootherSSOR_T<T, long, int>>({{"relax", 1.0}, {"rtol", 1e-5}});
  solver<T, ParSolverList_T<T, long, int>>(json::parse(R"([{"solver_type": "SolverPCG"}])"));
}

template <class T>
void smoothersOf() {
  Matrix<T> A = tridiagonal<T>(4);
  Vector<T> x(4, Device()), b(4, Device());
  x.fill(T(0)), b.fill(T(1));
  ParSmootherSOR_T<T, long, int> sor;
  sor.create(json::object()), sor.setup(A), sor.sor_step(b, x, 1.0, true, nullptr),
      sor.smooth(b, x);
  ParSmootherJacobi_T<T, long, int> jacobi;
  jacobi.create(json::object()), jacobi.setup(A), jacobi.precondition(b, x);
  jacobi.relax = T(1), jacobi.nsweeps = 1, jacobi.initial_zero = true, jacobi.max_iters = 0;
  ParOpBaseT<T, long, int>& all = jacobi;
  ParSmootherT<T, long, int>& smoother = all;
  ParPreconditionerT<T, long, int>& preconditioner = all;
  smoother.setup(A), smoother.smooth(b, x), preconditioner.precondition(b, x);
  ParPrecondList_T<T, long, int> list;
  list.create(json::parse(R"([{"preconditioner_type": "PrecondJacobi"}])"));
  list.setup(A), list.precondition(b, x);
  if constexpr (!std::is_same_v<T, float>) {
    ParSmootherList_T<T, long, int> smoothers;
    smoothers.create(json::parse(R"([{"smoother_type": "SmootherSOR"}])"));
    smoothers.setup(A), smoothers.smooth(b, x);
  }
}

// --- Multigrid ----------------------------------------------------------------------------------

template <class T>
void hierarchyOf() {
  Matrix<T> A = tridiagonal<T>(40);
  Vector<T> x(40, Device()), b(40, Device());
  x.fill(T(0)), b.fill(T(1));
  const json params = json::parse(R"({
      "max_levels": 20, "min_coarse_size": 10, "verbose": 0,
      "level_transfer": {"level_transfer_type": "LevelTransferBoomerAMG"},
      "pre_smoother": {"smoother_type": "SmootherSOR"},
      "post_smoother": {"smoother_type": "SmootherSOR"}})");
  ParPreconditionerAMG_T<T, long, int> amg;
  amg.create(params), amg.setup(A), amg.precondition(b, x), amg.amg_step(b, x);
  amg.vcycle_recursive(0, b, x);
  typename ParPreconditionerAMG_T<T, long, int>::Level level = amg.levels[0];
  amg.createCoarsestLevel(level, std::make_shared<ParOperator>(), params);
  EXPECT(level.A.getRows() == 40 && level.P.getRows() == 40 && level.R.getCols() == 40);
  EXPECT(amg.max_levels == 20 && amg.min_coarse_size == 10 && amg.verbose == 0);
  ParPreconditionerT<T, long, int>& preconditioner = amg;
  ParSolverT<T, long, int>& solver = amg;
  int iter = 0;
  RealType<T> relres = 1;
  preconditioner.precondition(b, x);
  if (never) solver.solve(preconditioner, A, b, x, iter, relres);
}

template <class T>
void aggregationOf() {
  using Ops = LevelTransferOps_SA<T, long, int>;
  using Seq = SeqLevelTransferSmoothAggregation_T<T, long, int>;
  Matrix<T> A = tridiagonal<T>(12), P, R, Tent, Af;
  Vector<T> diag = A.getDiag();
  ParCSRMatrixT<int, long, int> S;
  ParMatrixT<int, long, int> aggr, owner;
  long naggr = 0;
  Ops::par_strength(A, diag, S, 0.08), Ops::par_aggregate(S, aggr, naggr);
  Ops::par_aggregate_comm_pattern(S, aggr, naggr), Ops::par_renumber(aggr, owner, naggr);
  Ops::par_tentative_prolongation(A.getRows(), naggr, aggr, Tent);
  Ops::par_tentative_filter(A, S, Af), Ops::par_tentative_smooth(A, naggr, Tent, S, P, 2.0 / 3.0);
  typename Seq::Impl work;
  work.A = A.getLocalMatrix(-1), work.D = diag.getLocalMatrix(-1);
  MatrixT<int> numbers;
  Ops::seq_strength(work.A, work.D, work.S, 0.08), Ops::seq_aggregate(work.S, -1, numbers, naggr);
  Ops::seq_tentative_prolongation(12, naggr, numbers, work.T);
  Ops::seq_tentative_filter(work.A, work.S, work.Ac);
  Ops::seq_tentative_smooth(work.A, naggr, work.T, work.S, work.P, 2.0 / 3.0);
  EXPECT(work.T.getNnz() == 12 && work.P.getRows() == 12);

  const json none = json::object();
  SeqVMBAggregator_T<T, long, int> vmbSeq;
  SeqFASPAggregator_T<T, long, int> fasp;
  ParVMBAggregator_T<T, long, int> vmb;
  ParAggregatorS2Greedy_T<T, long, int> greedy;
  vmbSeq.create(none), fasp.create(none), vmb.create(none), greedy.create(none);
  vmbSeq.max_aggregation = 0, fasp.max_aggregation = 50;
  for (ParAggregatorT<T, long, int>* const aggregator :
       std::initializer_list<ParAggregatorT<T, long, int>*>{&vmbSeq, &fasp, &vmb, &greedy}) {
    aggregator->aggregate(A, S, aggr, naggr);
    EXPECT(naggr > 0 && naggr < 12);
  }
  Seq seq;
  ParLevelTransferSmoothAggregation_T<T, long, int> par;
  seq.create(none), par.create(none), seq.transfer_operators(A, P, R),
      par.transfer_operators(A, P, R);
  ParLevelTransferT<T, long, int>& transfer = par;
  transfer.setLevelId(1), transfer.transfer_operators(A, P, R);
  seq.eps_strong = 0.08, seq.relax = 1.0, seq.block_size = 1, seq.smooth = true,
  seq.verbose = false;
  EXPECT(P.getRows() == 12 && R.getCols() == 12);
}

template <class T>
void classicalOf() {
  using Ops = LevelTransferOps_RS<T, long, int>;
  Matrix<T> A = tridiagonal<T>(12), P, R;
  const Vector<T> diag = A.getDiag();
  ParCSRMatrixT<int, long, int> S;
  ParMatrixT<int, long, int> cf;
  long ncoarse = 0;
  MatrixT<int> dof, marks;
  CSRMatrixT<T, int> local = A.getLocalMatrix(-1), prolongation, cut;
  CSRMatrixT<int, int> strong;
  Ops::connect(local, 0.25, strong, marks), Ops::cfsplit(local, strong, marks);
  Ops::interpolation(local, strong, marks, true, 0.2, 'C', 'F', ncoarse, prolongation);
  Ops::par_BoomerAMGCSRMatrixTruncate(prolongation, 0.1, 4, true, 0, cut);
  Ops::par_connect(A, 0.25, S, cf), Ops::par_rs_cfsplit(A, S, cf);
  Ops::par_BoomerAMGStrength(A, diag, 0.25, 1.0, 1, S), S = S.sparsify(0);
  Ops::par_BoomerAMGCoarsenPMIS(A, S, cf, 0);
  Ops::par_interpolation(A, S, cf, true, 0.2, 1, -1, ncoarse, P);
  Ops::par_BoomerAMGInterpolationExtendedPI(A, S, cf, 1, dof, 0.0, 4, ncoarse, false, P);
  EXPECT(P.getCols() == ncoarse && cut.getRows() == 12);

  const json none = json::object();
  ParStrengtherBoomerAMG<T, long, int> strengther;
  ParSplitterBoomerAMGPMIS<T, long, int> splitter;
  ParInterpolatorBoomerAMGExtendedPI<T, long, int> extended;
  ParInterpolatorAMGCLDirect<T, long, int> direct;
  strengther.create(none), splitter.create(none), extended.create(none), direct.create(none);
  strengther.strong_threshold = 0.25, strengther.max_row_sum = 0.9, strengther.num_functions = 1;
  splitter.CF_init = 0, extended.trunc_factor = 0, extended.p_max_elmts = 4,
  extended.num_functions = 1;
  direct.do_trunc = true, direct.eps_trunc = 0.2;
  static_cast<ParStrengtherT<T, long, int>&>(strengther).strength(A, diag, S);
  static_cast<ParSplitterT<T, long, int>&>(splitter).split(A, S, cf);
  static_cast<ParInterpolatorT<T, long, int>&>(extended).interpolate(A, S, cf, ncoarse, P);
  static_cast<ParInterpolatorT<T, long, int>&>(direct).interpolate(A, S, cf, ncoarse, P);
  SeqLevelTransferRugeStuben_T<T, long, int> seq;
  ParLevelTransferRugeStuben_T<T, long, int> par;
  ParLevelTransferBoomerAMG<T, long, int> boomer;
  seq.create(none), par.create(none), boomer.create(none);
  seq.eps_strong = 0.25, seq.do_trunc = true, seq.eps_trunc = 0.2, boomer.verbose = 0;
  typename SeqLevelTransferRugeStuben_T<T, long, int>::Impl work;
  typename ParLevelTransferBoomerAMG<T, long, int>::Impl parts;
  parts.A = A, parts.S = S, parts.cf = cf, parts.ncoarse = work.ncoarse = ncoarse, work.A = local;
  work.S = strong, work.P = prolongation, work.R = parts.R = R, parts.P = P;
  seq.transfer_operators(A, P, R), par.transfer_operators(A, P, R),
      boomer.transfer_operators(A, P, R);
  EXPECT(P.getRows() == 12 && R.getCols() == 12);
}

/// Kernels of the pipelines whose lists of arguments are the library's own: they can be named.
template <class T>
void levelTransferOps() {
  using Ops = SpLevelTransferOps<T, long, int>;
  using Function = void (*)();
  const auto name = [](auto f) { return reinterpret_cast<Function>(f); };
  const std::vector<Function> names = {name(Ops::csr_strength),
                                       name(Ops::csr_aggregate),
                                       name(Ops::csr_tentative_filter),
                                       name(Ops::csr_tentative_smooth),
                                       name(Ops::par_csr_aggregate),
                                       name(Ops::par_csr_aggregate_comm_pattern),
                                       name(Ops::par_csr_aggregate_select),
                                       name(Ops::rs_connect),
                                       name(Ops::par_rs_connect),
                                       name(Ops::rs_cfsplit),
                                       name(Ops::par_rs_cfsplit),
                                       name(Ops::rs_interpolation),
                                       name(Ops::par_rs_interpolation),
                                       name(Ops::par_boomeramg_strength),
                                       name(Ops::par_boomeramg_coarsen_pmis),
                                       name(Ops::par_boomeramg_interpolation_extended_pi),
                                       name(Ops::par_boomeramg_interpolation_add_rank_bias),
                                       name(Ops::boomeramg_csr_truncate)};
  EXPECT(names.size() == 18);
}

void levelTransferRecords() {
  HYPRERandom::seed = 2747;
  const AggregateData<int> record = {0, 1, 2};
  EXPECT(HYPRERandom::Rand() > 0.0 && record.part == 0 && AggregateStep(2) == 2);
  EXPECT(CoarsenPMISStep(10) == COARSEN_PMIS_STEP_INITIAL);
}

// --- Problems -----------------------------------------------------------------------------------

template <class T, class G>
void problems() {
  PoissonFDM_T<T, G, int> poisson;
  poisson.create(json::parse(R"({"dim": 2, "N": 4, "rhs": "random", "device": "cpu"})"));
  poisson.setDeviceAndComm(Device(0, 0), kCommWorld);
  ParCSRMatrixT<T, G, int> A;
  ParMatrixT<T, G, int> x, b;
  static_cast<TestCaseT<T, G, int>&>(poisson).generate(A, x, b);
  EXPECT(A.getRows() == 16 && poisson.dim == 2 && poisson.N == 4 && poisson.rhs == "random");
  DofMapND<T, G> map({4, 5});
  std::vector<G> grid;
  map.idx2grid(G(6), grid);
  EXPECT(grid[0] == 2 && grid[1] == 1);
}

void testCases() {
  problems<double, long>(), problems<double, int>(), problems<Complex<double>, long>();
  problems<Complex<double>, int>();
  MatrixMarket_T<double, long, int> files;
  MatrixMarket_T<Complex<double>, long, int> complexFiles;
  files.create(json::object()), complexFiles.create(json::object());
  EXPECT(files.filename_A + files.filename_b + files.filename_x == "");
}

template <class T>
void solve() {
  solversOf<T>(), smoothersOf<T>(), hierarchyOf<T>(), aggregationOf<T>(), classicalOf<T>();
  levelTransferOps<T>();
}

}  // namespace

int main() {
  devices();
  EXPECT(utilities());
  factories(), exchangeTools(), kernelFamilies(), localMatrices(), distributedMatrices();
  operatorTree();
  solve<float>(), solve<double>(), solve<Complex<float>>(), solve<Complex<double>>();
  levelTransferRecords(), testCases();
  Device::finalize();
  std::printf("%d names do not hold\n", failures);
  return failures == 0 ? 0 : 1;
}
