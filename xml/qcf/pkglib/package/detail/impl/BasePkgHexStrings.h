#pragma once

#include <algorithm>
#include <cstring>
#include <mutex>

#include "package/detail/BasePkgHexStrings.h"
#include "package/source/HexCodec.h"

namespace pkg {

template <class Context>
std::atomic<BasePkgHexStrings<Context>*> BasePkgHexStrings<Context>::fInstance{nullptr};

template <class Context>
BasePkgHexStrings<Context>* BasePkgHexStrings<Context>::getInstance() {
  BasePkgHexStrings* instance = fInstance.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  std::lock_guard<PkgMutualExclusion> guard(fMutex);
  if (fInstance.load(std::memory_order_relaxed) == nullptr) {
    static BasePkgHexStrings _instance;
    fInstance.store(&_instance, std::memory_order_release);
  }
  return fInstance.load(std::memory_order_relaxed);
}

template <class Context>
BasePkgHexStrings<Context>::~BasePkgHexStrings() {
  fInstance = nullptr;
}

template <class Context>
typename Context::String BasePkgHexStrings<Context>::encodeHexString(const void* data,
                                                                     unsigned long size) {
  String text(2 * size, '0');
  hex::encode(data, size, text.data());
  return text;
}

template <class Context>
unsigned long BasePkgHexStrings<Context>::decodeHexString(const String& text, void* data,
                                                          unsigned long& size) {
  const unsigned long held = text.size() / 2;
  if (data == nullptr) return held;
  size = std::min(size, held);
  hex::decode(text.data(), size, data);
  return held;
}

template <class Context>
template <class Number>
typename Context::String BasePkgHexStrings<Context>::encoded(Number value) {
  char text[2 * sizeof value];
  hex::encode(&value, sizeof value, text);
  return String(text, sizeof text);
}

template <class Context>
template <class Number>
Number& BasePkgHexStrings<Context>::decoded(const String& text, Number& value) {
  value = 0;
  const std::size_t pairs = std::min(std::strlen(text.c_str()) / 2, sizeof value);
  hex::decode(text.data(), pairs, &value);
  return value;
}

}  // namespace pkg
