// What every subcommand shares: the common options (--out, --force, --json, --quiet), the output
// folder, the results document, the summary printed on standard output, and the end of a run
// (results.json, results.csv, the JSON on standard output with --json).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OutputFolder.h"
#include "ResultsDocument.h"

namespace ombrix_tool {

struct CommonOptions {
  std::string out;
  bool force = false;
  bool json = false;
  bool quiet = false;
  // argv as given, for the record.
  std::vector<std::string> commandLine;
};

class RunContext {
 public:
  RunContext(const std::string& command, const CommonOptions& options);

  // Records the inputs (with their SHA-256) and creates the output folder, named after the first
  // input and the command unless --out was given. Call once the options are checked.
  // nameSource: the argument the default folder is named after (empty: the first input).
  void Begin(const std::vector<std::string>& inputs, const std::string& nameSource = "");
  // The same without hashing: the caller records the inputs itself (AddInput with the digest).
  void BeginUnhashed(const std::vector<std::string>& inputs, const std::string& nameSource = "");

  const CommonOptions& Options() const { return options_; }
  OutputFolder& Folder() { return *folder_; }
  const OutputFolder& Folder() const { return *folder_; }
  ResultsDocument& Document() { return document_; }

  // A summary line for the user: standard output, unless --json (which prints the JSON instead)
  // or --quiet.
  void Say(const std::string& line) const;

  // Writes results.json and results.csv; prints the JSON with --json.
  void Finish();

 private:
  std::string command_;
  CommonOptions options_;
  ResultsDocument document_;
  std::unique_ptr<OutputFolder> folder_;
};

// "%.4f"-style formatting for summaries; "n/a" for a value that could not be measured (-1).
std::string Fixed(double value, int decimals);

}  // namespace ombrix_tool
