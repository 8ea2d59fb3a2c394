// The plug-in factories of one user: acquisition, processing and a spare library handle. Objects
// made through the factories must be released before the collection goes, since destroying it
// unloads the libraries.
#pragma once

#include "DynamicLibrary.h"
#include "FactoryAcquisition.h"
#include "FactoryProcessing.h"

class CFactoryCollection {
 public:
  CFactoryCollection() = default;
  CFactoryCollection(const CFactoryCollection&) = delete;
  CFactoryCollection& operator=(const CFactoryCollection&) = delete;

  // Frees the spare handle first; the factories then unload their own libraries in reverse order
  // of declaration (processing before acquisition).
  virtual ~CFactoryCollection();

  CFactoryAcquisition m_factoryAcquisition;
  CFactoryProcessing m_factoryProcessing;
  // Nothing in this system loads into it, but whatever it holds is released with the collection.
  DynamicLibrary::Handle m_hModuleSpare = nullptr;
};
