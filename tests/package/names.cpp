// SPDX-License-Identifier: Apache-2.0

// Compiles, links and runs against the installed package: the table of the public interface
// (names.txt, as C++ in names.inc), and below it what a table of declarations does not hold, the
// forms in which a reader of the documents writes calls.

#include <mivo/utils/Utils.hpp>

namespace {

// Text helpers and timers come with this header alone.
bool utilities() {
  using namespace mivo;
  TickMeter meter;
  meter.start(), meter.stop(), meter.stop();
  const std::vector<std::string> pieces = stringSplit("a b", " "), path = stringSplitExt("a.b.mtx");
  return Utils::getVerboseLevel() >= 0 && !Utils::isStrictMatrixMarket() && Utils::isWaitSome() &&
         getTickCount() > 0 && getTickFrequency() == 1e9 && pieces.size() == 2 &&
         path[1] == "mtx" && string_printf("level_%d", 3) == "level_3";
}

}  // namespace

#include <mivo/utils/TestCase.hpp>

using TestCaseHeaderBrings = mivo::TestCaseT<double, long, int>;

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mivo/mivo.hpp>
#include <mivo/ops/BlasOpsImpl.hpp>
#include <mivo/ops/MatOpsImpl.hpp>
#include <mivo/ops/MixedBlasOpsImpl.hpp>
#include <mivo/ops/SpBlasOpsImpl.hpp>
#include <type_traits>

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

void expectAt(bool ok, const char* file, int line) {
  if (ok) return;
  std::printf("%s:%d does not hold\n", file, line);
  ++failures;
}
#define EXPECT(condition) expectAt(condition, __FILE__, __LINE__)

// --- The table ----------------------------------------------------------------------------------

/// False, unknown to the compiler.
volatile bool never = false;

template <class F>
void pin(F*) {}
template <class F, class C>
void pin(F C::*) {}
template <class F>
void named(F*) {}

template <class P>
P&& some() {
  std::abort();
}
template <class C, class... P>
void constructs() {
  if (never) delete new C(some<P>()...);
}

#include "names.inc"

// --- Forms of calls -----------------------------------------------------------------------------

Device noDevice() { return {}; }

void devices() {
  const Device d(0, 0), gpu = {1, 0}, text("cuda:1"), literal = "cpu", name = std::string("hip");
  static_assert(!std::is_convertible_v<int, Device>, "a number alone is no device");
  EXPECT(noDevice() == d && text.type == 1 && text.id == 1 && literal == d && d < gpu);
  EXPECT(Device::type_map["cuda"] == 1 && Device::type_map.size() == 3 && name.type == 2);
  MatrixT<double> m;
  m.create(1, 1, {0, 0}), m.create(1, 1, "cpu"), m.create(1, 1, {});
}

void messages() {
  comu::Stream stream;
  const std::map<int, std::vector<user::Particle>> map = {{7, {{3, 0.5}, {4, 1.5}}}};
  stream.setCapacity(static_cast<int>(comu::getStreamSize(map)));
  comu::packStream(stream, map);
  std::map<int, std::vector<user::Particle>> back;
  comu::unpackStream(stream, back);
  EXPECT(back[7][1].cell == 4 && back[7][1].mass == 1.5);
}

void numbers() {
  static_assert(std::is_same_v<MatrixT<float>, MatrixT<float, int, MatrixLayoutRowMajor>>);
  static_assert(std::is_same_v<MatrixT<float, int, RowMajor>, MatrixT<float>>);
  static_assert(std::is_same_v<ParMatrixT<float>, ParMatrixT<float, long, int>>);
  static_assert(std::is_convertible_v<Complex<float>, Complex<double>>);
  static_assert(std::is_convertible_v<Complex<double>, Complex<float>>);
  static_assert(SetValueMode(0) == SetValueMode::Set && SetValueMode(1) == SetValueMode::Add);
  static_assert(CoarsenPMISStep(10) == COARSEN_PMIS_STEP_INITIAL && AggregateStep(2) != 0);
  EXPECT(spm::gs_spm_init && spm::is_initialized());
}

}  // namespace

int main() {
  Device::initialize();
  EXPECT(utilities());
  pinAll(), devices(), messages(), numbers();
  Device::finalize();
  std::printf("%d names do not hold\n", failures);
  return failures == 0 ? 0 : 1;
}
