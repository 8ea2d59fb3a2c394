#include "DataFolder.h"

#include <filesystem>

#include "Platform.h"

namespace {

#define OMBRIX_UP ".." OMBRIX_SEP
const char* const kCandidates[] = {
    OMBRIX_UP OMBRIX_UP OMBRIX_UP "UnitTestData" OMBRIX_SEP,
    OMBRIX_UP OMBRIX_UP OMBRIX_UP OMBRIX_UP "UnitTestData" OMBRIX_SEP,
    OMBRIX_UP OMBRIX_UP OMBRIX_UP OMBRIX_UP OMBRIX_UP "UnitTestData" OMBRIX_SEP,
};
#undef OMBRIX_UP

}  // namespace

std::string FindDataFolder() {
  // A candidate stays relative, so it is resolved against the working directory of the moment.
  // A plain file named UnitTestData counts as found, as a folder does; POSIX refuses a trailing
  // separator after a file name, so the query drops it (parent_path of "x/UnitTestData/").
  for (const char* candidate : kCandidates) {
    if (std::filesystem::exists(std::filesystem::path(candidate).parent_path())) return candidate;
  }
  return std::string();
}
