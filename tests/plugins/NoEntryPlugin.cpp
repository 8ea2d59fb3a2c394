// Test plug-in that loads and unloads like the others but exports no "GetInstance".
#include "ModuleLifetime.h"
