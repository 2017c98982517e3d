// SPDX-License-Identifier: Apache-2.0
/// Every input here must end in status 1 with a message that names the fault: no crash, no hang, no
/// answer.

#include <gmock/gmock.h>

#include "driver_process.hpp"

namespace driver_test {
namespace {

using ::testing::HasSubstr;

/// A fault of the configuration file or the command line.
struct BadConfiguration {
  const char* name;
  std::string text;
  std::vector<std::string> arguments;
  const char* fragment;
};

std::ostream& operator<<(std::ostream& out, const BadConfiguration& bad) { return out << bad.name; }

class BadConfigurationTest : public ::testing::TestWithParam<BadConfiguration> {};

TEST_P(BadConfigurationTest, EndsWithStatusOneAndSaysWhatIsWrong) {
  const BadConfiguration& bad = GetParam();
  const Folder folder;
  folder.write("c.json", bad.text);
  std::filesystem::create_directory(folder.path() / "folder");
  std::vector<std::string> arguments = {"c.json"};
  arguments.insert(arguments.end(), bad.arguments.begin(), bad.arguments.end());
  const Outcome outcome = folder.run(arguments, 30);
  EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr(bad.fragment));
  EXPECT_THAT(outcome.err, HasSubstr("mivo-solve: "));
  EXPECT_EQ(outcome.err.find('\x1b'), std::string::npos) << "steers the terminal";
}

std::string withPoisson(const char* params) {
  return std::string(R"({"testcase": {"testcase_type": "PoissonFDM", "PoissonFDM_params": )") +
         params + R"(}, "solver": {"solver_type": "SolverPCG"}})";
}

std::string withSolver(const char* solver) {
  return std::string(R"({"testcase": {"testcase_type": "PoissonFDM"}, "solver": )") + solver + "}";
}

std::string withPcg(const char* params) {
  return withSolver(
      (std::string(R"({"solver_type": "SolverPCG", "SolverPCG_params": )") + params + "}").c_str());
}

const std::string kGood = withPcg("{}");

const std::vector<BadConfiguration>& badConfigurations() {
  static const std::vector<BadConfiguration> cases = {
      // The text is no JSON, or no configuration.
      {"EmptyFile", "", {}, "c.json: configuration file is empty"},
      {"OnlyBlanks", " \n\t\n", {}, "configuration file is empty"},
      {"Binary",
       std::string("\x7f\x45\x4c\x46\x00\x01", 6),
       {},
       "line 1, column 1: not valid JSON"},
      {"MissingComma", "{\n  \"testcase\": {}\n  \"solver\": {}\n}", {}, "line 3, column"},
      {"TrailingComma", "{\"testcase\": {},}", {}, "line 1, column 17: not valid JSON"},
      {"CutOff", "{\"testcase\": {\"testcase_type\": ", {}, "unexpected end of input"},
      {"NaNInJson", withPcg("{\"rtol\": NaN}"), {}, "not valid JSON"},
      {"NumberTooLarge", withPcg("{\"rtol\": 1e999}"), {}, "number overflow"},
      {"InvalidUtf8", "{\"a\xff\": 1}", {}, "not valid JSON"},
      {"DuplicateKey",
       "{\"testcase\": {},\n\"solver\": {},\n\"solver\": {}}",
       {},
       "line 3, column 1: the key \"solver\" stands twice in one object (/solver)"},
      {"DuplicateDeepKey",
       withPcg("{\"rtol\": 1e-8, \"preconditioner\": {\"tagName\": \"a\", \"tagName\": \"b\"}}"),
       {},
       "(/solver/SolverPCG_params/preconditioner/tagName)"},
      {"DeepNesting", std::string(200000, '['), {}, "nested more than"},
      {"Array", "[]", {}, "must be an object"},
      {"EmptyObject", "{}", {}, "the key \"testcase\" is missing"},
      // Keys and names.
      {"TypoInTopKey",
       "{\"testcase\": {\"testcase_type\": \"PoissonFDM\"}, \"solvr\": {}}",
       {},
       "/solvr: the key \"solvr\" is not known; did you mean \"solver\"?"},
      {"TypoInKey",
       withPcg("{\"rtoll\": 1e-6}"),
       {},
       "/solver/SolverPCG_params/rtoll: the key \"rtoll\" is not known; did you mean \"rtol\"?"},
      {"TypoInDeepKey",
       withPcg("{\"preconditioner\": {\"preconditioner_type\": \"PrecondSOR\", "
               "\"PrecondSOR_params\": {\"relaxx\": 1}}}"),
       {},
       "/solver/SolverPCG_params/preconditioner/PrecondSOR_params/relaxx"},
      {"TypoInSolver",
       withSolver("{\"solver_type\": \"SolvrPCG\"}"),
       {},
       "did you mean \"SolverPCG\"?"},
      {"ShortSolverName",
       withSolver("{\"solver_type\": \"PCG\"}"),
       {},
       "did you mean \"SolverPCG\"?"},
      {"TypoInPreconditioner",
       withPcg("{\"preconditioner\": {\"preconditioner_type\": \"PrecondJacoby\"}}"),
       {},
       "did you mean \"PrecondJacobi\"?"},
      {"TypoInTestcase",
       "{\"testcase\": {\"testcase_type\": \"poissonfdm\"}, \"solver\": {\"solver_type\": "
       "\"SolverPCG\"}}",
       {},
       "did you mean \"PoissonFDM\"?"},
      {"TypoInParams",
       withSolver("{\"solver_type\": \"SolverPCG\", \"SolverPGC_params\": {}}"),
       {},
       "did you mean \"SolverPCG_params\"?"},
      {"KeysForAList",
       withSolver("{\"solver_type\": \"SolverList\", \"SolverList_params\": {\"rtol\": 1e-6}}"),
       {},
       "/solver/SolverList_params: expected an array, found an object"},
      {"TypoInAList",
       withSolver("{\"solver_type\": \"SolverList\", \"SolverList_params\": "
                  "[{\"solver_type\": \"SolverPCG\"}, {\"solver_type\": \"PCG\"}]}"),
       {},
       "/solver/SolverList_params/1/solver_type: the value \"PCG\" is not known"},
      {"UnrelatedName", withSolver("{\"solver_type\": \"x\"}"), {}, "allowed: \"SolverPCG\""},
      {"NoSolverType", withSolver("{}"), {}, "the key \"solver_type\" is missing"},
      {"UnfinishedSolver",
       withSolver("{\"solver_type\": \"SolverLGMRES\"}"),
       {},
       "SolverLGMRES cannot be used"},
      {"KeyTheSolverDoesNotRead",
       withSolver("{\"solver_type\": \"SolverJacobi\", \"SolverJacobi_params\": {\"rtol\": 1e-6}}"),
       {},
       "/solver/SolverJacobi_params/rtol: the key \"rtol\" is not known"},
      {"MultigridWithoutParameters",
       withPcg("{\"preconditioner\": {\"preconditioner_type\": \"PrecondAMG\"}}"),
       {},
       "/solver/SolverPCG_params/preconditioner/PrecondAMG_params: the key \"level_transfer\" is "
       "missing"},
      {"MultigridWithoutASmoother",
       withSolver("{\"solver_type\": \"SolverAMG\", \"SolverAMG_params\": {\"level_transfer\": "
                  "{\"level_transfer_type\": \"LevelTransferRugeStuben\"}, \"pre_smoother\": "
                  "{\"smoother_type\": \"SmootherSOR\"}}}"),
       {"--check"},
       "/solver/SolverAMG_params: the key \"post_smoother\" is missing"},
      {"KeyThatSteersTheTerminal",
       "{\"a\\u001b[31m\\n\": 1}",
       {},
       "/a\\x1b[31m\\x0a: the key \"a\\x1b[31m\\x0a\" is not known"},
      {"LineThatSteersTheTerminal", "{\"\x1b[31m\": 1}", {}, "    {\"?[31m\": 1}"},
      {"MissingFileName",
       "{\"testcase\": {\"testcase_type\": \"MatrixMarket\"}, \"solver\": {\"solver_type\": "
       "\"SolverPCG\"}}",
       {},
       "the key \"filename_A\" is missing"},
      // Types and ranges.
      {"TextForNumber",
       withPcg("{\"rtol\": \"1e-8\"}"),
       {},
       "/solver/SolverPCG_params/rtol: expected a number, found a text"},
      {"NumberForObject", withSolver("7"), {}, "/solver: expected an object, found an integer: 7"},
      {"NumberForName",
       withSolver("{\"solver_type\": 3}"),
       {},
       "expected a text, found an integer 3"},
      {"FractionForInteger", withPcg("{\"max_its\": 10.5}"), {}, "expected an integer"},
      {"HugeInteger", withPcg("{\"max_its\": 99999999999}"), {}, "is out of range"},
      {"NegativeIterations", withPcg("{\"max_its\": -1}"), {}, "must be at least 0"},
      {"NumberForTruth",
       withSolver("{\"solver_type\": \"SolverSOR\", \"SolverSOR_params\": {\"forward\": 1}}"),
       {},
       "expected true or false"},
      {"NullParams", withPcg("null"), {}, "expected an object, found null"},
      {"NegativeTolerance", withPcg("{\"rtol\": -1e-8}"), {}, "must be at least 0 and below 1"},
      {"ToleranceThatAnyVectorMeets",
       withPcg("{\"rtol\": 1e10}"),
       {},
       "must be at least 0 and below 1"},
      {"NegativeGrid",
       withPoisson("{\"N\": -5}"),
       {},
       "/testcase/PoissonFDM_params/N: the value -5 is out of range"},
      {"EmptyGrid", withPoisson("{\"N\": 0}"), {}, "must be at least 1"},
      {"NoDimension", withPoisson("{\"dim\": 0}"), {}, "must be at least 1"},
      {"UnknownRhs", withPoisson("{\"rhs\": \"sin(pix)\"}"), {}, "did you mean \"sin(pi*x)\"?"},
      {"AbsurdGrid", withPoisson("{\"dim\": 3, \"N\": 100000}"), {}, "a rank can hold at most"},
      {"UnknownDevice", withPoisson("{\"device\": \"gpu:0\"}"), {}, "is not of the expected form"},
      {"MissingDevice",
       withPoisson("{\"device\": \"cpu:3\"}"),
       {},
       "/testcase/PoissonFDM_params/device: this build"},
      // The command line.
      {"UnknownOption", kGood, {"--jason"}, "--jason"},
      {"OverrideWithoutValue", kGood, {"--set", "solver"}, "expected path.to.key=value"},
      {"OverrideWithoutPath", kGood, {"--set", "=3"}, "expected path.to.key=value"},
      {"OverrideThroughNumber",
       withPcg("{\"rtol\": 1}"),
       {"--set", "solver.SolverPCG_params.rtol.x=3"},
       "has no key \"x\""},
      {"OverrideWithTypo",
       kGood,
       {"--set", "solver.SolverPCG_params.max_it=3"},
       "did you mean \"max_its\"?"},
      {"OverrideWithText",
       kGood,
       {"--set", "solver.SolverPCG_params.rtol=small"},
       "expected a number"},
      {"OverrideWithBadJson", kGood, {"--set", "solver={\"solver_type\": }"}, "--set solver="},
      {"OverrideWithDuplicate", kGood, {"--set", "solver={\"a\": 1, \"a\": 2}"}, "stands twice"},
      {"DeviceOption",
       kGood,
       {"--device", "cuda:7"},
       "--device: this build of mivo has no device \"cuda:7\""},
      {"DeviceOptionOfNoForm", kGood, {"--device", "banana"}, "--device: "},
      {"StartOption", kGood, {"--start", "random"}, "--start"},
      {"HistoryInMissingFolder", kGood, {"--history", "nowhere/h.csv"}, "does not exist"},
      {"SolutionIsFolder", kGood, {"--solution", "folder"}, "is a directory"},
      {"OneFileForTwo", kGood, {"--solution", "x", "--history", "folder/../x"}, "the same file"},
      {"ConfigurationAsSolution", kGood, {"--solution", "./c.json"}, "would overwrite the input"},
      {"OptionThatSteersTheTerminal", kGood, {"--x\x1b\xc2\x9b"}, "--x\\x1b\\xc2\\x9b"},
  };
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, BadConfigurationTest, ::testing::ValuesIn(badConfigurations()),
                         [](const auto& bad) { return std::string(bad.param.name); });

TEST(BadConfigurationFile, MissingOrNoFile) {
  const Folder folder;
  for (const auto& [argument, fragment] : std::vector<std::pair<std::string, std::string>>{
           {"missing.json", "missing.json: configuration file not found"},
           {".", "is a directory"},
           {"/dev/zero", "is no regular file"}}) {
    const Outcome outcome = folder.run({argument});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(fragment));
  }
  EXPECT_EQ(folder.run({}).status, 1);
}

