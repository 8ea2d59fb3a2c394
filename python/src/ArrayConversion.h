// numpy arrays to and from cv::Mat for the Python module. Inputs: uint8, uint16, float32 or
// float64 arrays in native byte order, 2-D (rows, columns) or, where a function takes colour,
// 3-D (rows, columns, 1 to 4 channels); anything else is a TypeError. Outputs own their memory.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace ombrix_python {

namespace py = pybind11;

// Whether an input may carry a trailing channel axis.
enum class Channels { kOne, kUpToFour };

// An image the core can read: a header on the caller's buffer when OpenCV can address it as it is
// (rows of contiguous pixels, positive aligned steps), else on one C-contiguous copy. owner keeps
// that buffer alive for as long as the header is used. An array with a zero-length axis gives an
// empty cv::Mat, which the core judges like any other empty image.
struct InputImage {
  py::object owner;
  cv::Mat mat;
};

// name is the argument's name in error messages.
InputImage ReadImage(const py::handle& object, const std::string& name, Channels channels);

// None gives an empty image.
InputImage ReadOptionalImage(const py::handle& object, const std::string& name, Channels channels);

// Frames of a series: a 3-D array (frame, row, column), each frame a header on its plane, or a
// sequence of 2-D arrays.
struct InputFrames {
  std::vector<py::object> owners;
  std::vector<cv::Mat> frames;
};
InputFrames ReadFrames(const py::handle& object, const std::string& name);

// A new array on the matrix's pixels (rows, columns[, channels]): the matrix's own buffer moves
// into the array when OpenCV allocated it, otherwise (a header on memory the core does not own,
// e.g. an input handed back) the pixels are copied first.
py::array ToArray(cv::Mat mat);

// Always a copy, for images whose buffer someone else may write later (a plug-in's buffers).
py::array CopyToArray(const cv::Mat& mat);

// An 8-bit map of 0 and non-zero values as a boolean array.
py::array ToBoolArray(const cv::Mat& map);

}  // namespace ombrix_python
