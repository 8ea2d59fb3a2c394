// ombrix_datagen DATA_DIR SET [FILE_LIST]
// Writes one data set below DATA_DIR and, when FILE_LIST is given, the relative paths of the
// files it wrote (one per line), which the build checks against the set's manifest.
#include <fstream>
#include <iostream>
#include <map>

#include "DataSet.h"

int main(int argc, char** argv) {
  auto& registry = datagen::Registry();
  if (argc < 3) {
    std::cerr << "usage: ombrix_datagen DATA_DIR SET [FILE_LIST]\nsets:";
    for (const auto& entry : registry) std::cerr << ' ' << entry.first;
    std::cerr << '\n';
    return 2;
  }
  const auto found = registry.find(argv[2]);
  if (found == registry.end()) {
    std::cerr << "ombrix_datagen: unknown data set '" << argv[2] << "'\n";
    return 2;
  }
  try {
    datagen::Output out(argv[1]);
    found->second(out);
    if (argc > 3) {
      std::ofstream list(argv[3]);
      for (const auto& path : out.Written()) list << path << '\n';
    }
  } catch (const std::exception& e) {
    std::cerr << "ombrix_datagen: " << argv[2] << ": " << e.what() << '\n';
    return 1;
  }
  return 0;
}
