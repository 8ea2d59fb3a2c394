// The oracle of RemoveNestedCandidates: the same walk written out step by step, each kept
// record's enclosing-circle centre found again for every comparison and the areas taken when a
// duplicate is found. Accepts any contour set.
#pragma once

#include "mtf/ContourFeatures.h"

namespace oracle {

void RemoveNestedCandidates(ContourSet& set);

}  // namespace oracle
