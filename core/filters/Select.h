// Partial selection used by the disc median. The even-count median at the image edge reads the
// entry just before the nth position, whose value depends on how the selection left the array;
// our own routine makes that order the same with every standard library. It is the selection of
// the Microsoft C++ library's std::nth_element, the library of the platform the suite was written
// for: while more than 32 entries remain, partition around a median-of-three guess (the median of
// three medians of three above 40 entries) into less / equal / greater, stop when nth falls among
// the equals, else continue in the side that holds it; then insertion-sort the rest.
#pragma once

#include <cstddef>
#include <utility>

namespace ombrix {

constexpr std::ptrdiff_t kSelectInsertionLimit = 32;
constexpr std::ptrdiff_t kSelectNintherLimit = 40;

namespace select_detail {

// Orders *a, *b, *c so that *b is their median (and *a not above it, *c not below it).
template <class T>
void MedianOfThree(T* a, T* b, T* c) {
  if (*b < *a) std::swap(*b, *a);
  if (*c < *b) {
    std::swap(*c, *b);
    if (*b < *a) std::swap(*b, *a);
  }
}

// Moves a median guess of [first, back] (back inclusive) to mid.
template <class T>
void GuessMedian(T* first, T* mid, T* back) {
  const std::ptrdiff_t count = back - first;
  if (count > kSelectNintherLimit) {
    const std::ptrdiff_t step = (count + 1) >> 3;
    const std::ptrdiff_t twoSteps = step << 1;
    MedianOfThree(first, first + step, first + twoSteps);
    MedianOfThree(mid - step, mid, mid + step);
    MedianOfThree(back - twoSteps, back - step, back);
    MedianOfThree(first + step, mid, back - step);
  } else {
    MedianOfThree(first, mid, back);
  }
}

// Three-way partition of [first, last) around the guessed median: returns [equalFirst,
// equalLast), the run of entries equal to the pivot, with smaller entries before it and larger
// ones after it.
template <class T>
std::pair<T*, T*> Partition(T* first, T* last) {
  T* mid = first + ((last - first) >> 1);
  GuessMedian(first, mid, last - 1);
  T* equalFirst = mid;
  T* equalLast = mid + 1;
  while (first < equalFirst && !(*(equalFirst - 1) < *equalFirst) &&
         !(*equalFirst < *(equalFirst - 1))) {
    --equalFirst;
  }
  while (equalLast < last && !(*equalLast < *equalFirst) && !(*equalFirst < *equalLast)) {
    ++equalLast;
  }
  T* up = equalLast;     // next unexamined entry above the equal run
  T* down = equalFirst;  // one past the next unexamined entry below it
  for (;;) {
    for (; up < last; ++up) {
      if (*equalFirst < *up) continue;
      if (*up < *equalFirst) break;
      if (equalLast != up) std::swap(*equalLast, *up);
      ++equalLast;
    }
    for (; first < down; --down) {
      T* below = down - 1;
      if (*below < *equalFirst) continue;
      if (*equalFirst < *below) break;
      --equalFirst;
      if (equalFirst != below) std::swap(*equalFirst, *below);
    }
    if (down == first && up == last) return {equalFirst, equalLast};
    if (down == first) {
      // A smaller entry above and no room below: rotate the equal run up by one.
      if (equalLast != up) std::swap(*equalFirst, *equalLast);
      ++equalLast;
      std::swap(*equalFirst, *up);
      ++equalFirst;
      ++up;
    } else if (up == last) {
      // A larger entry below and no room above: rotate the equal run down by one.
      --down;
      --equalFirst;
      if (down != equalFirst) std::swap(*down, *equalFirst);
      --equalLast;
      std::swap(*equalFirst, *equalLast);
    } else {
      --down;
      std::swap(*up, *down);
      ++up;
    }
  }
}

}  // namespace select_detail

// Rearranges [first, last) so that *nth is the value a full sort would put there, nothing before
// it is greater and nothing after it is smaller.
template <class T>
void SelectNth(T* first, T* nth, T* last) {
  if (nth == last) return;
  while (last - first > kSelectInsertionLimit) {
    const std::pair<T*, T*> equal = select_detail::Partition(first, last);
    if (equal.second <= nth) {
      first = equal.second;
    } else if (equal.first <= nth) {
      return;
    } else {
      last = equal.first;
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
