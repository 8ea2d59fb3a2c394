// Bisection shared by the calibration tools: narrows a bracket [lo, hi] onto the parameter at which
// a figure that falls as the parameter grows reaches an aim. Accepts any callable double -> double;
// the bracket must hold the crossing.
#pragma once

namespace datagen {

// Midpoint of the bracket after the given number of halvings.
template <class Figure>
double BisectFalling(double lo, double hi, double aim, int halvings, Figure figure) {
  for (int i = 0; i < halvings; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (figure(mid) > aim) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return 0.5 * (lo + hi);
}

}  // namespace datagen
