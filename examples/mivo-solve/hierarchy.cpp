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

json toJson(const Hierarchy& hierarchy, bool profile) {
  json out = {{"operator_complexity", hierarchy.operatorComplexity()},
              {"grid_complexity", hierarchy.gridComplexity()},
              {"bytes", static_cast<double>(hierarchy.matrix_bytes)},
              {"levels", json::array()}};
  for (const Hierarchy::Level& level : hierarchy.levels) {
    out["levels"].push_back(
        {{"rows", level.rows},
         {"nnzs", level.entries},
         {"prolongation_nnzs", level.prolongation_entries},
         {"smoother", level.smoother},
         {"rows_per_rank", {{"min", level.rows_min}, {"max", level.rows_max}}}});
    if (profile) out["levels"].back()["cycle_time"] = level.cycle_time;
  }
  if (profile) {
    out["cycles"] = hierarchy.cycles;
    out["setup"]["total"] = hierarchy.setup_time;
    for (const Hierarchy::Phase& phase : hierarchy.setup) out["setup"][phase.name] = phase.seconds;
  }
  return out;
}

template <class T>
std::vector<Hierarchy> hierarchiesOf(const mivo::ParOperator& root) {
  std::vector<Hierarchy> out;
  forEachHierarchy<T>(root, [&](const Amg<T>& amg) {
    if (!amg.levels.empty()) out.push_back(amg.getStatistics());
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
              std::to_string(level.prolongation_entries), std::to_string(level.rows_min),
              std::to_string(level.rows_max), level.smoother});
  }
  out << "operator complexity " << fixed(hierarchy.operatorComplexity(), 3) << ", grid complexity "
      << fixed(hierarchy.gridComplexity(), 3) << ", "
      << fixed(static_cast<double>(hierarchy.matrix_bytes) / 1e6, 1)
      << " MB beside the given matrix" << std::endl;
}

void printProfile(const Hierarchy& hierarchy, std::ostream& out) {
  const auto line = [&](const std::string& name, double seconds, double whole) {
    out << "  " << std::left << std::setw(18) << name << std::right << std::setw(11)
        << fixed(seconds * 1e3, 3) << " ms" << std::setw(7)
        << fixed(100 * (whole > 0 ? seconds / whole : 0), 1) << " %\n";
  };
  out << "\nset-up of the hierarchy\n";
  double rest = hierarchy.setup_time;
  for (const Hierarchy::Phase& phase : hierarchy.setup) {
    line(phase.name, phase.seconds, hierarchy.setup_time);
    rest -= phase.seconds;
  }
  line("other", rest > 0 ? rest : 0, hierarchy.setup_time);
  line("total", hierarchy.setup_time, hierarchy.setup_time);
  double whole = 0;
  for (const Hierarchy::Level& level : hierarchy.levels) whole += level.cycle_time;
  out << hierarchy.cycles << " cycles\n";
  for (std::size_t l = 0; l < hierarchy.levels.size(); ++l) {
    line("level " + std::to_string(l), hierarchy.levels[l].cycle_time, whole);
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