/// A fault of the files of the system. The other file and the configuration are sound.
struct BadFile {
  const char* name;
  const char* file;  ///< "A.mtx" or "b.mtx"
  std::string text;
  const char* fragment;
};

std::ostream& operator<<(std::ostream& out, const BadFile& bad) { return out << bad.name; }

class BadFileTest : public ::testing::TestWithParam<BadFile> {};

const char* const kMatrix = "%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 2\n2 2 4\n";
const char* const kVector = "%%MatrixMarket matrix array real general\n2 1\n1\n1\n";

TEST_P(BadFileTest, EndsWithStatusOneAndSaysWhatIsWrong) {
  const BadFile& bad = GetParam();
  const Folder folder;
  folder.write("c.json", fileConfiguration().dump());
  folder.write("A.mtx", kMatrix);
  folder.write("b.mtx", kVector);
  folder.write(bad.file, bad.text);
  const Outcome outcome = folder.run({"c.json", "--json"}, 30);
  EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr(bad.fragment));
  const json report = reportOf(outcome);
  EXPECT_EQ(report.value("status", 0), 1);
  EXPECT_THAT(report.value("error", ""), HasSubstr(bad.fragment));
}

std::string general(const std::string& rest) {
  return "%%MatrixMarket matrix coordinate real general\n" + rest;
}
std::string array(const std::string& rest) {
  return "%%MatrixMarket matrix array real general\n" + rest;
}

