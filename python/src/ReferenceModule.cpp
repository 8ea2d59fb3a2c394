// Test-only module _ombrix_reference: the oracles of tests/reference for the Python tests, so that
// they compare the bindings with the straightforward implementations, not with themselves. Accepts
// what the oracles accept (the disc median: 16-bit single-channel images); read_image reads the
// test data with OpenCV's cv::imread, unchanged.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <opencv2/imgcodecs.hpp>
#include <string>

#include "ArrayConversion.h"
#include "DiscMedianReference.h"

namespace py = pybind11;

PYBIND11_MODULE(_ombrix_reference, m) {
  m.doc() = "Straightforward reference implementations for the tests of ombrix.";
  m.def(
      "disc_median",
      [](const py::object& image, int radius) {
        const ombrix_python::InputImage src =
            ombrix_python::ReadImage(image, "image", ombrix_python::Channels::kOne);
        cv::Mat dst;
        {
          py::gil_scoped_release release;
          dst = oracle::DiscMedian(src.mat, radius);
        }
        return ombrix_python::ToArray(std::move(dst));
      },
      py::arg("image"), py::arg("radius"));
  m.def(
      "read_image",
      [](const std::string& path) {
        cv::Mat image = cv::imread(path, cv::IMREAD_UNCHANGED);
        if (image.empty()) throw py::value_error("cannot read " + path);
        return ombrix_python::ToArray(std::move(image));
      },
      py::arg("path"));
}
