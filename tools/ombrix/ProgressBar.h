// Progress of work over several files, drawn on standard error only when standard error is a
// terminal and the user did not ask for --quiet; otherwise it prints nothing at all. Safe to
// advance from several threads.
#pragma once

#include <mutex>
#include <string>

namespace ombrix_tool {

class ProgressBar {
 public:
  // total: the number of steps (files or passes over files); label: what is being done.
  ProgressBar(int total, const std::string& label, bool quiet);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // One step done.
  void Advance();
  bool Enabled() const { return enabled_; }

  // Whether standard error is a terminal.
  static bool StandardErrorIsTerminal();

 private:
  void Draw();

  std::mutex mutex_;
  int total_;
  int done_ = 0;
  std::string label_;
  bool enabled_;
};

}  // namespace ombrix_tool
