#pragma once

#include <boost/shared_ptr.hpp>

namespace pkg {

// A counted handle of an entry. Copies of one handle share a control block, whose last copy calls
// the entry's release(); the entry deletes itself when every control block on it is gone. The
// shared counts are atomic, the entry's own count is not: the entries of one package belong to one
// thread at a time.
template <class T>
class SPRefType {
public:
  using element_type = T;

  // A null handle.
  SPRefType() = default;

  // Adopts one reference that the caller holds: addRef() is not called. Should the control block
  // not be allocated, release() is called and std::bad_alloc leaves.
  explicit SPRefType(T* entry) : fRef(entry, DeleteRefType()) {}

  T* get() const noexcept { return fRef.get(); }
  T* operator->() const noexcept { return fRef.get(); }
  T& operator*() const noexcept { return *fRef; }
  explicit operator bool() const noexcept { return fRef.get() != nullptr; }

  // Copies of this handle, itself included. Says nothing of other handles on the same entry.
  long use_count() const noexcept { return fRef.use_count(); }
  void reset() noexcept { fRef.reset(); }

  // Identity of the entry object.
  friend bool operator==(const SPRefType& a, const SPRefType& b) noexcept {
    return a.fRef == b.fRef;
  }
  friend bool operator!=(const SPRefType& a, const SPRefType& b) noexcept {
    return a.fRef != b.fRef;
  }

private:
  struct DeleteRefType {
    void operator()(T* entry) const {
      if (entry != nullptr) entry->release();
    }
  };

  boost::shared_ptr<T> fRef;  // the raw pointer, then the shared count
};

}  // namespace pkg
