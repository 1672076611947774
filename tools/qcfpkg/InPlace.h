#pragma once

#include <csignal>
#include <cstdint>
#include <string>

// What makes a change in a package file itself bearable: it can be taken back, and an interrupt
// waits until it has been.

// The end of a file from its directory on, which a change in place overwrites.
class KeptDirectory {
public:
  // Reads it. Raises tools::Failure.
  KeptDirectory(const std::string& path, std::uint64_t directoryOffset);
  // The file is as it was, on disk, too. False, with errno set, where that cannot be.
  bool putBack() const;

private:
  std::string fPath;
  std::uint64_t fOffset;
  std::string fBytes;
};

// For as long as one lives, signals that would end the program wait; the destructor lets them in.
class HeldSignals {
public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  // Has them wait until the program ends.
  void keepOut() { fBefore = fHeld; }
  // Whether one is waiting.
  bool isOneWaiting() const;

private:
  sigset_t fHeld{};
  sigset_t fBefore{};
};
