#include "RunContext.h"

#include <cmath>
#include <cstdio>
#include <iostream>

#include "InputFiles.h"

namespace ombrix_tool {

RunContext::RunContext(const std::string& command, const CommonOptions& options)
    : command_(command), options_(options), document_(command, options.commandLine) {}

void RunContext::Begin(const std::vector<std::string>& inputs, const std::string& nameSource) {
  for (const std::string& input : inputs) document_.AddInput(input);
  BeginUnhashed(inputs, nameSource);
}

void RunContext::BeginUnhashed(const std::vector<std::string>& inputs,
                               const std::string& nameSource) {
  const std::string source =
      !nameSource.empty() ? nameSource : (inputs.empty() ? std::string() : inputs.front());
  const std::string defaultName =
      (source.empty() ? std::string("ombrix") : InputName(source)) + "_" + command_;
  folder_ = std::make_unique<OutputFolder>(options_.out, defaultName, options_.force, inputs);
}

void RunContext::Say(const std::string& line) const {
  if (options_.json || options_.quiet) return;
  std::cout << line << '\n';
}

void RunContext::Finish() {
  document_.AddOutput("results.json", "this document");
  document_.AddOutput("results.csv", "every figure, one per row");
  const nlohmann::ordered_json json = document_.Json();
  folder_->WriteText("results.json", json.dump(2) + "\n");
  folder_->WriteText("results.csv", document_.Csv());
  if (options_.json)
    std::cout << json.dump(2) << std::endl;
  else
    std::cout.flush();
}

std::string Fixed(double value, int decimals) {
  if (!std::isfinite(value) || value == -1.0) return "n/a";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  return buffer;
}

}  // namespace ombrix_tool
