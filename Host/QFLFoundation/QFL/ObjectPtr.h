#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include <libkern/OSAtomic.h>

#include "QFL/Allocator.h"

namespace QFL {

// A use count that several threads may change.
class AtomicValue {
public:
  explicit AtomicValue(std::int32_t value) : fValue(value) {}
  // Adds with a full barrier and returns the new value.
  std::int32_t Add(std::int32_t amount) { return OSAtomicAdd32Barrier(amount, &fValue); }

private:
  std::int32_t fValue;
};
static_assert(sizeof(AtomicValue) == 4);

// A shared reference to an object with a virtual destructor: the last one to go destroys it. One
// ObjectPtr belongs to one thread at a time; only the count is shared.
template <class Object, class Count>
class ObjectPtr {
public:
  ObjectPtr() noexcept = default;
  // Takes ownership of `object`, which must not be null and goes where there is no memory for its
  // count.
  explicit ObjectPtr(Object* object) {
    std::unique_ptr<Object> owned(object);
    fCount = new (Allocator::Allocate(sizeof(Count))) Count(1);
    fObject = owned.release();
  }
  ObjectPtr(const ObjectPtr& other) noexcept : fCount(other.fCount), fObject(other.fObject) {
    if (fCount != nullptr) fCount->Add(1);
  }
  ObjectPtr(ObjectPtr&& other) noexcept
      : fCount(std::exchange(other.fCount, nullptr)),
        fObject(std::exchange(other.fObject, nullptr)) {}
  ObjectPtr& operator=(ObjectPtr other) noexcept {
    std::swap(fCount, other.fCount);
    std::swap(fObject, other.fObject);
    return *this;
  }
  ~ObjectPtr() {
    if (fCount == nullptr || fCount->Add(-1) != 0) return;
    delete fObject;
    Allocator::Dispose(fCount, sizeof(Count));
  }

  // Null where nothing is held. Stays the property of the references.
  Object* Get() const noexcept { return fObject; }

private:
  Count* fCount = nullptr;
  Object* fObject = nullptr;
};

}  // namespace QFL
