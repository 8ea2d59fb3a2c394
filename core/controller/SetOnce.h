// A value that can be assigned once: the first Set takes effect, later ones are ignored, and
// IsSet tells whether it happened. For trivially copyable T with a single writer.
#pragma once

#include <atomic>
#include <type_traits>

template <class T>
class CSetOnce {
  static_assert(std::is_trivially_copyable<T>::value, "CSetOnce holds trivially copyable values");

 public:
  CSetOnce() { m_isSet.store(false); }

  // A check and two stores, flag first: not a compare-exchange, so two writers racing may both
  // store. A reader seeing the flag may briefly still read the old value.
  void Set(T value) {
    if (!m_isSet.load()) {
      m_isSet.store(true);
      m_value = value;
    }
  }

  bool IsSet() const { return m_isSet.load(); }

  T Get() const { return m_value; }

 private:
  T m_value{};
  std::atomic<bool> m_isSet;
};
