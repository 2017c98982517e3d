// SPDX-License-Identifier: Apache-2.0
#include "report.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace mivo_solve {
namespace {

std::string scientific(double value) {
  if (std::isnan(value)) {
    return "nan";
  }
  std::ostringstream text;
  text << std::scientific << std::setprecision(3) << value;
  return text.str();
}

void printLine(std::ostream& out, const std::string& title, const std::string& value) {
  out << std::left << std::setw(28) << title << std::right << value << "\n";
}

}  // namespace

double Report::bound() const { return 2 * rtol * std::max(normB, normR0); }

bool Report::converged() const {
  // Written so that NaN on either side does not pass.
  return finiteX && std::isfinite(bound()) && normR <= bound();
}

double Report::trueRelres() const {
  if (normB == 0) {
    return normR == 0 ? 0.0 : kNone;
  }
  return normR / normB;
}

std::string rankLine(const Report& report) {
  const auto words = [](const Extent& extent, const std::string& what) {
    return (extent.min == extent.max
                ? std::to_string(extent.min)
                : std::to_string(extent.min) + " to " + std::to_string(extent.max)) +
           " " + what;
  };
  return std::to_string(report.ranks) + " ranks of " + words(report.rowsPerRank, "rows") + " and " +
         words(report.entriesPerRank, "entries");
}

void printReport(const Report& report, std::ostream& out) {
  for (const Hierarchy& hierarchy : report.hierarchies) {
    printHierarchy(hierarchy, out);
    if (report.profile) printProfile(hierarchy, out);
  }
  const std::string unit = report.ranks > 1 ? " s on the slowest rank" : " s";
  out << "\n";
  printLine(out, "set-up time", scientific(report.setupTime) + unit);
  printLine(out, "solve time", scientific(report.solveTime) + unit);
  printLine(out, "iterations",
            report.iterations < 0 ? "not reported" : std::to_string(report.iterations));
  printLine(out, "|r|/|b| by the solver",
            std::isnan(report.reportedRelres) ? "not reported" : scientific(report.reportedRelres));
  printLine(out, "|b - A x|/|b| recomputed", scientific(report.trueRelres()));
  const std::string relation =
      scientific(report.normR) + (report.converged() ? " <= " : " > ") + scientific(report.bound());
  printLine(out, report.converged() ? "converged" : "NOT converged",
            "|b - A x| " + relation + " = 2 rtol max(|b|, |r0|)");
  if (!report.finiteX) {
    out << "x has entries that are not finite\n";
  }
  out.flush();
}

json toJson(const Report& report) {
  json line;
  line["status"] = report.status();
  line["converged"] = report.converged();
  line["testcase"] = report.testcase;
  line["solver"] = report.solver;
  line["device"] = report.device;
  line["ranks"] = report.ranks;
  line["matrix"] = report.matrix;
  line["rows_per_rank"] = {{"min", report.rowsPerRank.min}, {"max", report.rowsPerRank.max}};
  line["entries_per_rank"] = {{"min", report.entriesPerRank.min},
                              {"max", report.entriesPerRank.max}};
  line["operators"] = report.operators;
  if (!report.hierarchies.empty()) {
    line["hierarchies"] = json::array();
    for (const Hierarchy& hierarchy : report.hierarchies) {
      line["hierarchies"].push_back(toJson(hierarchy, report.profile));
    }
  }
  line["setup_time"] = report.setupTime;
  line["solve_time"] = report.solveTime;
  line["iterations"] = report.iterations < 0 ? json() : json(report.iterations);
  line["relres_reported"] = report.reportedRelres;
  line["relres_true"] = report.trueRelres();
  line["rtol"] = report.rtol;
  line["norm_b"] = report.normB;
  line["norm_r0"] = report.normR0;
  line["norm_r"] = report.normR;
  line["bound"] = report.bound();
  line["notes"] = report.notes;
  return line;
}

}  // namespace mivo_solve
