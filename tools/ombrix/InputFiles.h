// The tool's inputs: image files read unchanged with the checks every subcommand needs, and the
// frame lists of the series commands (files, folders and glob patterns). Any file OpenCV's
// imread decodes; folders contribute their .tif, .tiff and .png files.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace ombrix_tool {

// Reads a file unchanged (cv::IMREAD_UNCHANGED). Throws ToolError (exit 2) naming the file when it
// does not exist, is a folder, or cannot be decoded.
cv::Mat ReadImage(const std::string& path);

// The same from the file's bytes read into `bytes`, whose capacity a caller reading many frames
// reuses from file to file; with sha256 non-null also the bytes' SHA-256 (lower-case hex), each
// chunk hashed right after it is read, while it is still in the cache.
cv::Mat ReadImageBuffered(const std::string& path, std::vector<char>& bytes, std::string* sha256);

// The checks of ReadImage that need no decoding (exists, is a file, a format OpenCV reads), so a
// run can refuse bad inputs before it creates its output folder.
void CheckImageFile(const std::string& path);

// Throws ToolError (exit 2) naming the file unless the image has one channel and one of the
// listed depths (CV_8U, CV_16U, ...).
void RequireSingleChannel(const cv::Mat& image, const std::string& path,
                          const std::vector<int>& depths);

// The frames named by the arguments, in order: a file as it is; a folder's image files in name
// order; a pattern holding * or ? expanded by cv::glob in name order. Throws ToolError (exit 2)
// when an argument names nothing or the list ends up empty.
std::vector<std::string> ExpandFrameArguments(const std::vector<std::string>& arguments);

// "8-bit unsigned", "16-bit signed", ... for messages and results.
std::string DepthName(int depth);

// File name without folder and extension ("a/b/Frame_01.tif" -> "Frame_01").
std::string FileStem(const std::string& path);

// The output-file stems of several inputs: each file's stem, a repeated stem (same name in two
// folders) followed by _2, _3, ... in input order, so no output overwrites another.
std::vector<std::string> OutputStems(const std::vector<std::string>& inputs);

// What an argument is called in a default output-folder name: a file's stem, a folder's name
// ("a/DarkChamber/" -> "DarkChamber"), a pattern's folder ("a/TN/*.tif" -> "TN").
std::string InputName(const std::string& argument);

}  // namespace ombrix_tool
