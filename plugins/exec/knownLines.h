// What ostrelCtl doctor looks for in the log: the name and the texts of exec and its runner.
#pragma once

namespace exec {

constexpr char moduleName[] = "exec";

namespace knownLine {

constexpr char ofRule[] = "ostrelExecRunner: rule ";  // begins the runner's lines: NAME: TEXT
constexpr char succeededAgain[] = "succeeded again";
constexpr char restLeftOut[] = "the rest is left out";
// All that a runner that has ended knew of failures is of no account then.
constexpr char allRulesDue[] = "all rules are due";

}  // namespace knownLine
}  // namespace exec
