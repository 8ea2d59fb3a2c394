#include "FactoryCollection.h"

CFactoryCollection::~CFactoryCollection() {
  if (m_hModuleSpare != nullptr) DynamicLibrary::Free(m_hModuleSpare);
}
