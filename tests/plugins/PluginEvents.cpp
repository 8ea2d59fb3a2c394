#include "PluginEvents.h"

#include <mutex>

namespace plugin_events {

namespace {

// Never destroyed: libraries left loaded until process exit still record their unload while the
// process runs its exit handlers.
struct Log {
  std::mutex mutex;
  std::vector<std::string> events;
};

Log& TheLog() {
  static Log* const log = new Log();
  return *log;
}

}  // namespace

void Record(const std::string& event) {
  Log& log = TheLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  log.events.push_back(event);
}

std::vector<std::string> Take() {
  Log& log = TheLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  std::vector<std::string> taken;
  taken.swap(log.events);
  return taken;
}

}  // namespace plugin_events
