// Partial selection used by the disc median. The even-count median at the image edge reads the
// entry just before the nth position, whose value depends on how the selection left the array;
// our own routine makes that order the same with every standard library: median-of-three
// partitioning while more than 32 entries remain, then insertion sort of the rest.
#pragma once

#include <cstddef>
#include <utility>

namespace ombrix {

constexpr std::ptrdiff_t kSelectInsertionLimit = 32;

// Rearranges [first, last) so that *nth is the value a full sort would put there, nothing before
// it is greater and nothing after it is smaller.
template <class T>
void SelectNth(T* first, T* nth, T* last) {
  while (last - first > kSelectInsertionLimit) {
    T* mid = first + (last - first) / 2;
    T* back = last - 1;
    // Median of three, left at mid, the smallest at first and the largest at back, so both
    // scans below are guarded by sentinels.
    if (*mid < *first) std::swap(*mid, *first);
    if (*back < *mid) {
      std::swap(*back, *mid);
      if (*mid < *first) std::swap(*mid, *first);
    }
    const T pivot = *mid;
    T* lo = first + 1;
    T* hi = back - 1;
    for (;;) {
      while (*lo < pivot) ++lo;
      while (pivot < *hi) --hi;
      if (lo >= hi) break;
      std::swap(*lo, *hi);
      ++lo;
      --hi;
    }
    // [first, hi] holds values <= pivot, [hi + 1, last) values >= pivot.
    if (nth <= hi) {
      last = hi + 1;
    } else {
      first = hi + 1;
    }
  }
  for (T* i = first + 1; i < last; ++i) {
    const T value = *i;
    T* j = i;
    for (; j > first && value < *(j - 1); --j) *j = *(j - 1);
    *j = value;
  }
}

}  // namespace ombrix
