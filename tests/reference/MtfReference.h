// The oracle of the spectrum that ComputeMtf takes with cv::dft: the discrete Fourier transform
// magnitude summed term by term, O(N^2). Accepts any real sequence.
#pragma once

#include <vector>

namespace oracle {

std::vector<double> SpectrumMagnitude(const std::vector<double>& values);

}  // namespace oracle
