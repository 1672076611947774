#pragma once

#include <pthread.h>

#include "package/detail/Visibility.h"

namespace pkg {

// A mutex with default attributes: neither recursive nor error-checking. Take it through
// std::lock_guard.
class QCF_API PkgMutualExclusion {
public:
  PkgMutualExclusion() { pthread_mutex_init(&fMutex, nullptr); }
  virtual ~PkgMutualExclusion() { pthread_mutex_destroy(&fMutex); }
  PkgMutualExclusion(const PkgMutualExclusion&) = delete;
  PkgMutualExclusion& operator=(const PkgMutualExclusion&) = delete;

  void lock() { pthread_mutex_lock(&fMutex); }
  void unlock() { pthread_mutex_unlock(&fMutex); }

private:
  pthread_mutex_t fMutex;
};

}  // namespace pkg
