// The compiled part of the Python package ombrix: each function converts its arrays, releases the
// GIL, calls the core once and converts the result. Errors of the core (cv::Exception,
// std::invalid_argument and the other std::logic_error) reach Python as ValueError with the core's
// message; wrong array types are TypeError (ArrayConversion.h).
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "ArrayConversion.h"
#include "ProcessingPluginHandle.h"
#include "filters/FilterCosmicRay.h"
#include "filters/GaussianBlur.h"
#include "filters/Wavelet.h"
#include "mtf/MtfDrawing.h"
#include "mtf/MtfMeasurement.h"
#include "stack/TemporalNoiseStream.h"

namespace py = pybind11;
using ombrix_python::Channels;
using ombrix_python::InputImage;
using ombrix_python::ReadImage;
using ombrix_python::ReadOptionalImage;
using ombrix_python::ToArray;

namespace {

py::array Profile(const KProfile<double>& profile) {
  py::array_t<double> values(static_cast<py::ssize_t>(profile.Size()));
  std::copy(profile.values.begin(), profile.values.end(), values.mutable_data());
  return std::move(values);
}

// The figures of one measured edge as plain Python values; failed carries the "not available"
// value -1 in every figure.
py::dict EdgeFigures(const MtfResult* result, float slope) {
  py::dict figures;
  const bool measured = result != nullptr;
  const MtfResult empty;
  const MtfResult& r = measured ? *result : empty;
  figures["measured"] = measured;
  figures["frequencies"] = Profile(r.frequencies);
  figures["mtf"] = Profile(r.mtf);
  figures["esf"] = Profile(r.esf);
  figures["lsf"] = Profile(r.lsf);
  figures["mtf50"] = measured ? MtfCrossing(r, 0.5) : -1.0;
  figures["cut_frequency"] = measured ? static_cast<double>(r.cutFrequency) : -1.0;
  figures["efficiency"] = measured ? static_cast<double>(r.efficiency) : -1.0;
  figures["nyquist"] = measured ? static_cast<double>(r.nyquist) : -1.0;
  figures["fwhm"] = measured ? static_cast<double>(r.fwhm) : -1.0;
  figures["slope"] = measured ? static_cast<double>(slope) : -1.0;
  figures["angle_deg"] = measured ? CMtfMeasurement::TiltDegrees(slope) : -1.0;
  return figures;
}

// A chart's measurement kept whole, so that annotate_chart draws exactly what was measured.
struct ChartMeasurement {
  MtfTargetMap targets;
  int rows = 0;
  int cols = 0;
};

py::list TargetList(const ChartMeasurement& chart) {
  py::list targets;
  for (const auto& [number, target] : chart.targets) {
    py::dict item;
    item["number"] = number;
    item["center"] = py::make_tuple(target.box.center.x, target.box.center.y);
    item["size"] = py::make_tuple(target.box.size.width, target.box.size.height);
    item["angle"] = target.box.angle;
    py::list edges;
    for (const MtfEdge& edge : target.edges) {
      py::dict e = EdgeFigures(&edge.result, edge.slope);
      e["side"] = EdgeSideName(edge.side);
      e["region"] =
          py::make_tuple(edge.region.x, edge.region.y, edge.region.width, edge.region.height);
      edges.append(e);
    }
    item["edges"] = edges;
    targets.append(item);
  }
  return targets;
}

std::vector<double> DefaultWaveletKernel() { return {0.0625, 0.25, 0.375, 0.25, 0.0625}; }

// Parameters whose cost grows without bound while the result stops changing: the Gaussian kernel
// stops widening at 201 taps (sigma 22), but the core also forms a (2 sigma + 1)^2 binomial
// product on the way; the wavelet kernel doubles at each of its seven levels.
constexpr int kMaxSigma = 1000;
constexpr std::size_t kMaxWaveletTaps = 65;

void CheckSigma(int sigma) {
  if (sigma > kMaxSigma) {
    throw std::invalid_argument("sigma must be at most " + std::to_string(kMaxSigma));
  }
}

void CheckWaveletKernel(const std::vector<double>& kernel) {
  if (kernel.size() > kMaxWaveletTaps) {
    throw std::invalid_argument("the wavelet kernel may have at most " +
                                std::to_string(kMaxWaveletTaps) + " taps");
  }
}

scenarios::DarkFrames ReadDarks(const InputImage& longDark, const InputImage& shortDark,
                                const InputImage& badPixels) {
  return scenarios::DarkFrames{longDark.mat, shortDark.mat, badPixels.mat};
}

// The plug-in's measurements of a frame sequence: the dark-chamber count and the light-source
// factor, which take the same inputs.
using SequenceMeasure = float (ProcessingPluginHandle::*)(const scenarios::DarkFrames&,
                                                          const std::vector<cv::Mat>&);

// Adds the measurement as method name(long_dark, short_dark, frames, bad_pixels=None).
void DefSequenceMeasurement(py::class_<ProcessingPluginHandle>& handle, const char* name,
                            SequenceMeasure measure) {
  handle.def(
      name,
      [measure](ProcessingPluginHandle& self, const py::object& longDark,
                const py::object& shortDark, const py::object& frames,
                const py::object& badPixels) {
        const InputImage d150 = ReadImage(longDark, "long_dark", Channels::kOne);
        const InputImage d1 = ReadImage(shortDark, "short_dark", Channels::kOne);
        const InputImage bad = ReadOptionalImage(badPixels, "bad_pixels", Channels::kOne);
        const ombrix_python::InputFrames raw = ombrix_python::ReadFrames(frames, "frames");
        py::gil_scoped_release release;
        return (self.*measure)(ReadDarks(d150, d1, bad), raw.frames);
      },
      py::arg("long_dark"), py::arg("short_dark"), py::arg("frames"),
      py::arg("bad_pixels") = py::none());
}

AlgoParameters ParametersFrom(const py::dict& values) {
  AlgoParameters p = ValidationAlgoParameters(true);
  p.cosmicRayRadius = values["cosmic_ray_radius"].cast<std::int32_t>();
  p.cosmicRayThreshold = values["cosmic_ray_threshold"].cast<std::int32_t>();
  p.smoothingSigma = values["smoothing_sigma"].cast<std::int32_t>();
  p.maxObjectArea = values["max_object_area"].cast<std::uint16_t>();
  p.minObjectRadius = values["min_object_radius"].cast<std::int32_t>();
  p.thresholdFactor = values["threshold_factor"].cast<float>();
  p.minControlPeak = values["min_control_peak"].cast<std::int32_t>();
  p.marginAndCircularity = AlgoParameters::PackMarginAndCircularity(
      values["border_margin"].cast<std::uint16_t>(),
      values["min_circularity_percent"].cast<std::uint16_t>());
  p.nominalMode = values["nominal_mode"].cast<bool>();
  return p;
}

py::dict ParametersDict(const AlgoParameters& p) {
  py::dict values;
  values["cosmic_ray_radius"] = p.cosmicRayRadius;
  values["cosmic_ray_threshold"] = p.cosmicRayThreshold;
  values["smoothing_sigma"] = p.smoothingSigma;
  values["max_object_area"] = p.maxObjectArea;
  values["min_object_radius"] = p.minObjectRadius;
  values["threshold_factor"] = p.thresholdFactor;
  values["min_control_peak"] = p.minControlPeak;
  values["border_margin"] = p.BorderMargin();
  values["min_circularity_percent"] = p.MinCircularityPercent();
  values["nominal_mode"] = p.nominalMode;
  return values;
}

py::list ObjectList(const std::vector<DetectedObject>& objects) {
  py::list list;
  for (const DetectedObject& o : objects) {
    py::dict item;
    item["centroid"] = py::make_tuple(o.centroidX, o.centroidY);
    item["area"] = o.area;
    item["circularity"] = o.circularity;
    item["box"] = py::make_tuple(o.boxX, o.boxY, o.boxWidth, o.boxHeight);
    item["peak"] = o.peak;
    item["label"] = o.label;
    py::array_t<std::int32_t> contour({static_cast<py::ssize_t>(o.contour.size()), py::ssize_t{2}});
    auto view = contour.mutable_unchecked<2>();
    for (std::size_t i = 0; i < o.contour.size(); ++i) {
      view(static_cast<py::ssize_t>(i), 0) = o.contour[i].x;
      view(static_cast<py::ssize_t>(i), 1) = o.contour[i].y;
    }
    item["contour"] = contour;
    list.append(item);
  }
  return list;
}

}  // namespace

