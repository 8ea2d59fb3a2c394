#include "ResultsDocument.h"

#include <cmath>
#include <sstream>

#include "Sha256.h"

#ifndef OMBRIX_VERSION
#error "OMBRIX_VERSION must be defined by the build"
#endif

namespace ombrix_tool {

namespace {

// JSON has no NaN or infinity; a value that is not finite is one that could not be measured.
double Finite(double value) { return std::isfinite(value) ? value : -1.0; }

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\n\r") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::string CsvNumber(double value) {
  std::ostringstream out;
  out.precision(17);
  out << Finite(value);
  return out.str();
}

}  // namespace

ResultsDocument::ResultsDocument(const std::string& command,
                                 const std::vector<std::string>& commandLine)
    : command_(command), commandLine_(commandLine) {}

void ResultsDocument::AddInput(const std::string& path) {
  inputs_.push_back({{"path", path}, {"sha256", Sha256OfFile(path)}});
}

void ResultsDocument::AddInput(const std::string& path, const std::string& sha256) {
  inputs_.push_back({{"path", path}, {"sha256", sha256}});
}

void ResultsDocument::AddFigure(const Figure& figure) { figures_.push_back(figure); }

void ResultsDocument::AddFigure(const std::string& input, const std::string& subject,
                                const std::string& name, double value, const std::string& unit) {
  Figure figure;
  figure.input = input;
  figure.subject = subject;
  figure.name = name;
  figure.value = value;
  figure.unit = unit;
  figures_.push_back(figure);
}

void ResultsDocument::AddOutput(const std::string& fileName, const std::string& description) {
  outputs_.push_back({{"file", fileName}, {"content", description}});
}

void ResultsDocument::SetSetting(const std::string& name, const nlohmann::ordered_json& value) {
  settings_[name] = value;
}

nlohmann::ordered_json ResultsDocument::Json() const {
  nlohmann::ordered_json figures = nlohmann::ordered_json::array();
  for (const Figure& f : figures_) {
    nlohmann::ordered_json item = {{"input", f.input},
                                   {"subject", f.subject},
                                   {"name", f.name},
                                   {"value", Finite(f.value)},
                                   {"unit", f.unit}};
    if (f.hasInterval) {
      item["interval95"] = {{"lower", Finite(f.lower)}, {"upper", Finite(f.upper)}};
    }
    figures.push_back(item);
  }
  std::string joined;
  for (const std::string& argument : commandLine_) {
    if (!joined.empty()) joined += ' ';
    joined += argument;
  }
  return {{"schema", "ombrix-results"},
          {"schemaVersion", kSchemaVersion},
          {"tool", {{"name", "ombrix"}, {"version", OMBRIX_VERSION}}},
          {"command", command_},
          {"commandLine", joined},
          {"arguments", commandLine_},
          {"settings", settings_},
          {"inputs", inputs_},
          {"figures", figures},
          {"outputs", outputs_}};
}

std::string ResultsDocument::Csv() const {
  std::string csv = "input,subject,figure,value,unit,lower,upper\n";
  for (const Figure& f : figures_) {
    csv += CsvField(f.input) + ',' + CsvField(f.subject) + ',' + CsvField(f.name) + ',' +
           CsvNumber(f.value) + ',' + CsvField(f.unit) + ',';
    if (f.hasInterval)
      csv += CsvNumber(f.lower) + ',' + CsvNumber(f.upper);
    else
      csv += ',';
    csv += '\n';
  }
  return csv;
}

}  // namespace ombrix_tool
