// Locates the shared test-data folder UnitTestData relative to the working directory: three, four,
// then five levels up, first existing candidate wins. Returned paths end in the platform separator
// so that a bare file name can be appended directly.
#pragma once

#include <string>

std::string FindDataFolder();