std::string withCarriageReturns(const std::string& text) {
  std::string out;
  for (char c : text) {
    out += c == '\n' ? "\r\n" : std::string(1, c);
  }
  return out;
}

const std::vector<BadFile>& badFiles() {
  static const std::vector<BadFile> cases = {
      {"Empty", "A.mtx", "", "the file is empty"},
      {"NoHeader", "A.mtx", "2 2 2\n1 1 2\n2 2 4\n", "expected a header"},
      {"HeaderOnly", "A.mtx", general(""), "the size line is missing"},
      {"Binary", "A.mtx", std::string(4096, '\0'), "expected a header"},
      {"NoLineEnd", "A.mtx", std::string(3 << 20, 'x'), "longer than"},
      {"Compressed", "A.mtx", "\x1f\x8b\x08 etc\n", "compressed"},
      {"DenseHeader", "A.mtx", kVector, "where filename_A needs \"coordinate\""},
      {"SparseHeader", "b.mtx", kMatrix, "where a vector needs \"array\""},
      {"PatternWithASign", "A.mtx",
       "%%MatrixMarket matrix coordinate pattern skew-symmetric\n2 2 1\n2 1\n", "have no sign"},
      {"PatternWithAValue", "A.mtx",
       "%%MatrixMarket matrix coordinate pattern general\n2 2 1\n1 1 3\n", "one entry a line"},
      {"SkewDiagonal", "A.mtx",
       "%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 2\n2 1 1\n2 2 1\n",
       "line 4: the diagonal of a skew-symmetric matrix is 0"},
      {"HermitianDiagonal", "A.mtx",
       "%%MatrixMarket matrix coordinate complex hermitian\n2 2 1\n1 1 1 2\n",
       "line 3: the diagonal of a Hermitian matrix is real"},
      {"PatternVector", "b.mtx", "%%MatrixMarket matrix array pattern general\n2 1\n1\n1\n",
       "the field \"pattern\" cannot be read"},
      {"CommentLikeHeader", "A.mtx",
       general("% MatrixMarket made to be symmetric\n2 2 2\n1 1 2\n2 2 4\n"), "reword"},
      {"SymmetricVector", "b.mtx", "%%MatrixMarket matrix array real symmetric\n1 1\n1\n",
       "symmetry \"symmetric\""},
      {"CarriageReturns", "A.mtx", withCarriageReturns(kMatrix), "CR LF"},
      {"CarriageReturnsInVector", "b.mtx", withCarriageReturns(kVector), "CR LF"},
      {"ShortSizeLine", "A.mtx", general("2 2\n1 1 2\n"), "expected the size line"},
      {"LettersInSizeLine", "A.mtx", general("two 2 2\n1 1 2\n"),
       "line 2: expected the number of rows"},
      {"NegativeRows", "A.mtx", general("-2 -2 2\n1 1 2\n2 2 4\n"), "the number of rows is -2"},
      {"NegativeEntries", "A.mtx", general("2 2 -2\n1 1 2\n2 2 4\n"),
       "the number of entries is -2"},
      {"ZeroRows", "A.mtx", general("0 0 0\n"), "must be at least 1"},
      {"NotSquare", "A.mtx", general("2 3 2\n1 1 2\n2 2 4\n"), "2 rows and 3 columns"},
      {"TooManyRows", "A.mtx", general("99999999999 99999999999 2\n1 1 2\n2 2 4\n"),
       "at most 2147483647"},
      {"AbsurdEntries", "A.mtx", general("2 2 2000000000\n1 1 2\n2 2 4\n"), "has only"},
      {"SizeBeyondIntegers", "A.mtx", general("2 2 99999999999999999999999\n1 1 2\n"),
       "absurdly large"},
      {"Truncated", "A.mtx", general("2 2 3\n1 1 2\n2 2 4\n"), "ends after 2 of 3 entries"},
      {"TruncatedEntry", "A.mtx", general("2 2 2\n1 1 2\n2 2"), "line 4: the value is missing"},
      {"TooManyEntries", "A.mtx", general("2 2 2\n1 1 2\n2 2 4\n1 2 3\n"),
       "line 5: more entries than the 2"},
      {"RowOutOfRange", "A.mtx", general("2 2 2\n1 1 2\n3 2 4\n"),
       "line 4: the row index 3 is outside 1 to 2"},
      {"ColumnOutOfRange", "A.mtx", general("2 2 2\n1 1 2\n2 7 4\n"),
       "the column index 7 is outside 1 to 2"},
      {"ZeroBasedIndices", "A.mtx", general("2 2 2\n0 0 2\n1 1 4\n"),
       "the row index 0 is outside 1 to 2"},
      {"LettersForIndex", "A.mtx", general("2 2 2\na 1 2\n2 2 4\n"), "expected a row index"},
      {"FractionForIndex", "A.mtx", general("2 2 2\n1.0 1 2\n2 2 4\n"), "expected a row index"},
      {"LettersForValue", "A.mtx", general("2 2 2\n1 1 two\n2 2 4\n"),
       "line 3: expected the value, a number"},
      {"FortranExponent", "A.mtx", general("2 2 2\n1 1 2.0d+00\n2 2 4\n"), "with the letter e"},
      {"NaN", "A.mtx", general("2 2 2\n1 1 NaN\n2 2 4\n"), "is not a finite number"},
      {"Infinity", "A.mtx", general("2 2 2\n1 1 inf\n2 2 4\n"), "is not a finite number"},
      {"Overflow", "A.mtx", general("2 2 2\n1 1 1e999\n2 2 4\n"), "does not fit a double"},
      {"LateComment", "A.mtx", general("2 2 2\n1 1 2\n% half\n2 2 4\n"),
       "comments must stand before"},
      {"RepeatedEntry", "A.mtx", general("2 2 3\n1 1 2\n2 2 4\n1 1 5\n"),
       "line 5: the entry of row 1 and column 1 stands twice"},
      {"BothHalves", "A.mtx",
       "%%MatrixMarket matrix coordinate real symmetric\n2 2 4\n1 1 2\n2 2 4\n2 1 1\n1 2 1\n",
       "line 6: the entry of row 2 and column 1 stands twice (a symmetric file holds one half "
       "only"},
      {"BothHalvesOfAPattern", "A.mtx",
       "%%MatrixMarket matrix coordinate pattern symmetric\n2 2 3\n1 1\n2 1\n1 2\n",
       "line 5: the entry of row 2 and column 1 stands twice (a symmetric file holds one half "
       "only"},
      {"ComplexAsReal", "A.mtx",
       "%%MatrixMarket matrix coordinate complex general\n2 2 2\n1 1 2 0\n2 2 4 0\n",
       "the values are real, but"},
      {"LooseComplex", "A.mtx",
       "%%MatrixMarket matrix coordinate complex general\n2 2 2\n1 1 2+j1\n2 2 4+j1\n",
       "expected the real part"},
      {"VectorOfOtherLength", "b.mtx", array("3 1\n1\n1\n1\n"),
       "the vector has 3 rows, but the matrix"},
      {"TwoColumns", "b.mtx", array("2 2\n1\n1\n1\n1\n"), "a vector has one"},
      {"EmptyLineInVector", "b.mtx", array("\n2 1\n1\n1\n"), "an empty line stands where"},
      {"IndentedSizeLineOfVector", "b.mtx", array(" 2 1\n1\n1\n"), "begins with a blank"},
      {"IndentedHeader", "A.mtx", std::string(" ") + kMatrix, "expected a header"},
      {"ShortVector", "b.mtx", array("2 1\n1\n"), "ends after 1 of 2 values"},
      {"LongVector", "b.mtx", array("2 1\n1\n1\n1\n"), "more values than the 2"},
      {"AbsurdVector", "b.mtx", array("2000000000 1\n1\n1\n"), "has only"},
      {"NaNInVector", "b.mtx", array("2 1\n1\nnan\n"), "is not a finite number"},
      {"VectorThatOverflowsNorms", "b.mtx", array("2 1\n1e200\n1\n"), "scale b"},
      {"VectorThatUnderflowsNorms", "b.mtx", array("2 1\n1e-200\n0\n"), "scale b"},
  };
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, BadFileTest, ::testing::ValuesIn(badFiles()),
                         [](const auto& bad) { return std::string(bad.param.name); });

