#include <cstdint>
#include <utility>

#include <CoreFoundation/CoreFoundation.h>

#include "ImporterQSND.h"
#include "QFL/Module.h"

namespace {

using ModulePtr = QFL::ObjectPtr<QFL::Module, QFL::AtomicValue>;

// Lives from the first selector 0 to the end of selector 1, or to the end of the process.
ModulePtr gDllModule;

// The importer needs nothing of its module: where the host cannot make one, it goes on without, as
// it does without a bundle.
void CreateModule() {
  try {
    if (CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR(QSND_BUNDLE_IDENTIFIER))) {
      QFL::Module::Create(bundle, gDllModule);
    }
  } catch (...) {
  }
}

// The handle is empty before the module goes, so that a call from its destructor finds none.
void ReleaseModule() {
  const ModulePtr released = std::move(gDllModule);
}

// There may be no module; the reference is then never used, only passed along.
__attribute__((no_sanitize("undefined"))) std::int32_t HandleSelector(int selector,
                                                                      imStdParms* stdParms,
                                                                      void* param1, void* param2) {
  const QFL::ResourceCollection* const resources = gDllModule.Get();
  return ImporterQSND::ImporterQSND::ImportEntry(*resources, selector, stdParms, param1, param2);
}

}  // namespace

ModulePtr& GetDllModule() {
  return gDllModule;
}

// The bundle's one export: serves a selector of the host. Nothing is thrown through it.
extern "C" [[gnu::visibility("default")]] std::int32_t xImportEntry(int selector,
                                                                    imStdParms* stdParms,
                                                                    void* param1,
                                                                    void* param2) noexcept {
  [[maybe_unused]] static bool processingMessage = false;
  if (selector == 0) CreateModule();
  processingMessage = true;
  const std::int32_t result = HandleSelector(selector, stdParms, param1, param2);
  processingMessage = false;
  if (selector == 1) ReleaseModule();
  return result;
}
