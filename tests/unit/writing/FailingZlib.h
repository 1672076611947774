#pragma once

#include <zlib.h>

// The deflate of a test program that links FailingZlib.cpp.
namespace failingzlib {

// The results that the next calls give instead of working; Z_OK: they work.
struct Refusals {
  int init = Z_OK;
  int deflate = Z_OK;
  bool takesAll = false;  // a failing deflate takes its input all the same
  int end = Z_OK;
};
inline Refusals gRefusals;

}  // namespace failingzlib
