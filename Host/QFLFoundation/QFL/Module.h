#pragma once

#include <functional>

#include <CoreFoundation/CoreFoundation.h>

#include "QFL/ObjectPtr.h"
#include "QFL/Visibility.h"

namespace QFL {

// Where a plug-in's resources are found.
class QFL_API ResourceCollection {
public:
  virtual ~ResourceCollection();
};

// A loaded plug-in as the host knows it.
class QFL_API Module : public ResourceCollection {
public:
  // Makes the module object of a bundle and puts it into `module`; what that held before is
  // released.
  static void Create(__CFBundle* bundle, ObjectPtr<Module, AtomicValue>& module);

  explicit Module(__CFBundle* bundle);
  ~Module() override;

  // Owned by the system, valid for the life of the process.
  __CFBundle* GetBundle() const noexcept { return fBundle; }

private:
  __CFBundle* fBundle;
};

// What Module::Create does. The host may install its own maker, and take it back with an empty
// function; not while a plug-in is in a call.
using ModuleMaker = std::function<void(__CFBundle*, ObjectPtr<Module, AtomicValue>&)>;
QFL_API void SetModuleMaker(ModuleMaker maker);

}  // namespace QFL
