// Test classes of the Processing namespace: filters, MTF measurement, stack statistics and the
// processing plug-in's scenarios, each checked against the reference data in UnitTestData.
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "DataFolder.h"
#include "Harness.h"
#include "ImageCompare.h"
#include "Platform.h"

using harness::Assert;

namespace Processing {

}  // namespace Processing
