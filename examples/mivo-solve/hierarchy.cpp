// SPDX-License-Identifier: Apache-2.0
#include "hierarchy.hpp"

#include <iomanip>
#include <sstream>
#include <type_traits>

#include "mivo/precond/ParPreconditionerAMG.hpp"

namespace mivo_solve {
namespace {

template <class T>
using Amg = mivo::ParPreconditionerAMG_T<T, long, int>;

/// Visits the hierarchies of a tree, depth first.
template <class T, class Operator, class Visit>
void forEachHierarchy(Operator& root, const Visit& visit) {
  using Found = std::conditional_t<std::is_const_v<Operator>, const Amg<T>, Amg<T>>;
  if (auto* amg = dynamic_cast<Found*>(&root)) visit(*amg);
  for (const auto& child : root.children) forEachHierarchy<T, Operator>(*child, visit);
}

/// The names of an object and, for a pair of smoothers that differ, of both.
std::string nameOf(const mivo::ParOperator* first, const mivo::ParOperator* second) {
  std::string name = first != nullptr ? first->registered_name : "none";
  if (second != nullptr && second->registered_name != name) name += ", " + second->registered_name;
  return name;
}

/// Bytes of the arrays of this rank's blocks.
template <class T>
double bytesOf(const mivo::ParCSRMatrixT<T, long, int>& m) {
  double bytes = 0;
  for (int block = 0; block < m.getColPartitioner().getNumParts(); ++block) {
    const auto local = m.getLocalMatrix(block);
    if (local.getNnz() == 0) continue;
    bytes += static_cast<double>(local.getNnz()) * (sizeof(int) + sizeof(T)) +
             (local.getRows() + 1.0) * sizeof(int);
  }
  return bytes;
}

template <class T>
Hierarchy describeHierarchy(const Amg<T>& amg) {
  Hierarchy out;
  out.cycles = amg.step;
  for (std::size_t l = 0; l < amg.levels.size(); ++l) {
    const auto& level = amg.levels[l];
    Hierarchy::Level row;
    row.rows = level.A.getRows();
    row.entries = level.A.getNnzs();
    row.prolongation = level.P.getRows() > 0 ? level.P.getNnzs() : 0;
    row.smoother = level.coarse_solver != nullptr ? nameOf(level.coarse_solver.get(), nullptr)
                   : level.pre_smoother != nullptr
                       ? nameOf(level.pre_smoother.get(), level.post_smoother.get())
                       : nameOf(level.coarse_pre_smoother.get(), level.coarse_post_smoother.get());
    row.rowsPerRank = extentOverRanks(level.A.getLocalRows());
    row.cycleTime = slowest(level.cycle_time.getTimeSec());
    out.levels.push_back(row);
    out.bytes += sumOverRanks((l > 0 ? bytesOf(level.A) : 0) + bytesOf(level.P) + bytesOf(level.R));
  }
  const auto& times = amg.setup_times;
  const auto phase = [&](const char* name, const mivo::TickMeter& meter) {
    out.phases.push_back({name, slowest(meter.getTimeSec())});
  };
  phase("level transfers", times.transfer);
  phase("smoothers", times.smoother);
  phase("coarse operators", times.rap);
  phase("exchange plans", times.prepare);
  phase("coarsest level", times.coarse);
  out.setupTime = slowest(amg.setupTime.getTimeSec());
  return out;
}

/// Columns of a table, right-aligned but for the last one.
void printRow(std::ostream& out, const std::vector<std::string>& cells) {
  const int widths[] = {7, 12, 13, 9, 13, 14, 12};
  for (std::size_t c = 0; c + 1 < cells.size(); ++c) out << std::setw(widths[c]) << cells[c];
  out << "  " << cells.back() << "\n";
}

std::string fixed(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

double ratio(double a, double b) { return b > 0 ? a / b : 1.0; }

}  // namespace

double Hierarchy::operatorComplexity() const {
  double all = 0;
  for (const Level& level : levels) all += static_cast<double>(level.entries);
  return levels.empty() ? 1.0 : ratio(all, static_cast<double>(levels[0].entries));
}

double Hierarchy::gridComplexity() const {
  double all = 0;
  for (const Level& level : levels) all += static_cast<double>(level.rows);
  return levels.empty() ? 1.0 : ratio(all, static_cast<double>(levels[0].rows));
}

json Hierarchy::toJson(bool profile) const {
  json out = {{"operator_complexity", operatorComplexity()},
              {"grid_complexity", gridComplexity()},
              {"bytes", bytes},
              {"levels", json::array()}};
  for (const Level& level : levels) {
    out["levels"].push_back(
        {{"rows", level.rows},
         {"nnzs", level.entries},
         {"prolongation_nnzs", level.prolongation},
         {"smoother", level.smoother},
         {"rows_per_rank", {{"min", level.rowsPerRank.min}, {"max", level.rowsPerRank.max}}}});
    if (profile) out["levels"].back()["cycle_time"] = level.cycleTime;
  }
  if (profile) {
    out["cycles"] = cycles;
    out["setup"]["total"] = setupTime;
    for (const Phase& phase : phases) out["setup"][phase.name] = phase.seconds;
  }
  return out;
}

template <class T>
std::vector<Hierarchy> hierarchiesOf(const mivo::ParOperator& root) {
  std::vector<Hierarchy> out;
  forEachHierarchy<T>(root, [&](const Amg<T>& amg) {
    if (!amg.levels.empty()) out.push_back(describeHierarchy(amg));
  });
  return out;
}

template <class T>
void profileHierarchies(mivo::ParOperator& root) {
  forEachHierarchy<T>(root, [](Amg<T>& amg) { amg.profile = true; });
}

void printHierarchy(const Hierarchy& hierarchy, std::ostream& out) {
  out << "\nhierarchy\n";
  printRow(out,
           {"level", "rows", "entries", "a row", "entries P", "least a rank", "most", "smoother"});
  for (std::size_t l = 0; l < hierarchy.levels.size(); ++l) {
    const Hierarchy::Level& level = hierarchy.levels[l];
    printRow(out,
             {std::to_string(l), std::to_string(level.rows), std::to_string(level.entries),
              fixed(ratio(static_cast<double>(level.entries), static_cast<double>(level.rows)), 1),
              std::to_string(level.prolongation), std::to_string(level.rowsPerRank.min),
              std::to_string(level.rowsPerRank.max), level.smoother});
  }
  out << "operator complexity " << fixed(hierarchy.operatorComplexity(), 3) << ", grid complexity "
      << fixed(hierarchy.gridComplexity(), 3) << ", " << fixed(hierarchy.bytes / 1e6, 1)
      << " MB beside the given matrix" << std::endl;
}

void printProfile(const Hierarchy& hierarchy, std::ostream& out) {
  const auto line = [&](const std::string& name, double seconds, double whole) {
    out << "  " << std::left << std::setw(18) << name << std::right << std::setw(11)
        << fixed(seconds * 1e3, 3) << " ms" << std::setw(7)
        << fixed(100 * (whole > 0 ? seconds / whole : 0), 1) << " %\n";
  };
  out << "\nset-up of the hierarchy\n";
  double rest = hierarchy.setupTime;
  for (const Hierarchy::Phase& phase : hierarchy.phases) {
    line(phase.name, phase.seconds, hierarchy.setupTime);
    rest -= phase.seconds;
  }
  line("other", rest > 0 ? rest : 0, hierarchy.setupTime);
  line("total", hierarchy.setupTime, hierarchy.setupTime);
  double whole = 0;
  for (const Hierarchy::Level& level : hierarchy.levels) whole += level.cycleTime;
  out << hierarchy.cycles << " cycles\n";
  for (std::size_t l = 0; l < hierarchy.levels.size(); ++l) {
    line("level " + std::to_string(l), hierarchy.levels[l].cycleTime, whole);
  }
  line("total", whole, whole);
  out.flush();
}

#define MIVO_INSTANCE(T)                                                      \
  template std::vector<Hierarchy> hierarchiesOf<T>(const mivo::ParOperator&); \
  template void profileHierarchies<T>(mivo::ParOperator&);
MIVO_INSTANCE(double)
MIVO_INSTANCE(mivo::Complex<double>)
#undef MIVO_INSTANCE

}  // namespace mivo_solve
