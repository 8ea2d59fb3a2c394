// How the tool tests launch the ombrix executable: a fresh scratch folder per test, the command
// run with its standard output and error captured, and its results.json read back. Linux and other
// POSIX shells only (the tests run where ctest runs the tool).
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "report/WrittenFiles.h"

namespace tooltest {

namespace fs = std::filesystem;

struct Outcome {
  int exitCode = -1;
  std::string out;
  std::string err;
};

inline std::string DataFile(const std::string& name) { return OMBRIX_TEST_DATA_DIR + name; }

using ombrix_tool_test::ReadText;

inline std::string Quote(const std::string& argument) {
  std::string quoted = "'";
  for (char c : argument) {
    if (c == '\'')
      quoted += "'\\''";
    else
      quoted += c;
  }
  return quoted + "'";
}

// A scratch folder of its own, emptied first; the test's name keeps parallel ctest runs apart.
inline fs::path Scratch(const std::string& name) {
  const fs::path folder = fs::path(OMBRIX_TOOL_SCRATCH_DIR) / name;
  fs::remove_all(folder);
  fs::create_directories(folder);
  return folder;
}

// Runs ombrix with the arguments in the working directory cwd; standard input is empty, standard
// output and error go to files (so never a terminal). environment: assignments put before the
// command ("NAME=value ..."), evaluated by the shell.
inline Outcome RunTool(const std::vector<std::string>& arguments, const fs::path& cwd,
                       const std::string& environment = "") {
  const fs::path outFile = cwd / ".stdout.txt";
  const fs::path errFile = cwd / ".stderr.txt";
  std::string command =
      "cd " + Quote(cwd.string()) + " && " + environment + " " + Quote(OMBRIX_TOOL_EXE);
  for (const std::string& argument : arguments) command += " " + Quote(argument);
  command += " </dev/null >" + Quote(outFile.string()) + " 2>" + Quote(errFile.string());
  const int status = std::system(command.c_str());
  Outcome outcome;
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.out = ReadText(outFile.string());
  outcome.err = ReadText(errFile.string());
  fs::remove(outFile);
  fs::remove(errFile);
  return outcome;
}

inline nlohmann::json ReadJson(const fs::path& path) {
  return nlohmann::json::parse(ReadText(path.string()));
}

// The figures of results.json whose subject and name match (and unit, when given).
inline std::vector<nlohmann::json> Figures(const nlohmann::json& results,
                                           const std::string& subject, const std::string& name,
                                           const std::string& unit = "") {
  std::vector<nlohmann::json> found;
  for (const nlohmann::json& figure : results.at("figures")) {
    if (figure.at("subject") == subject && figure.at("name") == name &&
        (unit.empty() || figure.at("unit") == unit)) {
      found.push_back(figure);
    }
  }
  return found;
}

// The one figure that matches; value -1e300 when there is none or more than one.
inline nlohmann::json Figure(const nlohmann::json& results, const std::string& subject,
                             const std::string& name, const std::string& unit = "") {
  const std::vector<nlohmann::json> found = Figures(results, subject, name, unit);
  if (found.size() != 1) return nlohmann::json{{"value", -1e300}};
  return found.front();
}

inline int CountLines(const std::string& text) {
  int lines = 0;
  for (char c : text) lines += c == '\n';
  return lines;
}

}  // namespace tooltest
