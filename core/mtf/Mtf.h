// MTF of one slanted edge from its oversampled edge spread function (ESF): line spread function,
// spectrum, frequency axis, cut frequency (MTF 0.1), Nyquist sample, efficiency and LSF width.
// Accepts any ESF (an empty or very short one gives the "not available" figures).
#pragma once

#include <vector>

#include "mtf/KProfile.h"

// One edge's measurement.
struct MtfResult {
  // Sampling interval along the edge normal: mm when a resolution is given, else pixels.
  float pitch = 1.0f;
  // Dots per inch; 1.0 or less means unknown (frequencies in cycles per pixel).
  float resolution = 1.0f;
  // Cut frequency as a percentage of the Nyquist sample, 0 to 100.
  float efficiency = 0.0f;
  // Full width at half maximum of the LSF, in pixels.
  float fwhm = 0.0f;
  // Where the MTF falls to 0.1; -1 when it never does.
  float cutFrequency = -1.0f;
  // The frequency sample taken as Nyquist; -1 when there is none.
  float nyquist = -1.0f;
  KProfile<double> esf;
  // Centred and windowed.
  KProfile<double> lsf;
  // Normalised and corrected spectrum magnitude, first (N + 1) / 2 samples.
  KProfile<double> mtf;
  // mtf after correction; the cut frequency is read from it.
  KProfile<double> mtfCopy;
  // Frequency of each mtf sample.
  KProfile<double> frequencies;
};

// Fills every field of result but resolution (which the caller sets) from the ESF, the edge's
// slope (tangent of its tilt against the sampling axis) and the oversampling (samples per pixel).
// Deliberate details: the LSF is 0.5 x (esf[j + 2] - esf[j]) for j = 0 .. N - 4 only, its last
// three samples repeat the last one computed; it is rotated left so that its centroid lands on
// round(N / 2) (no rotation when it sums to zero or less) and weighted by a Hamming window centred
// on the 1-based sample N / 2; the magnitude is normalised by its first value and cut to
// (N + 1) / 2 samples; sample k > 0 is multiplied by |x / sin x|, x = pi k / (M + 1), at most 10
// (the derivative's response). The Nyquist sample is the first frequency above
// 0.5 / pitch - (frequency[1] + DBL_EPSILON). Efficiency is 0 when there is no Nyquist sample or no
// cut frequency, and at most 100.
void ComputeMtf(MtfResult& result, const KProfile<double>& esf, float slope, float oversampling);

// Frequency at which result.mtfCopy first falls to level, linearly interpolated between samples;
// -1.0 when it never does (or only at sample 0, or with fewer than 2 samples), or when the crossing
// lies beyond the end of result.frequencies.
double MtfCrossing(const MtfResult& result, double level);

// Full width at half maximum of result.lsf in pixels: the left edge is the first rise above half
// the maximum before the peak (the peak is the last index of the running maximum), the right edge
// the last fall below it from the peak on; a missing edge counts as 0.
double LsfWidth(const MtfResult& result, float oversampling);
