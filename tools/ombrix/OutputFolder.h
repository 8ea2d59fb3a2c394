// The folder a run writes its results to, and the only way the tool writes files: every file is
// written under a temporary name in the folder and renamed into place, so an interrupted run
// leaves no half file, and no output may land on one of the run's inputs.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace ombrix_tool {

class OutputFolder {
 public:
  // requested: the --out value, or empty for the default folder defaultName (made from the input
  // and the subcommand) in the working directory. An existing folder is refused unless force.
  // inputs: the files this run reads, which are never written. Throws ToolError (exit 2) naming
  // the folder when it exists without force, cannot be created or cannot be written.
  OutputFolder(const std::string& requested, const std::string& defaultName, bool force,
               const std::vector<std::string>& inputs);

  const std::string& Path() const { return path_; }

  // The path of a file in the folder.
  std::string File(const std::string& name) const;

  // Writes text or an image (format from the name's extension) through a temporary name.
  // Returns the final path. Throws ToolError (exit 2) naming the file on failure.
  std::string WriteText(const std::string& name, const std::string& text) const;
  std::string WriteImage(const std::string& name, const cv::Mat& image) const;

  // For writers that produce their own file (plots, report): a fresh temporary path beside the
  // final one with the same extension, and the rename into place.
  std::string TemporaryFor(const std::string& name) const;
  std::string Commit(const std::string& temporary, const std::string& name) const;

 private:
  void RefuseInput(const std::string& finalPath) const;

  std::string path_;
  std::vector<std::string> inputs_;
};

}  // namespace ombrix_tool
