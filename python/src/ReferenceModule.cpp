// Test-only module _ombrix_reference: the oracles of tests/reference for the Python tests, so that
// they compare the bindings with the straightforward implementations, not with themselves. Accepts
// what the oracles accept (the disc median: 16-bit single-channel images).
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

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
}