TEST(BadFilePath, MissingOrNoFileOrOverwritten) {
  const Folder folder;
  folder.write("c.json", fileConfiguration().dump());
  folder.write("A.mtx", kMatrix);
  folder.write("b.mtx", kVector);
  const auto fails = [&](const std::vector<std::string>& arguments, const char* fragment) {
    const Outcome outcome = folder.run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(fragment));
  };
  const std::string params = "testcase.MatrixMarket_params.";
  fails({"c.json", "--set", params + "filename_A=none.mtx"},
        "none.mtx: filename_A: file not found");
  fails({"c.json", "--set", params + "filename_b=."}, "filename_b: is a directory");
  fails({"c.json", "--set", params + "filename_b=/dev/zero"}, "is no regular file");
  fails({"c.json", "--set", params + "filename_A=\"\""}, "must not be empty");
  fails({"c.json", "--solution", "./b.mtx"}, "would overwrite the input file");
  std::filesystem::create_hard_link(folder.path() / "b.mtx", folder.path() / "same");
  fails({"c.json", "--history", "same"}, "would overwrite the input file");
  fails({"c.json", "--start", "testcase"}, "needs filename_x");
  EXPECT_EQ(folder.read("b.mtx"), kVector);
}

}  // namespace
}  // namespace driver_test
