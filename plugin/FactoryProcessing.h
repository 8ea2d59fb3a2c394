// Factory of the processing plug-in: loads a library exporting
// IOmbrixProcessing* GetInstance(int, std::shared_ptr<ILogger>).
#pragma once

#include "FactoryBase.h"
#include "IOmbrixProcessing.h"

class CFactoryProcessing : public IFactoryBase<ProcessingFactoryFn> {};
