#pragma once

#include <csignal>

#include <gtest/gtest.h>

// Expects the statement to be stopped by the processor, which the system tells with the signal of
// that number. A sanitizer is there first and ends the process with a report.
#ifdef QCF_SANITIZED
#define EXPECT_PROCESSOR_FAULT(signal, ...) \
  EXPECT_DEATH(__VA_ARGS__, "runtime error: |ERROR: .*Sanitizer")
#else
#define EXPECT_PROCESSOR_FAULT(signal, ...) \
  EXPECT_EXIT(__VA_ARGS__, testing::KilledBySignal(signal), "")
#endif
