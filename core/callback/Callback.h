// Thread-safe registry of named callbacks of one signature: producers register and withdraw a
// callable by name, the event's owner calls them all in ascending name order. F is a
// std::function type; the system uses std::function<void(const int&, float*)>.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>

template <class F>
class CCallback;

template <class R, class... Args>
class CCallback<std::function<R(Args...)>> {
 public:
  using Function = std::function<R(Args...)>;

  virtual ~CCallback() = default;

  // Stores the callable under name, replacing an earlier one of the same name. An empty callable
  // is dropped without touching the registry, so Notify never meets one.
  void Register(const std::string& name, Function callable) {
    if (!callable) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_callbacks[name] = std::move(callable);
  }

  // Removes the callable of exactly this name; unknown names are ignored.
  void UnRegister(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_callbacks.find(name);
    if (found != m_callbacks.end()) m_callbacks.erase(found);
  }

  // Calls every callable in ascending byte order of the names. The lock is held for the whole
  // walk, so a callable must not call back into this registry. An exception from a callable ends
  // the walk and leaves with the lock released.
  void Notify(Args... args) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& entry : m_callbacks) entry.second(args...);
  }

  // Number of registered callables. Read without the lock: meaningful only while no other thread
  // changes the registry.
  std::size_t Size() const { return m_callbacks.size(); }

 private:
  std::mutex m_mutex;
  std::map<std::string, Function> m_callbacks;
};
