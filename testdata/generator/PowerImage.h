// Model of "Power.tif", the fluorescence-like frame of the Gaussian power process and the wavelet
// structure tests: a smooth background, Gaussian spots of several widths, and signal-dependent
// noise, with two probe spots whose amplitudes were calibrated once (testdata/tools/).
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace datagen {

// Peak amplitudes (grey levels above the background) of the two probe spots, centred on
// (row 162, column 90) and (row 55, column 126).
struct PowerImageProbes {
  double first;
  double second;
};

// The amplitudes frozen into the committed image.
extern const PowerImageProbes kPowerImageProbes;

// 512 x 512 16-bit single-channel frame, every value below 32768. When record is given, the
// model and the list of spots are appended to it.
cv::Mat RenderPowerImage(const PowerImageProbes& probes, std::string* record);

}  // namespace datagen
