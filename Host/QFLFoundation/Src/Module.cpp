#include "QFL/Module.h"

#include <utility>

namespace QFL {
namespace {

ModuleMaker& installedMaker() {
  static ModuleMaker maker;
  return maker;
}

}  // namespace

ResourceCollection::~ResourceCollection() = default;

Module::Module(__CFBundle* bundle) : fBundle(bundle) {}
Module::~Module() = default;

void Module::Create(__CFBundle* bundle, ObjectPtr<Module, AtomicValue>& module) {
  if (installedMaker()) {
    installedMaker()(bundle, module);
  } else {
    module = ObjectPtr<Module, AtomicValue>(new Module(bundle));
  }
}

void SetModuleMaker(ModuleMaker maker) {
  installedMaker() = std::move(maker);
}

}  // namespace QFL
