// Factory of the acquisition plug-in: loads a library exporting
// IOmbrixAcquisition* GetInstance(int, std::shared_ptr<ILogger>).
#pragma once

#include "FactoryBase.h"

class CFactoryAcquisition : public IFactoryBase<AcquisitionFactoryFn> {};
