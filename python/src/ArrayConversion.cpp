#include "ArrayConversion.h"

#include <climits>
#include <cstring>

namespace ombrix_python {

namespace {

// OpenCV depth of a supported dtype, or -1.
int DepthOf(const py::dtype& dtype) {
  if (!dtype.attr("isnative").cast<bool>()) return -1;
  const char kind = dtype.kind();
  const auto size = dtype.itemsize();
  if (kind == 'u' && size == 1) return CV_8U;
  if (kind == 'u' && size == 2) return CV_16U;
  if (kind == 'f' && size == 4) return CV_32F;
  if (kind == 'f' && size == 8) return CV_64F;
  return -1;
}

py::dtype DtypeOf(int depth) {
  switch (depth) {
    case CV_8U:
      return py::dtype::of<std::uint8_t>();
    case CV_8S:
      return py::dtype::of<std::int8_t>();
    case CV_16U:
      return py::dtype::of<std::uint16_t>();
    case CV_16S:
      return py::dtype::of<std::int16_t>();
    case CV_32S:
      return py::dtype::of<std::int32_t>();
    case CV_32F:
      return py::dtype::of<float>();
    case CV_64F:
      return py::dtype::of<double>();
    default:
      throw std::runtime_error("the core returned an image of an unexpected depth");
  }
}

std::string TypeName(const py::handle& object) {
  return py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>();
}

// True when OpenCV can address the array's pixels through one row step.
bool Addressable(const py::array& array, int channels) {
  const auto itemsize = array.itemsize();
  if (!array.attr("flags").attr("aligned").cast<bool>()) return false;
  if (array.ndim() == 3 && array.strides(2) != itemsize) return false;
  const auto pixel = static_cast<py::ssize_t>(itemsize * channels);
  if (array.shape(1) > 1 && array.strides(1) != pixel) return false;
  const py::ssize_t step = array.strides(0);
  if (array.shape(0) > 1 && (step < pixel * array.shape(1) || step % itemsize != 0)) return false;
  return true;
}

cv::Mat Header(const py::array& array, int type) {
  const int rows = static_cast<int>(array.shape(0));
  const int cols = static_cast<int>(array.shape(1));
  const std::size_t rowBytes = static_cast<std::size_t>(cols) * CV_ELEM_SIZE(type);
  std::size_t step = rows > 1 ? static_cast<std::size_t>(array.strides(0)) : rowBytes;
  // The core only reads its inputs (const cv::Mat&), so the header may point at read-only data.
  return cv::Mat(rows, cols, type, const_cast<void*>(array.data()), step);
}

}  // namespace

InputImage ReadImage(const py::handle& object, const std::string& name, Channels channels) {
  if (!py::isinstance<py::array>(object)) {
    throw py::type_error(name + " must be a numpy array, not " + TypeName(object));
  }
  py::array array = py::reinterpret_borrow<py::array>(object);
  const int depth = DepthOf(array.dtype());
  if (depth < 0) {
    throw py::type_error(name + " has dtype " + py::str(array.dtype()).cast<std::string>() +
                         "; expected uint8, uint16, float32 or float64 in native byte order");
  }
  const bool colour = channels == Channels::kUpToFour;
  const auto ndim = array.ndim();
  const bool shapeOk =
      ndim == 2 || (colour && ndim == 3 && array.shape(2) >= 1 && array.shape(2) <= 4);
  if (!shapeOk) {
    throw py::type_error(
        name + " has " + std::to_string(ndim) + " dimensions; expected " +
        (colour ? "2 (rows, columns) or 3 (rows, columns, 1 to 4 channels)" : "2 (rows, columns)"));
  }
  const int count = ndim == 3 ? static_cast<int>(array.shape(2)) : 1;
  if (array.shape(0) > INT_MAX / 2 || array.shape(1) > INT_MAX / 2) {
    throw py::value_error(name + " is too large for the core");
  }
  InputImage image;
  if (array.size() == 0) {
    image.owner = array;
    return image;
  }
  if (!Addressable(array, count)) {
    // One copy in C order; the caller's array is not touched.
    array = py::module_::import("numpy").attr("ascontiguousarray")(array);
  }
  image.owner = array;
  image.mat = Header(array, CV_MAKETYPE(depth, count));
  return image;
}

InputImage ReadOptionalImage(const py::handle& object, const std::string& name, Channels channels) {
  if (object.is_none()) return InputImage{};
  return ReadImage(object, name, channels);
}

InputFrames ReadFrames(const py::handle& object, const std::string& name) {
  InputFrames result;
  if (py::isinstance<py::array>(object)) {
    const py::array stack = py::reinterpret_borrow<py::array>(object);
    if (stack.ndim() != 3) {
      throw py::type_error(name + " has " + std::to_string(stack.ndim()) +
                           " dimensions; expected 3 (frame, rows, columns) or a list of 2-D "
                           "arrays");
    }
    const py::ssize_t count = stack.shape(0);
    for (py::ssize_t i = 0; i < count; ++i) {
      const py::object frame = stack[py::int_(i)];
      InputImage image = ReadImage(frame, name + "[" + std::to_string(i) + "]", Channels::kOne);
      result.owners.push_back(image.owner);
      result.frames.push_back(image.mat);
    }
    return result;
  }
  if (py::isinstance<py::str>(object) || py::isinstance<py::bytes>(object) ||
      !py::isinstance<py::sequence>(object)) {
    throw py::type_error(name + " must be a 3-D numpy array or a sequence of 2-D arrays, not " +
                         TypeName(object));
  }
  const py::sequence sequence = py::reinterpret_borrow<py::sequence>(object);
  const py::ssize_t count = static_cast<py::ssize_t>(py::len(sequence));
  for (py::ssize_t i = 0; i < count; ++i) {
    InputImage image = ReadImage(sequence[i], name + "[" + std::to_string(i) + "]", Channels::kOne);
    result.owners.push_back(image.owner);
    result.frames.push_back(image.mat);
  }
  return result;
}

py::array ToArray(cv::Mat mat) {
  if (mat.dims > 2)
    throw std::runtime_error("the core returned an image of more than 2 dimensions");
  // A header without OpenCV's allocation shares memory the core does not own (an input handed
  // back): the array gets its own copy.
  if (mat.u == nullptr && mat.data != nullptr) mat = mat.clone();
  const py::dtype dtype = DtypeOf(mat.depth());
  const int channels = mat.channels();
  std::vector<py::ssize_t> shape{mat.rows, mat.cols};
  if (channels > 1) shape.push_back(channels);
  if (mat.data == nullptr || mat.empty()) {
    if (mat.empty()) shape.assign({0, 0});
    return py::array(dtype, shape);
  }
  std::vector<py::ssize_t> strides{static_cast<py::ssize_t>(mat.step[0]),
                                   static_cast<py::ssize_t>(mat.elemSize())};
  if (channels > 1) strides.push_back(static_cast<py::ssize_t>(mat.elemSize1()));
  auto* holder = new cv::Mat(std::move(mat));
  const py::capsule base(holder, [](void* pointer) { delete static_cast<cv::Mat*>(pointer); });
  return py::array(dtype, shape, strides, holder->data, base);
}

py::array CopyToArray(const cv::Mat& mat) { return ToArray(mat.empty() ? cv::Mat() : mat.clone()); }

py::array ToBoolArray(const cv::Mat& map) {
  cv::Mat ones;
  cv::min(map, 1.0, ones);
  py::array bytes = ToArray(ones);
  return bytes.attr("view")(py::dtype("bool"));
}

}  // namespace ombrix_python