PYBIND11_MODULE(_ombrix, m) {
  m.doc() = "Compiled core of the ombrix package; use the functions of ombrix itself.";

  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error) std::rethrow_exception(error);
    } catch (const cv::Exception& e) {
      std::string message = e.err;
      if (!e.func.empty()) message += " (" + e.func + ")";
      PyErr_SetString(PyExc_ValueError, message.c_str());
    } catch (const std::logic_error& e) {
      // std::invalid_argument, and the stream's order errors, which only an empty series reaches
      // from here ("No frames were added").
      PyErr_SetString(PyExc_ValueError, e.what());
    }
  });

  m.def(
      "disc_median",
      [](const py::object& image, int radius) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        cv::Mat dst;
        {
          py::gil_scoped_release release;
          CFilterCosmicRay::MedianBlur(src.mat, dst, radius);
        }
        return ToArray(std::move(dst));
      },
      py::arg("image"), py::arg("radius"));

  // disc_median with the core's own time of the call, for the binding-overhead benchmark: the
  // caller's wall time of this same call minus the core's time is what the binding adds.
  m.def(
      "_disc_median_timed",
      [](const py::object& image, int radius) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        cv::Mat dst;
        double seconds = 0.0;
        {
          py::gil_scoped_release release;
          const auto start = std::chrono::steady_clock::now();
          CFilterCosmicRay::MedianBlur(src.mat, dst, radius);
          seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        }
        return py::make_tuple(ToArray(std::move(dst)), seconds);
      },
      py::arg("image"), py::arg("radius"));

  m.def(
      "remove_cosmic_rays",
      [](const py::object& image, int radius, int threshold, const py::object& mask) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        const InputImage selection = ReadOptionalImage(mask, "mask", Channels::kOne);
        cv::Mat dst;
        cv::Mat replaced;
        {
          py::gil_scoped_release release;
          CFilterCosmicRay(radius, threshold).Process(src.mat, dst, selection.mat, replaced);
        }
        return py::make_tuple(ToArray(std::move(dst)), ombrix_python::ToBoolArray(replaced));
      },
      py::arg("image"), py::arg("radius"), py::arg("threshold"), py::arg("mask") = py::none());

  m.def(
      "gaussian_blur",
      [](const py::object& image, int sigma, bool separable) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        CheckSigma(sigma);
        cv::Mat dst;
        {
          py::gil_scoped_release release;
          CGaussianBlur(sigma).Apply(src.mat, dst, separable);
        }
        return ToArray(std::move(dst));
      },
      py::arg("image"), py::arg("sigma"), py::arg("separable") = false);

  m.def("default_wavelet_kernel", &DefaultWaveletKernel);

  m.def(
      "wavelet_planes",
      [](const py::object& image, std::vector<double> kernel, const py::object& region) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        const InputImage area = ReadOptionalImage(region, "region", Channels::kOne);
        CheckWaveletKernel(kernel);
        CWavelet wavelet;
        wavelet.SetKernel(std::move(kernel));
        {
          py::gil_scoped_release release;
          wavelet.Decompose(src.mat, 0, area.mat);
        }
        py::list details;
        py::list smooths;
        for (const cv::Mat& plane : wavelet.Details()) details.append(ToArray(plane));
        for (const cv::Mat& plane : wavelet.Smooths()) smooths.append(ToArray(plane));
        return py::make_tuple(details, smooths);
      },
      py::arg("image"), py::arg("kernel"), py::arg("region") = py::none());

  m.def(
      "wavelet_structures",
      [](const py::object& image, float k, const py::object& mask, std::vector<double> kernel,
         float rejection, const py::object& region, const py::object& base) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        const InputImage selection = ReadOptionalImage(mask, "mask", Channels::kOne);
        const InputImage area = ReadOptionalImage(region, "region", Channels::kOne);
        const InputImage start = ReadOptionalImage(base, "base", Channels::kUpToFour);
        CheckWaveletKernel(kernel);
        CWavelet wavelet(std::move(kernel), rejection);
        cv::Mat out;
        {
          py::gil_scoped_release release;
          wavelet.Decompose(src.mat, 0, area.mat);
          // Without a mask every pixel counts.
          const cv::Mat all = selection.mat.empty() && !src.mat.empty()
                                  ? cv::Mat(src.mat.size(), CV_8U, cv::Scalar(1))
                                  : selection.mat;
          wavelet.ExtractStructures(out, 0, k, all, start.mat);
        }
        return ToArray(std::move(out));
      },
      py::arg("image"), py::arg("k"), py::arg("mask"), py::arg("kernel"), py::arg("rejection"),
      py::arg("region") = py::none(), py::arg("base") = py::none());

  m.def(
      "temporal_noise",
      [](const py::object& frames) {
        const ombrix_python::InputFrames series = ombrix_python::ReadFrames(frames, "frames");
        cv::Mat noise;
        {
          py::gil_scoped_release release;
          noise = CTemporalNoiseStream::StandardDeviationOf(series.frames);
        }
        return ToArray(std::move(noise));
      },
      py::arg("frames"));

  m.def(
      "measure_edge",
      [](const py::object& image, py::object roi, float oversampling, double gamma) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        CMtfMeasurement measurement;
        measurement.oversampling = oversampling;
        measurement.gamma = gamma;
        if (!roi.is_none()) {
          const auto values = roi.cast<std::vector<double>>();
          if (values.size() != 4) {
            throw std::invalid_argument("roi must be (left, top, width, height)");
          }
          for (int i = 0; i < 4; ++i) measurement.edgeRegion[i] = values[i];
        }
        MtfResult result;
        float slope = 0.0f;
        bool measured = false;
        {
          py::gil_scoped_release release;
          measured = measurement.MeasureEdge(src.mat, result, &slope);
        }
        return EdgeFigures(measured ? &result : nullptr, slope);
      },
      py::arg("image"), py::arg("roi") = py::none(), py::arg("oversampling") = 4.0f,
      py::arg("gamma") = 1.0);

  py::class_<ChartMeasurement>(m, "ChartMeasurement")
      .def_property_readonly("targets", &TargetList)
      .def_property_readonly(
          "shape", [](const ChartMeasurement& c) { return py::make_tuple(c.rows, c.cols); })
      .def_property_readonly("mean_efficiency", [](const ChartMeasurement& c) {
        return CMtfMeasurement::MeanEfficiency(c.targets);
      });

  m.def(
      "measure_chart",
      [](const py::object& image) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        ChartMeasurement chart;
        chart.rows = src.mat.rows;
        chart.cols = src.mat.cols;
        {
          py::gil_scoped_release release;
          chart.targets = CMtfMeasurement().MeasureTargets(src.mat);
        }
        return chart;
      },
      py::arg("image"));

  m.def(
      "annotate_chart",
      [](const py::object& image, const ChartMeasurement& chart) {
        const InputImage src = ReadImage(image, "image", Channels::kUpToFour);
        if (src.mat.rows != chart.rows || src.mat.cols != chart.cols) {
          throw std::invalid_argument("the image is not the one the chart result was measured on");
        }
        cv::Mat output;
        {
          py::gil_scoped_release release;
          DrawMtfResults(src.mat, chart.targets, output);
        }
        return ToArray(std::move(output));
      },
      py::arg("image"), py::arg("chart"));

  m.def(
      "validation_parameters",
      [](bool nominalMode) { return ParametersDict(ValidationAlgoParameters(nominalMode)); },
      py::arg("nominal_mode") = true);

  py::class_<ProcessingPluginHandle> handle(m, "ProcessingPluginHandle");
  handle.def(py::init<const std::string&>(), py::arg("module_path"))
      .def_property_readonly("module_path", &ProcessingPluginHandle::ModulePath);
  DefSequenceMeasurement(handle, "dark_chamber_defects",
                         &ProcessingPluginHandle::DarkChamberDefects);
  DefSequenceMeasurement(handle, "light_source_factor", &ProcessingPluginHandle::LightSourceFactor);
  handle
      .def(
          "detect_spots",
          [](ProcessingPluginHandle& self, const py::object& image, const py::object& longDark,
             const py::object& shortDark, const py::dict& parameters, const py::object& badPixels) {
            const InputImage frame = ReadImage(image, "image", Channels::kOne);
            const InputImage d150 = ReadImage(longDark, "long_dark", Channels::kOne);
            const InputImage d1 = ReadImage(shortDark, "short_dark", Channels::kOne);
            const InputImage bad = ReadOptionalImage(badPixels, "bad_pixels", Channels::kOne);
            const AlgoParameters values = ParametersFrom(parameters);
            scenarios::DetectionOutput output;
            {
              py::gil_scoped_release release;
              output = self.DetectSpots(ReadDarks(d150, d1, bad), frame.mat, values);
            }
            py::dict result;
            result["completed"] = output.completed;
            result["count"] = output.Count();
            result["objects"] = ObjectList(output.objects);
            result["label_image"] = ombrix_python::CopyToArray(output.labelImage);
            result["overlay_image"] = ombrix_python::CopyToArray(output.overlayImage);
            return result;
          },
          py::arg("image"), py::arg("long_dark"), py::arg("short_dark"), py::arg("parameters"),
          py::arg("bad_pixels") = py::none())
      .def("defect_map", [](ProcessingPluginHandle& self) {
        cv::Mat map;
        {
          py::gil_scoped_release release;
          map = self.DefectMap();
        }
        return ToArray(std::move(map));
      });
}
