// The machine-readable results of one run: results.json (schema results.schema.json, versioned by
// "schemaVersion") and results.csv, one row per figure. Holds the tool version, the command line,
// every input with its SHA-256, every figure with its unit, and the files written.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ombrix_tool {

// One measured value. subject says what it belongs to ("target 2 left", "whole frame", "object
// 7"); lower and upper bound its 95 % interval when hasInterval. A value that could not be
// measured is -1.
struct Figure {
  std::string input;
  std::string subject;
  std::string name;
  double value = -1.0;
  std::string unit;
  bool hasInterval = false;
  double lower = -1.0;
  double upper = -1.0;
};

class ResultsDocument {
 public:
  static constexpr int kSchemaVersion = 1;

  ResultsDocument(const std::string& command, const std::vector<std::string>& commandLine);

  // Records an input with its SHA-256 (read from the file).
  void AddInput(const std::string& path);
  // Records an input whose SHA-256 is already known (computed from the bytes the run decoded).
  void AddInput(const std::string& path, const std::string& sha256);
  void AddFigure(const Figure& figure);
  void AddFigure(const std::string& input, const std::string& subject, const std::string& name,
                 double value, const std::string& unit);
  // Files written, relative to the output folder, with what they hold.
  void AddOutput(const std::string& fileName, const std::string& description);
  // Settings the run used (radius, threshold, gamma, ...), by name.
  void SetSetting(const std::string& name, const nlohmann::ordered_json& value);

  const std::vector<Figure>& Figures() const { return figures_; }

  nlohmann::ordered_json Json() const;
  // Header "input,subject,figure,value,unit,lower,upper"; empty lower/upper without an interval.
  std::string Csv() const;

 private:
  std::string command_;
  std::vector<std::string> commandLine_;
  nlohmann::ordered_json inputs_ = nlohmann::ordered_json::array();
  nlohmann::ordered_json outputs_ = nlohmann::ordered_json::array();
  nlohmann::ordered_json settings_ = nlohmann::ordered_json::object();
  std::vector<Figure> figures_;
};

}  // namespace ombrix_tool
